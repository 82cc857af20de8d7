// Ordinary zip archives for the format-0 reader: entries stored or deflated
// by the zip layer, entries encrypted with the traditional PKWARE cipher
// (written raw, since the system zip layer cannot encrypt correctly), and
// the peer tools (zip, 7zz, bsdtar) that make archives at run time.
#ifndef VELZIP_TESTS_UNZIP_PLAIN_ZIP_H
#define VELZIP_TESTS_UNZIP_PLAIN_ZIP_H

#include <gtest/gtest.h>
#include <minizip/zip.h>
#include <zlib.h>

#include <array>
#include <cstdlib>
#include <string>

// The traditional cipher's key schedule; static functions.
#include <minizip/crypt.h>

namespace velzip_test {

constexpr int kStored = 0;
constexpr int kDeflated = Z_DEFLATED;

inline int runQuietly(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str());
}

inline bool haveTool(const char* tool) {
  return runQuietly(std::string("command -v ") + tool) == 0;
}

// Incompressible bytes, so that tools keep them stored.
inline std::string noiseBytes(size_t size, unsigned seed) {
  std::string out(size, '\0');
  unsigned long long x = seed * 0x9E3779B97F4A7C15ull + 7;
  for (auto& c : out) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    c = static_cast<char>(x >> 24);
  }
  return out;
}

inline uint32_t crcOf(const std::string& data) {
  return static_cast<uint32_t>(
      crc32(0L, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
}

// Entry bytes under the traditional cipher: the 12-byte header (its last
// byte the CRC's high byte) followed by the data.
inline std::string pkwareEncrypt(const std::string& data, uint32_t crc, const char* password) {
  static const std::array<unsigned long, 256> table = [] {
    std::array<unsigned long, 256> t{};
    const z_crc_t* zt = get_crc_table();
    for (size_t i = 0; i < t.size(); ++i) t[i] = zt[i];
    return t;
  }();
  unsigned long keys[3];
  init_keys(password, keys, table.data());
  std::string plain = "0123456789";
  plain.push_back(static_cast<char>((crc >> 16) & 0xFF));
  plain.push_back(static_cast<char>((crc >> 24) & 0xFF));
  plain += data;
  std::string out(plain.size(), '\0');
  for (size_t i = 0; i < plain.size(); ++i) {
    int t;
    out[i] =
        static_cast<char>(zencode(keys, table.data(), static_cast<unsigned char>(plain[i]), t));
  }
  return out;
}

class PlainZip {
 public:
  explicit PlainZip(const std::string& path) : zip_(zipOpen64(path.c_str(), APPEND_STATUS_CREATE)) {
    EXPECT_NE(zip_, nullptr) << path;
  }
  ~PlainZip() { close(); }

  PlainZip& file(const std::string& name, const std::string& content, uint32_t mode = 0100644,
                 int method = kDeflated, const char* comment = nullptr) {
    zip_fileinfo zi = info(mode);
    EXPECT_EQ(zipOpenNewFileInZip64(zip_, name.c_str(), &zi, nullptr, 0, nullptr, 0, comment,
                                    method, method == kStored ? 0 : Z_DEFAULT_COMPRESSION, 0),
              ZIP_OK);
    if (!content.empty()) {
      EXPECT_EQ(zipWriteInFileInZip(zip_, content.data(), static_cast<unsigned>(content.size())),
                ZIP_OK);
    }
    EXPECT_EQ(zipCloseFileInZip(zip_), ZIP_OK);
    return *this;
  }
  // A stored entry with a local extra field, as format 1 lays them out.
  PlainZip& withExtra(const std::string& name, const std::string& stored, const std::string& extra,
                      uint32_t mode = 0100644) {
    zip_fileinfo zi = info(mode);
    EXPECT_EQ(
        zipOpenNewFileInZip64(zip_, name.c_str(), &zi, extra.data(),
                              static_cast<uInt>(extra.size()), nullptr, 0, nullptr, kStored, 0, 0),
        ZIP_OK);
    EXPECT_EQ(zipWriteInFileInZip(zip_, stored.data(), static_cast<unsigned>(stored.size())),
              ZIP_OK);
    EXPECT_EQ(zipCloseFileInZip(zip_), ZIP_OK);
    return *this;
  }
  PlainZip& dir(const std::string& name, uint32_t mode = 040755) {
    return file(name, "", mode, kStored);
  }
  PlainZip& link(const std::string& name, const std::string& target) {
    return file(name, target, 0120777, kStored);
  }
  // A stored entry whose bytes (content, with a local extra field when
  // given) are encrypted with password.
  PlainZip& encrypted(const std::string& name, const std::string& content, const char* password,
                      const std::string& extra = "", uint32_t mode = 0100644) {
    zip_fileinfo zi = info(mode);
    const uint32_t crc = crcOf(content);
    EXPECT_EQ(
        zipOpenNewFileInZip4_64(zip_, name.c_str(), &zi, extra.empty() ? nullptr : extra.data(),
                                static_cast<uInt>(extra.size()), nullptr, 0, nullptr, kStored, 0,
                                1 /* raw */, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr,
                                0, 0, 1 /* encrypted */, 0),
        ZIP_OK);
    const std::string bytes = pkwareEncrypt(content, crc, password);
    EXPECT_EQ(zipWriteInFileInZip(zip_, bytes.data(), static_cast<unsigned>(bytes.size())), ZIP_OK);
    EXPECT_EQ(zipCloseFileInZipRaw64(zip_, content.size(), crc), ZIP_OK);
    return *this;
  }
  void close() {
    if (zip_ != nullptr) zipClose(zip_, nullptr);
    zip_ = nullptr;
  }

 private:
  static zip_fileinfo info(uint32_t mode) {
    zip_fileinfo zi{};
    zi.tmz_date.tm_year = 2021;
    zi.tmz_date.tm_mon = 4;
    zi.tmz_date.tm_mday = 17;
    zi.external_fa = static_cast<uLong>(mode) << 16;
    return zi;
  }

  zipFile zip_;
};

}  // namespace velzip_test

#endif  // VELZIP_TESTS_UNZIP_PLAIN_ZIP_H
