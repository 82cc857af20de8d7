#include "archive_scan.h"

#include "velzip/VelUnzipHandler.h"

namespace velzip_tool {
namespace {

constexpr unsigned long kUnknownCount = 0xFFFF;  // an end record's count that may have overflowed

EntryKind kindOf(UZ_EntryKind kind) {
  switch (kind) {
    case UZ_EntryKind::kFolder:
      return EntryKind::kFolder;
    case UZ_EntryKind::kLink:
      return EntryKind::kLink;
    case UZ_EntryKind::kCompanion:
      return EntryKind::kMetadata;
    case UZ_EntryKind::kFile:
      break;
  }
  return EntryKind::kFile;
}

const char* encryptionName(UZ_Encryption encryption) {
  switch (encryption) {
    case UZ_Encryption::kNone:
      return "none";
    case UZ_Encryption::kZipCrypto:
      return "zipcrypto";
    case UZ_Encryption::kAes128:
      return "aes-128";
    case UZ_Encryption::kAes192:
      return "aes-192";
    case UZ_Encryption::kAes256:
      return "aes-256";
    case UZ_Encryption::kAes:
      return "aes";
    case UZ_Encryption::kStrong:
      return "strong";
  }
  return "unknown";
}

}  // namespace

const char* kindName(EntryKind kind) {
  switch (kind) {
    case EntryKind::kFolder:
      return "dir";
    case EntryKind::kLink:
      return "link";
    case EntryKind::kMetadata:
      return "meta";
    case EntryKind::kFile:
      break;
  }
  return "file";
}

uint64_t ArchiveScan::restoredSize(const ScannedEntry& e, int format) {
  switch (e.kind) {
    case EntryKind::kFolder:
      return 0;
    case EntryKind::kLink:
      return e.zipSize;
    case EntryKind::kFile:
    case EntryKind::kMetadata:
      break;
  }
  if (format == 1) return e.hasSizeText ? e.sizeText : 0;
  return e.zipSize;
}

size_t ArchiveScan::encryptedCount() const {
  size_t n = 0;
  for (const auto& e : entries) n += e.encrypted ? 1 : 0;
  return n;
}

std::vector<const ScannedEntry*> ArchiveScan::unreadableEntries() const {
  std::vector<const ScannedEntry*> out;
  for (const auto& e : entries) {
    if (!e.unreadable.empty()) out.push_back(&e);
  }
  return out;
}

bool ArchiveScan::isEncrypted(const std::string& name) const {
  for (const auto& e : entries) {
    if (e.encrypted && e.name == name) return true;
  }
  return false;
}

uint64_t ArchiveScan::contentBytes(int fmt) const {
  uint64_t total = 0;
  for (const auto& e : entries) {
    if (e.kind == EntryKind::kFile || e.kind == EntryKind::kMetadata) total += restoredSize(e, fmt);
  }
  return total;
}

bool scanArchive(const std::string& path, bool readLinkTargets, ArchiveScan& out,
                 std::string& reason) {
  out = ArchiveScan();
  // Either reader walks and describes entries alike; only content differs.
  Vel::VelUnzipHandler reader;
  if (!reader.openZip(path.c_str())) {
    reason = "not a zip archive (or unreadable): " + path;
    return false;
  }
  const unsigned long count = reader.getFileCount();
  bool everyFileIsCurrent = true;
  for (bool more = reader.gotoFirstFile(nullptr); more; more = reader.gotoNextFile(nullptr)) {
    UZ_EntryInfo info;
    if (!reader.getEntryInfo(info, readLinkTargets)) {
      reason = "the central directory of " + path + " is damaged";
      return false;
    }
    ScannedEntry e;
    e.name = info.name;
    e.kind = kindOf(info.kind);
    e.method = info.method;
    e.methodName = info.methodName;
    e.encryptionName = encryptionName(info.encryption);
    e.packedSize = info.compressedSize;
    e.zipSize = info.uncompressedSize;
    e.mode = info.mode;
    e.encrypted = info.encrypted;
    e.unreadable = info.unreadable;
    e.modTime = info.modTime;
    e.crc = info.crc;
    e.hasSizeText = info.hasSizeText;
    e.sizeText = info.sizeText;
    if (e.kind == EntryKind::kLink && readLinkTargets) {
      e.linkTarget = info.linkTarget;
      e.linkTargetHidden = e.encrypted && info.linkTarget.empty();
    }
    if (e.kind == EntryKind::kFile || e.kind == EntryKind::kMetadata) {
      if (e.method != 0 || !e.hasSizeText) everyFileIsCurrent = false;
    }
    out.entries.push_back(std::move(e));
  }
  if (count != kUnknownCount && out.entries.size() != count) {
    reason = "the central directory of " + path + " is damaged";
    return false;
  }
  out.format = everyFileIsCurrent ? 1 : 0;
  return true;
}

}  // namespace velzip_tool
