// What the reader tests share: an archive builder for both formats (broken
// and encrypted entries too) and a way to run either reader alike.
#ifndef VELZIP_TESTS_UNZIP_FIXTURES_H
#define VELZIP_TESTS_UNZIP_FIXTURES_H

#include <gtest/gtest.h>
#include <minizip/unzip.h>
#include <minizip/zip.h>
#include <zlib.h>

#include <array>
#include <cstring>
#include <string>

// The traditional cipher's key schedule; static functions.
#include <minizip/crypt.h>

#include "support/log_capture.h"
#include "support/probe.h"
#include "support/progress_recorder.h"
#include "support/temp_dir.h"
#include "velzip/UnzipHandler.h"
#include "velzip/VelLzmaHelper.h"
#include "velzip/VelUnzipHandler.h"

namespace velzip_test {

constexpr unsigned long kKeep = 0xFFFFFFFFul;
using Report = ProgressReport;
using Recorder = ProgressRecorder;

inline size_t countLines(const LogCapture& logs, int level, const std::string& prefix) {
  size_t n = 0;
  for (const auto& l : logs.lines()) n += l.level == level && l.text.rfind(prefix, 0) == 0;
  return n;
}
inline uint32_t crcOf(const std::string& data) {
  return static_cast<uint32_t>(
      crc32(0L, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
}

// A format-1 entry's stored bytes: property byte plus LZMA2 stream.
inline std::string lzmaPayload(const std::string& data) {
  TempDir t;
  writeFile(t / "in", data);
  EXPECT_TRUE(Vel::VelLzmaHelper().encodeFileWithLZMA2(t / "in", t / "out"));
  return readFile(t / "out");
}
// The local extra field of a format-1 regular entry.
inline std::string sizeField(unsigned long long size) {
  return std::to_string(size) + std::string(1, '\0');
}

// The 12-byte header (its last byte the CRC's high byte), then the data.
inline std::string pkwareEncrypt(const std::string& data, uint32_t crc, const char* password) {
  static const std::array<unsigned long, 256> table = [] {
    std::array<unsigned long, 256> t{};
    for (size_t i = 0; i < t.size(); ++i) t[i] = get_crc_table()[i];
    return t;
  }();
  unsigned long keys[3];
  init_keys(password, keys, table.data());
  std::string out = "0123456789" + std::string(1, char(crc >> 16)) + char(crc >> 24) + data;
  for (char& c : out) {
    int t;
    c = static_cast<char>(zencode(keys, table.data(), static_cast<unsigned char>(c), t));
  }
  return out;
}

// Builds an archive entry by entry; the mode's type picks folder, link or
// file. In format 1 a file gets an LZMA2 payload and its size text, in
// format 0 it is deflated.
class ZipBuilder {
 public:
  explicit ZipBuilder(const std::string& path, int format = 1, bool zip64 = false)
      : zip_(zipOpen64(path.c_str(), APPEND_STATUS_CREATE)), format_(format), zip64_(zip64) {
    EXPECT_NE(zip_, nullptr) << path;
  }
  ~ZipBuilder() { zipClose(zip_, nullptr); }

  struct Item {
    std::string name, content;
    uint32_t mode = 0100644;
  };
  ZipBuilder& add(std::initializer_list<Item> items) {
    for (const Item& i : items) add(i.name, i.content, i.mode);
    return *this;
  }
  ZipBuilder& add(const std::string& name, const std::string& content, uint32_t mode = 0100644) {
    if ((mode & 0xF000) != 0x8000) return raw(name, content, "", mode);
    if (format_ == 1) return raw(name, lzmaPayload(content), sizeField(content.size()), mode);
    return put(name, content, "", mode, Z_DEFLATED, nullptr, nullptr);
  }
  // Stored bytes as they are, with any local extra field.
  ZipBuilder& raw(const std::string& name, const std::string& stored, const std::string& extra,
                  uint32_t mode, const char* comment = nullptr) {
    return put(name, stored, extra, mode, 0, comment, nullptr);
  }
  // Stored under the traditional cipher; a format-1 file as writers lay it out.
  ZipBuilder& encrypted(const std::string& name, const std::string& content, const char* password,
                        uint32_t mode = 0100644) {
    const bool payload = format_ == 1 && (mode & 0xF000) == 0x8000;
    return put(name, payload ? lzmaPayload(content) : content,
               payload ? sizeField(content.size()) : "", mode, 0, nullptr, password);
  }

 private:
  ZipBuilder& put(const std::string& name, const std::string& data, const std::string& extra,
                  uint32_t mode, int method, const char* comment, const char* password) {
    zip_fileinfo zi{};
    zi.tmz_date = {0, 0, 0, 17, 4, 2021};
    zi.external_fa = static_cast<uLong>(mode) << 16;
    const int crypt = password != nullptr;
    const uint32_t crc = crcOf(data);
    EXPECT_EQ(
        zipOpenNewFileInZip4_64(zip_, name.c_str(), &zi, extra.empty() ? nullptr : extra.data(),
                                static_cast<uInt>(extra.size()), nullptr, 0, comment, method,
                                method == 0 ? 0 : Z_DEFAULT_COMPRESSION, crypt, -MAX_WBITS,
                                DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0, 0, crypt, zip64_),
        ZIP_OK);
    const std::string bytes = crypt ? pkwareEncrypt(data, crc, password) : data;
    EXPECT_TRUE(bytes.empty() ||
                zipWriteInFileInZip(zip_, bytes.data(), static_cast<unsigned>(bytes.size())) ==
                    ZIP_OK);
    EXPECT_EQ(crypt ? zipCloseFileInZipRaw64(zip_, data.size(), crc) : zipCloseFileInZip(zip_),
              ZIP_OK);
    return *this;
  }

  zipFile zip_;
  int format_;
  bool zip64_;
};

// Calls f with a reader of the format's class open on zip.
template <class F>
auto withReader(int format, const std::string& zip, F f) {
  if (format == 1) {
    Vel::VelUnzipHandler reader(zip.c_str());
    return f(reader);
  }
  UnzipHandler reader(zip.c_str());
  return f(reader);
}

// The whole archive through the format's reader.
inline bool extract(int format, const std::string& zip, const std::string& dest,
                    Recorder* rec = nullptr, const char* password = nullptr, bool junk = false,
                    unsigned long mode = kKeep) {
  return withReader(format, zip, [&](auto& r) {
    r.setUnzipPassword(password);
    if (rec != nullptr) r.setCallback(Recorder::callback, rec);
    return r.unzipTo(dest.c_str(), junk, mode);
  });
}

// The line a reader logs when an entry cannot be opened, before its reason.
inline const char kOpenFailure[] = "Failed to unzOpenCurrentFilePassword: ";

// zip holds one entry "f" that cannot be read: each reader, extracting into
// outPrefix + a number counted by n, must refuse it before writing anything
// with the one line that says why; describe then gets its description.
template <class Describe>
void expectRefusedAtOpen(const std::string& zip, const std::string& outPrefix, int& n,
                         const char* password, const std::string& why, Describe describe) {
  LogCapture logs;
  for (int format : {0, 1}) {
    const std::string out = outPrefix + std::to_string(n++);
    capturedLines().clear();
    EXPECT_FALSE(extract(format, zip, out, nullptr, password));
    EXPECT_FALSE(exists(out + "/f"));
    EXPECT_EQ(logs.texts(),
              std::vector<std::string>{"50 " + std::string(kOpenFailure) + out + "/f: " + why});
    withReader(format, zip, [&](auto& r) {
      UZ_EntryInfo info;
      ASSERT_TRUE(r.gotoFile(0) && r.getEntryInfo(info));
      EXPECT_EQ(info.unreadable, why);
      describe(info);
    });
  }
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_UNZIP_FIXTURES_H
