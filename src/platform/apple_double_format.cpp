// Byte layout of AppleDouble companions (version 2, big-endian), as Mac tools
// write them:
//   0   header: magic, version, 16 filler bytes, entry count
//   26  entry descriptors (id, offset, length), 12 bytes each
//   50  Finder Info entry: 32 Finder Info bytes, 2 pad bytes, then the
//       attribute block: 'ATTR' header (36 bytes) from 84, attribute entries
//       from 120 (each padded to 4 bytes), attribute data
//   ... resource fork entry data, last in the file
// The parser reads untrusted archive content: every offset and length is
// checked in 64-bit arithmetic against the buffer before it is used.
#include <algorithm>
#include <cstring>
#include <set>
#include <string_view>
#include <utility>

#include "platform/apple_double.h"

namespace velzip {
namespace {

constexpr uint32_t kMagic = 0x00051607;
constexpr uint32_t kVersion = 0x00020000;
constexpr char kFiller[] = "Mac OS X        ";
constexpr uint32_t kAttrMagic = 0x41545452;  // 'ATTR'
constexpr uint32_t kEntryResourceFork = 2;
constexpr uint32_t kEntryFinderInfo = 9;

constexpr size_t kHeaderSize = 26;
constexpr size_t kDescriptorSize = 12;
constexpr size_t kFinderInfoSize = 32;
constexpr size_t kAttrHeaderOffset = kFinderInfoSize + 2;  // within the Finder Info entry
constexpr size_t kAttrHeaderSize = 36;
constexpr size_t kAttrEntryFixedSize = 11;  // offset, length, flags, name length
constexpr size_t kFinderInfoEntryMinSize = kAttrHeaderOffset + kAttrHeaderSize;
// Mac tools write two entries; other writers add a few more (names, dates).
constexpr size_t kMaxEntries = 32;
constexpr size_t kMaxAttributes = 0xFFFF;

uint16_t get16(const uint8_t* p) {
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

uint32_t get32(const uint8_t* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
         (static_cast<uint32_t>(p[2]) << 8) | p[3];
}

void put16(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v);
}

void put32(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

uint64_t padded4(uint64_t n) {
  return (n + 3) & ~uint64_t{3};
}

struct Range {
  uint64_t begin;
  uint64_t end;
};

// Empty ranges never overlap anything.
bool disjoint(std::vector<Range> ranges) {
  ranges.erase(
      std::remove_if(ranges.begin(), ranges.end(), [](const Range& r) { return r.begin == r.end; }),
      ranges.end());
  std::sort(ranges.begin(), ranges.end(),
            [](const Range& a, const Range& b) { return a.begin < b.begin; });
  for (size_t i = 1; i < ranges.size(); ++i) {
    if (ranges[i].begin < ranges[i - 1].end) return false;
  }
  return true;
}

// The attribute block inside the Finder Info entry [begin, end).
bool parseAttributes(const uint8_t* data, size_t size, uint64_t begin, uint64_t end,
                     AppleDoubleContents& out) {
  const uint64_t header = begin + kAttrHeaderOffset;
  const uint8_t* h = data + header;
  if (get32(h) != kAttrMagic) return false;
  const uint64_t totalSize = get32(h + 8);
  const uint64_t dataStart = get32(h + 12);
  const uint64_t dataLength = get32(h + 16);
  const size_t count = get16(h + 34);
  if (totalSize > size || dataStart + dataLength > size) return false;

  struct Pending {
    uint64_t offset, length;
  };
  std::vector<Pending> pending;
  // Each entry takes at least 12 bytes of the entry: that bounds the reserve.
  pending.reserve(std::min<uint64_t>(count, (end - header - kAttrHeaderSize) / 12));
  out.attributes.reserve(pending.capacity());
  std::set<std::string_view> names;

  uint64_t pos = header + kAttrHeaderSize;
  for (size_t i = 0; i < count; ++i) {
    if (pos + kAttrEntryFixedSize > end) return false;
    const uint8_t* e = data + pos;
    const uint64_t offset = get32(e);
    const uint64_t length = get32(e + 4);
    const uint16_t flags = get16(e + 8);
    const size_t nameLength = e[10];  // with its NUL
    if (nameLength < 2 || pos + kAttrEntryFixedSize + nameLength > end) return false;
    const char* name = reinterpret_cast<const char*>(e + kAttrEntryFixedSize);
    if (name[nameLength - 1] != '\0' || std::memchr(name, '\0', nameLength - 1) != nullptr) {
      return false;
    }
    if (!names.insert(std::string_view(name, nameLength - 1)).second) return false;
    pending.push_back({offset, length});
    AppleDoubleAttribute attribute;
    attribute.name.assign(name, nameLength - 1);
    attribute.flags = flags;
    out.attributes.push_back(std::move(attribute));
    pos += padded4(kAttrEntryFixedSize + nameLength);
  }

  // Values lie after the entry table and inside the Finder Info entry,
  // without overlapping each other.
  const uint64_t entriesEnd = pos;
  std::vector<Range> ranges;
  ranges.reserve(pending.size());
  for (const Pending& p : pending) {
    if (p.length == 0) {
      if (p.offset > size) return false;
      continue;
    }
    if (p.offset < entriesEnd || p.offset + p.length > end) return false;
    ranges.push_back({p.offset, p.offset + p.length});
  }
  if (!disjoint(std::move(ranges))) return false;
  for (size_t i = 0; i < pending.size(); ++i) {
    if (pending[i].length == 0) continue;
    const uint8_t* value = data + pending[i].offset;
    out.attributes[i].value.assign(value, value + pending[i].length);
  }
  return true;
}

}  // namespace

bool appleDoubleParse(const uint8_t* data, size_t size, AppleDoubleContents& out) {
  out = AppleDoubleContents();
  if (data == nullptr || size < kHeaderSize || size > kAppleDoubleMaxSize) return false;
  if (get32(data) != kMagic || get32(data + 4) != kVersion) return false;
  const size_t count = get16(data + 24);
  const uint64_t tableEnd = kHeaderSize + uint64_t{count} * kDescriptorSize;
  if (count > kMaxEntries || tableEnd > size) return false;

  Range finderInfo{0, 0}, resourceFork{0, 0};
  bool haveFinderInfo = false, haveResourceFork = false;
  std::vector<Range> ranges;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* d = data + kHeaderSize + i * kDescriptorSize;
    const uint32_t id = get32(d);
    const uint64_t offset = get32(d + 4);
    const uint64_t length = get32(d + 8);
    if (offset + length > size) return false;
    if (length > 0 && offset < tableEnd) return false;
    const Range range{offset, offset + length};
    ranges.push_back(range);
    if (id == kEntryFinderInfo) {
      if (haveFinderInfo) return false;
      haveFinderInfo = true;
      finderInfo = range;
    } else if (id == kEntryResourceFork) {
      if (haveResourceFork) return false;
      haveResourceFork = true;
      resourceFork = range;
    }
  }
  if (!disjoint(std::move(ranges))) return false;

  if (haveFinderInfo) {
    const uint64_t length = finderInfo.end - finderInfo.begin;
    // Older writers store the bare 32 bytes; Mac tools add the attribute block.
    if (length < kFinderInfoSize) return false;
    std::memcpy(out.finderInfo, data + finderInfo.begin, kFinderInfoSize);
    if (length > kFinderInfoSize) {
      if (length < kFinderInfoEntryMinSize) return false;
      if (!parseAttributes(data, size, finderInfo.begin, finderInfo.end, out)) return false;
    }
  }
  if (haveResourceFork) {
    out.resourceFork.assign(data + resourceFork.begin, data + resourceFork.end);
  }
  return true;
}

bool appleDoubleBuild(const AppleDoubleContents& contents, std::vector<uint8_t>& out) {
  out.clear();
  const auto& attributes = contents.attributes;
  if (attributes.size() > kMaxAttributes) return false;
  std::set<std::string_view> names;
  uint64_t entriesSize = 0, dataSize = 0;
  for (const AppleDoubleAttribute& a : attributes) {
    if (a.name.empty() || a.name.size() > kAppleDoubleMaxNameLength ||
        a.name.find('\0') != std::string::npos || !names.insert(a.name).second) {
      return false;
    }
    entriesSize += padded4(kAttrEntryFixedSize + a.name.size() + 1);
    dataSize += a.value.size();
    if (dataSize > kAppleDoubleMaxSize) return false;
  }

  const uint64_t finderInfoOffset = kHeaderSize + 2 * kDescriptorSize;  // 50
  const uint64_t attrHeader = finderInfoOffset + kAttrHeaderOffset;     // 84
  const uint64_t dataStart = attrHeader + kAttrHeaderSize + entriesSize;
  const uint64_t totalSize = dataStart + dataSize;
  const uint64_t fileSize = totalSize + contents.resourceFork.size();
  if (fileSize > kAppleDoubleMaxSize) return false;

  out.assign(fileSize, 0);
  uint8_t* p = out.data();
  put32(p, kMagic);
  put32(p + 4, kVersion);
  std::memcpy(p + 8, kFiller, 16);
  put16(p + 24, 2);
  put32(p + 26, kEntryFinderInfo);
  put32(p + 30, static_cast<uint32_t>(finderInfoOffset));
  put32(p + 34, static_cast<uint32_t>(totalSize - finderInfoOffset));
  put32(p + 38, kEntryResourceFork);
  put32(p + 42, static_cast<uint32_t>(totalSize));
  put32(p + 46, static_cast<uint32_t>(contents.resourceFork.size()));

  std::memcpy(p + finderInfoOffset, contents.finderInfo, kFinderInfoSize);
  uint8_t* h = p + attrHeader;
  put32(h, kAttrMagic);
  put32(h + 8, static_cast<uint32_t>(totalSize));
  put32(h + 12, static_cast<uint32_t>(dataStart));
  put32(h + 16, static_cast<uint32_t>(dataSize));
  put16(h + 34, static_cast<uint32_t>(attributes.size()));

  uint64_t entry = attrHeader + kAttrHeaderSize;
  uint64_t value = dataStart;
  for (const AppleDoubleAttribute& a : attributes) {
    uint8_t* e = p + entry;
    put32(e, static_cast<uint32_t>(value));
    put32(e + 4, static_cast<uint32_t>(a.value.size()));
    put16(e + 8, a.flags);
    e[10] = static_cast<uint8_t>(a.name.size() + 1);
    std::memcpy(e + kAttrEntryFixedSize, a.name.data(), a.name.size());
    if (!a.value.empty()) std::memcpy(p + value, a.value.data(), a.value.size());
    entry += padded4(kAttrEntryFixedSize + a.name.size() + 1);
    value += a.value.size();
  }
  if (!contents.resourceFork.empty()) {
    std::memcpy(p + totalSize, contents.resourceFork.data(), contents.resourceFork.size());
  }
  return true;
}

bool appleDoubleIsEmptyResourceFork(const std::vector<uint8_t>& fork) {
  if (fork.empty()) return true;
  // Resource header: data offset, map offset, data length, map length.
  if (fork.size() < 16) return false;
  const uint8_t* f = fork.data();
  const uint64_t mapOffset = get32(f + 4);
  const uint64_t dataLength = get32(f + 8);
  const uint64_t mapLength = get32(f + 12);
  if (dataLength != 0 || mapLength < 30 || mapOffset + mapLength > fork.size()) return false;
  // The type list starts with its count minus one: 0xFFFF for no types.
  const uint8_t* map = f + mapOffset;
  const uint64_t typeList = get16(map + 24);
  if (typeList + 2 > mapLength) return false;
  return get16(map + typeList) == 0xFFFF;
}

}  // namespace velzip
