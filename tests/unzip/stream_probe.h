// Reads one entry through EntryStream, the chain both readers share, in
// chunks of a chosen size: what came out, the last read's result and why.
#ifndef VELZIP_TESTS_UNZIP_STREAM_PROBE_H
#define VELZIP_TESTS_UNZIP_STREAM_PROBE_H

#include <gtest/gtest.h>
#include <minizip/unzip.h>

#include <string>
#include <vector>

#include "unzip/archive_file.h"
#include "unzip/entry_stream.h"

namespace velzip_test {

struct StreamOutcome {
  bool opened = false;
  ssize_t last = 0;  // 0: the end, checks passed; -1: failed
  std::string why;
  std::string bytes;
};

inline StreamOutcome readEntry(const std::string& archive, int index, const char* password,
                               size_t chunk) {
  StreamOutcome o;
  unzFile uf = unzOpen64(archive.c_str());
  velzip::ArchiveFile file;
  velzip::ZipEntryRecord rec;
  bool positioned = uf != nullptr && file.open(archive.c_str()) && unzGoToFirstFile(uf) == UNZ_OK;
  for (int i = 0; positioned && i < index; ++i) positioned = unzGoToNextFile(uf) == UNZ_OK;
  EXPECT_TRUE(positioned && file.readCentral(unzGetOffset64(uf), rec, o.why)) << o.why;
  if (uf != nullptr) unzClose(uf);
  velzip::EntryStream in;
  std::vector<char> buf(chunk);
  o.opened = in.open(file, rec, password);
  while (o.opened && (o.last = in.read(buf.data(), chunk)) > 0) {
    o.bytes.append(buf.data(), static_cast<size_t>(o.last));
  }
  o.why = in.why();
  return o;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_UNZIP_STREAM_PROBE_H
