#include "unzip/entry_reader.h"

#include <algorithm>
#include <array>
#include <climits>

// The key schedule of the traditional cipher; its functions are static, so
// this unit gets its own copy.
#include <minizip/crypt.h>

namespace velzip {
namespace {

constexpr unsigned long kFlagEncrypted = 1u << 0;
constexpr unsigned long kFlagDescriptor = 1u << 3;
constexpr unsigned long kFlagStrongEncryption = 1u << 6;
constexpr int kMethodStored = 0;
constexpr int kMethodDeflated = Z_DEFLATED;
constexpr int kMethodAes = 99;
constexpr unsigned kHeaderSize = 12;
constexpr unsigned kInputChunk = 65536;

// The key schedule indexes its table as unsigned long, which is wider than
// zlib's z_crc_t here: handing it zlib's table directly would read garbage.
const unsigned long* cryptTable() {
  static const std::array<unsigned long, 256> table = [] {
    std::array<unsigned long, 256> t{};
    const z_crc_t* crc = get_crc_table();
    for (size_t i = 0; i < t.size(); ++i) t[i] = crc[i];
    return t;
  }();
  return table.data();
}

unsigned clampToInt(uint64_t n) {
  return static_cast<unsigned>(std::min<uint64_t>(n, INT_MAX));
}

}  // namespace

int EntryReader::open(unzFile zip, const char* password) {
  if (isOpen()) close();
  if (zip == nullptr) return UNZ_PARAMERROR;
  unz_file_info64 info;
  const int rc = unzGetCurrentFileInfo64(zip, &info, nullptr, 0, nullptr, 0, nullptr, 0);
  if (rc != UNZ_OK) return rc;

  if ((info.flag & kFlagEncrypted) == 0) {
    // The password is meant for encrypted entries only; the zip layer would
    // refuse it here as well.
    const int opened = unzOpenCurrentFile(zip);
    if (opened == UNZ_OK) zip_ = zip;
    return opened;
  }
  if (password == nullptr) return UNZ_PARAMERROR;
  if ((info.flag & kFlagStrongEncryption) != 0 || info.compression_method == kMethodAes) {
    return UNZ_PARAMERROR;
  }
  if (info.compression_method != kMethodStored && info.compression_method != kMethodDeflated) {
    return UNZ_BADZIPFILE;
  }
  return openEncrypted(zip, info, password);
}

int EntryReader::openEncrypted(unzFile zip, const unz_file_info64& info, const char* password) {
  int method = 0;
  int level = 0;
  int rc = unzOpenCurrentFile2(zip, &method, &level, 1);
  if (rc != UNZ_OK) return rc;
  zip_ = zip;
  decrypting_ = true;
  if (info.compressed_size < kHeaderSize) {
    close();
    return UNZ_BADZIPFILE;
  }

  init_keys(password, keys_, cryptTable());
  unsigned char header[kHeaderSize];
  rc = unzReadCurrentFile(zip, header, kHeaderSize);
  if (rc != static_cast<int>(kHeaderSize)) {
    close();
    return rc < 0 ? rc : UNZ_BADZIPFILE;
  }
  decrypt(header, kHeaderSize);
  // Writers that stream (data descriptor) do not know the CRC up front and
  // check against the modification time instead.
  const unsigned long check =
      (info.flag & kFlagDescriptor) != 0 ? (info.dosDate >> 8) & 0xFF : (info.crc >> 24) & 0xFF;
  if (header[kHeaderSize - 1] != check) {
    close();
    return UNZ_PARAMERROR;
  }

  cipherLeft_ = info.compressed_size - kHeaderSize;
  expectedSize_ = info.uncompressed_size;
  expectedCrc_ = info.crc;
  crc_ = crc32(0L, Z_NULL, 0);
  if (info.compression_method == kMethodDeflated) {
    deflated_ = true;
    input_.resize(kInputChunk);
    stream_ = z_stream{};
    if (inflateInit2(&stream_, -MAX_WBITS) != Z_OK) {
      close();
      return UNZ_INTERNALERROR;
    }
    inflating_ = true;
  }
  return UNZ_OK;
}

int EntryReader::read(void* buf, unsigned size) {
  if (!isOpen() || buf == nullptr) return UNZ_PARAMERROR;
  if (!decrypting_) return unzReadCurrentFile(zip_, buf, size);
  if (error_ != 0) return error_;
  if (size == 0) return 0;
  unsigned char* out = static_cast<unsigned char*>(buf);
  const int rc = deflated_ ? readDeflated(out, size) : readStored(out, size);
  if (rc < 0) error_ = rc;
  return rc;
}

int EntryReader::readStored(unsigned char* out, unsigned size) {
  if (cipherLeft_ == 0) return finish();
  const int got = unzReadCurrentFile(zip_, out, clampToInt(std::min<uint64_t>(size, cipherLeft_)));
  if (got <= 0) return got < 0 ? got : UNZ_BADZIPFILE;
  const unsigned n = static_cast<unsigned>(got);
  cipherLeft_ -= n;
  decrypt(out, n);
  crc_ = crc32(crc_, out, n);
  produced_ += n;
  return got;
}

int EntryReader::fillInput() {
  const int got = unzReadCurrentFile(
      zip_, input_.data(), static_cast<unsigned>(std::min<uint64_t>(kInputChunk, cipherLeft_)));
  if (got <= 0) return got < 0 ? got : UNZ_BADZIPFILE;
  const unsigned n = static_cast<unsigned>(got);
  cipherLeft_ -= n;
  decrypt(input_.data(), n);
  stream_.next_in = input_.data();
  stream_.avail_in = n;
  return got;
}

int EntryReader::readDeflated(unsigned char* out, unsigned size) {
  if (streamEnded_) return finish();
  const unsigned want = clampToInt(size);
  stream_.next_out = out;
  stream_.avail_out = want;
  while (stream_.avail_out > 0) {
    if (stream_.avail_in == 0 && cipherLeft_ > 0) {
      const int rc = fillInput();
      if (rc < 0) return rc;
    }
    const int z = inflate(&stream_, Z_NO_FLUSH);
    if (z == Z_STREAM_END) {
      streamEnded_ = true;
      break;
    }
    if (z == Z_BUF_ERROR && stream_.avail_in == 0 && cipherLeft_ == 0) {
      // The ciphertext is used up but the deflate stream has not ended.
      if (stream_.avail_out < want) break;
      return Z_DATA_ERROR;
    }
    if (z != Z_OK && z != Z_BUF_ERROR) return Z_DATA_ERROR;
  }
  const unsigned n = want - stream_.avail_out;
  if (n == 0) return finish();
  crc_ = crc32(crc_, out, n);
  produced_ += n;
  return static_cast<int>(n);
}

int EntryReader::finish() {
  return produced_ == expectedSize_ && crc_ == expectedCrc_ ? 0 : UNZ_CRCERROR;
}

int EntryReader::close() {
  if (!isOpen()) return UNZ_PARAMERROR;
  int rc = unzCloseCurrentFile(zip_);
  // The zip layer does not check raw entries; report what read() found.
  if (rc == UNZ_OK && error_ == UNZ_CRCERROR) rc = UNZ_CRCERROR;
  if (inflating_) inflateEnd(&stream_);
  stream_ = z_stream{};
  std::fill(std::begin(keys_), std::end(keys_), 0ul);
  zip_ = nullptr;
  decrypting_ = deflated_ = inflating_ = streamEnded_ = false;
  error_ = 0;
  cipherLeft_ = expectedSize_ = produced_ = 0;
  expectedCrc_ = crc_ = 0;
  return rc;
}

void EntryReader::decrypt(unsigned char* data, unsigned size) {
  const unsigned long* table = cryptTable();
  for (unsigned i = 0; i < size; ++i) {
    const int plain = data[i] ^ decrypt_byte(keys_, table);
    update_keys(keys_, table, plain);
    data[i] = static_cast<unsigned char>(plain);
  }
}

}  // namespace velzip
