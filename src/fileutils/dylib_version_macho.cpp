#include "fileutils/dylib_version_macho.h"

#include <cstring>
#include <set>
#include <utility>

#include "platform/plist.h"

namespace velzip {

namespace {

constexpr uint32_t kMagic32 = 0xfeedface;
constexpr uint32_t kSegmentCommand = 1;
constexpr size_t kHeaderSize = 28;
constexpr size_t kSegmentSize = 56;
constexpr size_t kSectionSize = 68;

// The files are read as the little-endian machine that wrote them stored
// them, whatever machine reads them now.
uint32_t le32(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

// A 16-byte name field; it lacks the terminating NUL when all 16 are used.
bool nameIs(const uint8_t* field, const char* name) {
  const size_t n = std::strlen(name);
  return std::memcmp(field, name, n) == 0 && field[n] == '\0';
}

}  // namespace

bool walkInfoPlistSections(const uint8_t* image, size_t size,
                           const std::function<bool(const uint8_t*, size_t)>& onSection) {
  if (image == nullptr || size < kHeaderSize || le32(image) != kMagic32) return false;
  const uint32_t ncmds = le32(image + 16);
  size_t at = kHeaderSize;
  for (uint32_t i = 0; i < ncmds && size - at >= 8; ++i) {
    const uint8_t* command = image + at;
    const uint32_t cmdsize = le32(command + 4);
    if (le32(command) == kSegmentCommand && size - at >= kSegmentSize &&
        nameIs(command + 8, "__TEXT")) {
      const uint32_t nsects = le32(command + 48);
      size_t section = at + kSegmentSize;
      for (uint32_t s = 0; s < nsects && size - section >= kSectionSize; ++s) {
        const uint8_t* record = image + section;
        if (nameIs(record, "__info_plist")) {
          const uint32_t length = le32(record + 36);
          const uint32_t offset = le32(record + 40);
          if (offset <= size && length <= size - offset && onSection(image + offset, length)) {
            return true;
          }
          break;
        }
        section += kSectionSize;
      }
    }
    // A zero-sized command would be met again, with the same outcome, on
    // each of the remaining steps.
    if (cmdsize == 0 || cmdsize > size - at) break;
    at += cmdsize;
  }
  return false;
}

bool findMachOBundleVersion(const uint8_t* image, size_t size, std::string& version) {
  // Overlapping commands can name many sections; the parser sees each range
  // once and, over the whole walk, a few times the file's size at most.
  size_t budget = size < (size_t{1} << 20) ? (size_t{1} << 22) : size * 4;
  std::set<std::pair<const uint8_t*, size_t>> tried;
  bool exhausted = false;
  const bool found = walkInfoPlistSections(image, size, [&](const uint8_t* bytes, size_t length) {
    if (exhausted || !tried.insert({bytes, length}).second) return false;
    if (length > budget) {
      exhausted = true;
      return false;
    }
    budget -= length;
    PlistValue list;
    if (!parsePropertyList(bytes, length, list)) return false;
    const std::string* text = list.findString("CFBundleVersion");
    if (text == nullptr) return false;
    version = *text;
    return true;
  });
  return found;
}

}  // namespace velzip
