// Reads back what a writer produced, entry by entry, with the zip layer and
// the payload codec directly (independent of the archive reader).
#ifndef VELZIP_TESTS_ZIP_ARCHIVE_PROBE_H
#define VELZIP_TESTS_ZIP_ARCHIVE_PROBE_H

#include <dirent.h>
#include <minizip/unzip.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "velzip/VelLzmaHelper.h"

namespace velzip_test {

struct ProbedEntry {
  std::string name;
  int method = -1;
  unsigned long mode = 0;  // upper half of the external attributes
  unsigned long crc = 0;
  unz_file_info64 info{};
  std::string localExtra;
  std::string stored;  // the entry's bytes as stored
};

// Every entry in archive order; false when the archive cannot be read.
inline bool probeArchive(const std::string& path, std::vector<ProbedEntry>& out) {
  out.clear();
  unzFile uf = unzOpen64(path.c_str());
  if (uf == nullptr) return false;
  bool ok = true;
  for (int err = unzGoToFirstFile(uf); err == UNZ_OK; err = unzGoToNextFile(uf)) {
    ProbedEntry e;
    char name[4096];
    if (unzGetCurrentFileInfo64(uf, &e.info, name, sizeof name, nullptr, 0, nullptr, 0) != UNZ_OK) {
      ok = false;
      break;
    }
    e.name = name;
    e.method = static_cast<int>(e.info.compression_method);
    e.mode = (e.info.external_fa >> 16) & 0xFFFF;
    e.crc = e.info.crc;
    if (unzOpenCurrentFile(uf) != UNZ_OK) {
      ok = false;
      break;
    }
    char extra[65536];
    const int extraLen = unzGetLocalExtrafield(uf, extra, sizeof extra);
    if (extraLen > 0) e.localExtra.assign(extra, static_cast<size_t>(extraLen));
    char block[65536];
    int n;
    while ((n = unzReadCurrentFile(uf, block, sizeof block)) > 0)
      e.stored.append(block, static_cast<size_t>(n));
    if (n < 0 || unzCloseCurrentFile(uf) != UNZ_OK) ok = false;  // CRC checked here
    out.push_back(std::move(e));
    if (!ok) break;
  }
  unzClose(uf);
  return ok;
}

inline std::vector<std::string> entryNames(const std::vector<ProbedEntry>& entries) {
  std::vector<std::string> names;
  for (const auto& e : entries) names.push_back(e.name);
  return names;
}

inline const ProbedEntry* findEntry(const std::vector<ProbedEntry>& entries,
                                    const std::string& name) {
  for (const auto& e : entries)
    if (e.name == name) return &e;
  return nullptr;
}

// Decodes a format-1 payload of the given restored size; false on a codec error.
inline bool decodePayload(const std::string& payload, size_t size, std::string& out) {
  if (payload.size() < 2) return false;
  std::vector<char> buf(size + 65536);
  std::string copy = payload;
  Vel::VelLzmaHelper codec;
  codec.initDecoder(&copy[0], buf.data(), buf.size());
  unsigned long total = 0;
  const int rc = codec.decodeLZMA2(&copy[1], copy.size() - 1, buf.size(), total);
  codec.exitDecoder();
  if (rc != 0) return false;
  out.assign(buf.data(), total);
  return true;
}

// The restored content of a format-1 regular entry, from its own size text.
inline bool decodeEntry(const ProbedEntry& e, std::string& out) {
  if (e.localExtra.empty() || e.localExtra.back() != '\0') return false;
  const size_t size = std::stoull(e.localExtra.c_str());
  return decodePayload(e.stored, size, out) && out.size() == size;
}

// Names of the writers' temporary files currently in /tmp: "/tmp/" + GUID
// payloads and "ulvozip.temp." companions.
inline std::set<std::string> writerTempFiles() {
  std::set<std::string> names;
  DIR* dir = opendir("/tmp");
  if (dir == nullptr) return names;
  while (const dirent* d = readdir(dir)) {
    const std::string n = d->d_name;
    const bool guid = n.size() == 36 && n[8] == '-' && n[13] == '-' && n[18] == '-' &&
                      n[23] == '-' && std::all_of(n.begin(), n.end(), [](char c) {
                        return c == '-' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
                      });
    if (guid || n.compare(0, 13, "ulvozip.temp.") == 0) names.insert(n);
  }
  closedir(dir);
  return names;
}

// Temporary files that appeared since `before` and stay. Other test programs
// may run at once, so files that vanish within a second are theirs in flight.
inline std::set<std::string> leftoverTempFiles(const std::set<std::string>& before) {
  std::set<std::string> extra;
  for (int attempt = 0; attempt < 20; ++attempt) {
    extra.clear();
    for (const auto& n : writerTempFiles())
      if (before.count(n) == 0) extra.insert(n);
    if (extra.empty()) break;
    usleep(50000);
  }
  return extra;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_ZIP_ARCHIVE_PROBE_H
