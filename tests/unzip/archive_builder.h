// Builds format-1 archives entry by entry with the zip layer and the payload
// codec directly, so that tests can also craft broken entries.
#ifndef VELZIP_TESTS_UNZIP_ARCHIVE_BUILDER_H
#define VELZIP_TESTS_UNZIP_ARCHIVE_BUILDER_H

#include <gtest/gtest.h>
#include <minizip/zip.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "velzip/VelLzmaHelper.h"

namespace velzip_test {

struct MemoryIn {
  Vel::ISeqInStream vt;
  const std::string* data;
  size_t pos;
};
struct MemoryOut {
  Vel::ISeqOutStream vt;
  std::string* data;
};

// Property byte plus LZMA2 stream of data.
inline std::string lzmaPayload(const std::string& data) {
  std::string out;
  MemoryIn in{{[](void* p, void* buf, size_t* size) {
                auto* s = static_cast<MemoryIn*>(p);
                const size_t n = std::min(*size, s->data->size() - s->pos);
                std::memcpy(buf, s->data->data() + s->pos, n);
                s->pos += n;
                *size = n;
                return 0;
              }},
              &data,
              0};
  MemoryOut sink{{[](void* p, const void* buf, size_t size) {
                   static_cast<MemoryOut*>(p)->data->append(static_cast<const char*>(buf), size);
                   return size;
                 }},
                 &out};
  Vel::VelLzmaHelper helper;
  EXPECT_TRUE(helper.encodeStreamWithLZMA2(&in, &sink));
  return out;
}

// The local extra field a writer gives a regular entry of size bytes.
inline std::string sizeField(unsigned long long size) {
  std::string text = std::to_string(size);
  text.push_back('\0');
  return text;
}

class ArchiveBuilder {
 public:
  explicit ArchiveBuilder(const std::string& path, bool zip64 = false)
      : zip_(zipOpen64(path.c_str(), APPEND_STATUS_CREATE)), zip64_(zip64) {
    EXPECT_NE(zip_, nullptr) << path;
  }
  ~ArchiveBuilder() { close(); }

  // A well-formed regular entry.
  ArchiveBuilder& file(const std::string& name, const std::string& content,
                       uint32_t mode = 0100644) {
    return raw(name, lzmaPayload(content), sizeField(content.size()), mode);
  }
  ArchiveBuilder& dir(const std::string& name, uint32_t mode = 040755) {
    return raw(name, "", "", mode);
  }
  ArchiveBuilder& link(const std::string& name, const std::string& target,
                       uint32_t mode = 0120755) {
    return raw(name, target, "", mode);
  }
  // Any stored bytes with any local extra field.
  ArchiveBuilder& raw(const std::string& name, const std::string& stored, const std::string& extra,
                      uint32_t mode, const char* comment = nullptr) {
    zip_fileinfo zi{};
    zi.tmz_date.tm_year = 2020;
    zi.tmz_date.tm_mday = 1;
    zi.external_fa = static_cast<uLong>(mode) << 16;
    EXPECT_EQ(zipOpenNewFileInZip64(zip_, name.c_str(), &zi, extra.empty() ? nullptr : extra.data(),
                                    static_cast<uInt>(extra.size()), nullptr, 0, comment, 0, 0,
                                    zip64_ ? 1 : 0),
              ZIP_OK);
    if (!stored.empty()) {
      EXPECT_EQ(zipWriteInFileInZip(zip_, stored.data(), static_cast<unsigned>(stored.size())),
                ZIP_OK);
    }
    EXPECT_EQ(zipCloseFileInZip(zip_), ZIP_OK);
    return *this;
  }
  void close() {
    if (zip_ != nullptr) zipClose(zip_, nullptr);
    zip_ = nullptr;
  }

 private:
  zipFile zip_;
  bool zip64_;
};

}  // namespace velzip_test

#endif  // VELZIP_TESTS_UNZIP_ARCHIVE_BUILDER_H
