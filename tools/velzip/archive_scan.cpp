#include "archive_scan.h"

#include <minizip/unzip.h>

#include <cstring>
#include <memory>

namespace velzip_tool {
namespace {

constexpr uint32_t kTypeMask = 0xF000;
constexpr uint32_t kTypeLink = 0xA000;
constexpr size_t kMaxLinkTarget = 65536;
constexpr unsigned long kFlagEncrypted = 1;

struct UnzCloser {
  void operator()(void* zip) const { unzClose(zip); }
};

// Same order of tests as the readers: the link type wins over a trailing
// "/", and only "__MACOSX/.../._name" is a metadata companion.
EntryKind classify(const std::string& name, uint32_t mode) {
  if ((mode & kTypeMask) == kTypeLink) return EntryKind::kLink;
  if (!name.empty() && name.back() == '/') return EntryKind::kFolder;
  if (name.compare(0, 9, "__MACOSX/") == 0) {
    const size_t slash = name.rfind('/');
    const std::string base = name.substr(slash + 1);
    if (base.size() >= 3 && base.compare(0, 2, "._") == 0) return EntryKind::kMetadata;
  }
  return EntryKind::kFile;
}

// Decimal digits followed by one NUL, nothing else.
bool parseSizeText(const std::vector<char>& extra, uint64_t& size) {
  if (extra.size() < 2 || extra.back() != '\0') return false;
  uint64_t value = 0;
  for (size_t i = 0; i + 1 < extra.size(); ++i) {
    const char c = extra[i];
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  size = value;
  return true;
}

bool readLocalExtra(unzFile zip, std::vector<char>& extra) {
  // Raw open: nothing is inflated, only the local header is read.
  if (unzOpenCurrentFile2(zip, nullptr, nullptr, 1) != UNZ_OK) return false;
  const int len = unzGetLocalExtrafield(zip, nullptr, 0);
  bool ok = len >= 0;
  extra.assign(len > 0 ? static_cast<size_t>(len) : 0, '\0');
  if (ok && len > 0)
    ok = unzGetLocalExtrafield(zip, extra.data(), static_cast<unsigned>(len)) == len;
  unzCloseCurrentFile(zip);
  return ok;
}

std::string readLinkTarget(unzFile zip) {
  if (unzOpenCurrentFile(zip) != UNZ_OK) return std::string();
  std::string target;
  char buf[4096];
  int n;
  while (target.size() < kMaxLinkTarget && (n = unzReadCurrentFile(zip, buf, sizeof buf)) > 0) {
    target.append(buf, static_cast<size_t>(n));
  }
  unzCloseCurrentFile(zip);
  const size_t nul = target.find('\0');
  if (nul != std::string::npos) target.resize(nul);
  return target;
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
  std::unique_ptr<void, UnzCloser> zip(unzOpen64(path.c_str()));
  if (!zip) {
    reason = "not a zip archive (or unreadable): " + path;
    return false;
  }
  unz_global_info64 global;
  if (unzGetGlobalInfo64(zip.get(), &global) != UNZ_OK) {
    reason = "cannot read the central directory of " + path;
    return false;
  }
  bool everyFileIsCurrent = true;
  int step = global.number_entry > 0 ? unzGoToFirstFile(zip.get()) : UNZ_END_OF_LIST_OF_FILE;
  std::vector<char> extra;
  while (step == UNZ_OK) {
    unz_file_info64 info;
    char name[1025] = {};
    if (unzGetCurrentFileInfo64(zip.get(), &info, name, sizeof name - 1, nullptr, 0, nullptr, 0) !=
        UNZ_OK) {
      reason = "cannot read an entry of " + path;
      return false;
    }
    ScannedEntry e;
    e.name = name;
    for (char& c : e.name) {
      if (c == '\\') c = '/';
    }
    e.method = info.compression_method;
    e.packedSize = info.compressed_size;
    e.zipSize = info.uncompressed_size;
    e.mode = static_cast<uint32_t>(info.external_fa >> 16);
    e.encrypted = (info.flag & kFlagEncrypted) != 0;
    e.kind = classify(e.name, e.mode);
    if (e.kind == EntryKind::kFile || e.kind == EntryKind::kMetadata) {
      if (e.method == 0 && readLocalExtra(zip.get(), extra)) {
        e.hasSizeText = parseSizeText(extra, e.sizeText);
      }
      if (e.method != 0 || !e.hasSizeText) everyFileIsCurrent = false;
    } else if (e.kind == EntryKind::kLink && readLinkTargets) {
      // The zip layer here cannot decrypt: it would hand back ciphertext.
      e.linkTarget = e.encrypted ? "(encrypted)" : readLinkTarget(zip.get());
    }
    out.entries.push_back(std::move(e));
    step = unzGoToNextFile(zip.get());
  }
  if (step != UNZ_END_OF_LIST_OF_FILE) {
    reason = "the central directory of " + path + " is damaged";
    return false;
  }
  out.format = everyFileIsCurrent ? 1 : 0;
  return true;
}

}  // namespace velzip_tool
