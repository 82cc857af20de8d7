// What the writer tests share: both formats as test types, reading an
// archive back entry by entry, the writers' traces in /tmp and the archive's
// folder, and the tree they pack.
#ifndef VELZIP_TESTS_ZIP_WRITER_SUPPORT_H
#define VELZIP_TESTS_ZIP_WRITER_SUPPORT_H

#include <dirent.h>
#include <gtest/gtest.h>
#include <minizip/unzip.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "support/leftovers.h"
#include "support/temp_dir.h"
#include "velzip/VelLzmaHelper.h"
#include "velzip/VelZipHandler.h"
#include "velzip/ZipHandler.h"

namespace velzip_test {

template <class H, bool Zero>
struct Format {
  using Handler = H;
  static constexpr bool zero = Zero;
};
using Formats = ::testing::Types<Format<ZipHandler, true>, Format<Vel::VelZipHandler, false>>;

struct ProbedEntry {
  std::string name, localExtra, centralExtra, stored;  // stored: after the zip layer's inflate
  unz_file_info64 info{};
  bool crcOk = false;
  unsigned mode() const { return static_cast<unsigned>(info.external_fa >> 16); }
};

// Every entry in archive order; an entry's CRC is checked, not required.
inline std::vector<ProbedEntry> probe(const std::string& path) {
  std::vector<ProbedEntry> out;
  unzFile uf = unzOpen64(path.c_str());
  bool ok = uf != nullptr;
  for (int err = ok ? unzGoToFirstFile(uf) : -1; ok && err == UNZ_OK; err = unzGoToNextFile(uf)) {
    ProbedEntry e;
    char name[4096] = "", central[65536];
    static char block[65536];
    ok = unzGetCurrentFileInfo64(uf, &e.info, name, sizeof name, central, sizeof central, nullptr,
                                 0) == 0 &&
         unzOpenCurrentFile(uf) == UNZ_OK;
    e.centralExtra.assign(central, ok ? e.info.size_file_extra : 0);
    const int extra = ok ? unzGetLocalExtrafield(uf, block, sizeof block) : 0;
    if (extra > 0) e.localExtra.assign(block, static_cast<size_t>(extra));
    int n = 0;
    while (ok && (n = unzReadCurrentFile(uf, block, sizeof block)) > 0) e.stored.append(block, n);
    const int closed = ok ? unzCloseCurrentFile(uf) : UNZ_OK;
    ok = ok && n == 0 && (closed == UNZ_OK || closed == UNZ_CRCERROR);
    e.crcOk = closed == UNZ_OK;
    e.name = name;
    out.push_back(std::move(e));
  }
  if (uf != nullptr) unzClose(uf);
  EXPECT_TRUE(ok) << path;
  return out;
}

inline std::vector<std::string> names(const std::vector<ProbedEntry>& entries) {
  std::vector<std::string> out;
  for (const auto& e : entries) out.push_back(e.name);
  return out;
}

// What an entry restores to. A format-1 file entry is stored, with its size
// as text in the local extra field and a payload to decode; everything else
// is as the zip layer reads it.
inline std::string content(const ProbedEntry& e) {
  if (e.info.compression_method != 0 || e.localExtra.empty()) return e.stored;
  if (e.localExtra.back() != '\0' || e.stored.size() < 2) return "<bad size text or payload>";
  const size_t size = std::stoull(e.localExtra);
  std::vector<char> buf(size + 65536);
  std::string payload = e.stored;
  Vel::VelLzmaHelper codec;
  codec.initDecoder(&payload[0], buf.data(), buf.size());
  unsigned long total = 0;
  const int rc = codec.decodeLZMA2(&payload[1], payload.size() - 1, buf.size(), total);
  codec.exitDecoder();
  return rc == 0 && total == size ? std::string(buf.data(), total) : "<undecodable payload>";
}

// The extended-timestamp block the writers add: tag 0x5455, 5 bytes, flags 1
// and the modification time in UTC seconds.
inline std::string timestampBlock(time_t mtime) {
  std::string b("\x55\x54\x05\x00\x01", 5);
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<char>((mtime >> (8 * i)) & 0xFF));
  return b;
}

// The files (not folders) this process has open; an unnamed or deleted one
// shows as its folder, "/#<inode>" and " (deleted)".
inline std::vector<std::string> openFileTargets() {
  std::vector<std::string> out;
  for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ec;
    const std::string target = std::filesystem::read_symlink(fd.path(), ec).string();
    if (!ec && !std::filesystem::is_directory(fd.path(), ec)) out.push_back(target);
  }
  return out;
}

inline size_t openDescriptors() {
  size_t n = 0;
  for (auto it = std::filesystem::directory_iterator("/proc/self/fd");
       it != std::filesystem::directory_iterator(); ++it) {
    ++n;
  }
  return n;
}

constexpr char kUnicodeFile[] = "na\xC3\xAFve \xE2\x82\xAC/\xC3\xBCn\xC3\xAF.txt";
constexpr uint64_t kTreeBytes = 5 + 70000 + 9 + 7 + 1234 + 1;  // of the regular files

// top/ holding 10 files and links (one dangling) and 4 folders, one of them
// empty and one with a non-ASCII name.
inline std::string makeTree(const TempDir& tmp) {
  const std::string top = tmp / "top";
  const struct {
    std::string rel;
    mode_t mode;
    std::string data;  // content, or a link's target
  } items[] = {{"", S_IFDIR | 0755, ""},
               {"/a.txt", S_IFREG | 0644, "alpha"},
               {"/with space", S_IFREG | 0644, sampleBytes(70000, 3)},
               {"/empty", S_IFREG | 0644, ""},
               {"/ro.txt", S_IFREG | 0444, "read only"},
               {"/na\xC3\xAFve \xE2\x82\xAC", S_IFDIR | 0755, ""},
               {"/" + std::string(kUnicodeFile), S_IFREG | 0640, "unicode"},
               {"/emptydir", S_IFDIR | 0755, ""},
               {"/sub", S_IFDIR | 0750, ""},
               {"/sub/inner.bin", S_IFREG | 0751, sampleBytes(1234, 4)},
               {"/sub/deeper", S_IFDIR | 0700, ""},
               {"/sub/deeper/d", S_IFREG | 0600, "d"},
               {"/link-file", S_IFLNK, "a.txt"},
               {"/link-dir", S_IFLNK, "sub"},
               {"/dangling", S_IFLNK, "/nowhere/at all"}};
  for (const auto& i : items) {
    const std::string path = top + i.rel;
    if (S_ISDIR(i.mode)) mkdir(path.c_str(), i.mode & 07777);
    if (S_ISLNK(i.mode)) symlink(i.data.c_str(), path.c_str());
    if (S_ISREG(i.mode)) writeFile(path, i.data);
    if (S_ISREG(i.mode)) chmod(path.c_str(), i.mode & 07777);
  }
  return top;
}

inline std::string companionName(const std::string& name) {
  const size_t slash = name.rfind('/') + 1;  // 0 when there is none
  return "__MACOSX/" + name.substr(0, slash) + "._" + name.substr(slash);
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_ZIP_WRITER_SUPPORT_H
