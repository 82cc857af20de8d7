#include "unzip/entry_attributes.h"

#include <sys/stat.h>

#include <cstdio>

#include "lzma/entry_layout.h"
#include "unzip/name_encoding.h"

namespace velzip {
namespace {

constexpr uint32_t kDosFolderAttribute = 0x10;
constexpr unsigned kHostUnix = 3;
constexpr unsigned kHostDarwin = 19;
constexpr uint32_t kTypeFile = 0x8000;

}  // namespace

uint32_t currentUmask() {
  // Reading it through umask(2) means setting it, for a moment, for every
  // thread of the host: the kernel's own report is read instead.
  if (FILE* status = std::fopen("/proc/self/status", "re")) {
    char line[256];
    unsigned mask = 0;
    bool found = false;
    while (!found && std::fgets(line, sizeof line, status) != nullptr) {
      found = std::sscanf(line, "Umask: %o", &mask) == 1;
    }
    std::fclose(status);
    if (found) return mask & 0777;
  }
  const mode_t mask = umask(022);
  umask(mask);
  return mask;
}

std::string entryName(const ZipEntryRecord& rec) {
  // After decoding, so that a name from a Unicode Path field gets it too.
  std::string name = decodedName(rec);
  for (char& c : name) {
    if (c == '\\') c = '/';
  }
  return name;
}

EntryType entryType(const ZipEntryRecord& rec, const std::string& name) {
  const uint32_t unixMode = rec.externalAttributes >> 16;
  if ((unixMode & kModeTypeMask) == kModeTypeLink) return EntryType::kLink;
  if (!name.empty() && name.back() == '/') return EntryType::kFolder;
  // Windows and Java writers mark folders only by the attribute; a Unix
  // file type in the upper half says otherwise.
  if ((rec.externalAttributes & kDosFolderAttribute) != 0 &&
      (unixMode & kModeTypeMask) != kTypeFile) {
    return EntryType::kFolder;
  }
  if (!companionTargetName(name).empty()) return EntryType::kCompanion;
  return EntryType::kFile;
}

UZ_EntryKind publicKind(EntryType type) {
  switch (type) {
    case EntryType::kFolder:
      return UZ_EntryKind::kFolder;
    case EntryType::kLink:
      return UZ_EntryKind::kLink;
    case EntryType::kCompanion:
      return UZ_EntryKind::kCompanion;
    case EntryType::kFile:
      break;
  }
  return UZ_EntryKind::kFile;
}

uint32_t entryMode(const ZipEntryRecord& rec, EntryType type, bool keepSetId, uint32_t umask) {
  const uint32_t unixMode = rec.externalAttributes >> 16;
  const unsigned host = rec.versionMadeBy >> 8;
  const bool unixLike = host == kHostUnix || host == kHostDarwin || (unixMode & kModeTypeMask) != 0;
  const uint32_t typeBits = type == EntryType::kFolder ? kModeTypeDirectory
                            : type == EntryType::kLink ? kModeTypeLink
                                                       : kTypeFile;
  if (!unixLike || (unixMode & 0777) == 0) {
    const uint32_t perms = type == EntryType::kFolder || type == EntryType::kLink ? 0755 : 0644;
    return typeBits | (perms & ~umask);
  }
  const uint32_t keep = keepSetId ? 07777 : 01777;
  return typeBits | (unixMode & keep);
}

int64_t entryModTime(const ZipEntryRecord& rec, const std::string& localExtra) {
  if (rec.hasModTime) return rec.modTime;
  int64_t t = 0;
  if (extendedModTime(localExtra, t)) return t;
  return dosDateToTime(rec.dosDate);
}

}  // namespace velzip
