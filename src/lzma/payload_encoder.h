// The format-1 payload encoder: the property byte, then the raw LZMA2 stream.
// One object may encode many inputs in a row; liblzma's tables and the I/O
// blocks are kept from one input to the next instead of being rebuilt, which
// is most of the cost of a small file.
#ifndef VELZIP_LZMA_PAYLOAD_ENCODER_H
#define VELZIP_LZMA_PAYLOAD_ENCODER_H

#include <lzma.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace velzip {

class PayloadEncoder {
 public:
  // Fills buf with up to size bytes: the count, 0 at the end, < 0 on error.
  using Reader = std::function<ssize_t(uint8_t* buf, size_t size)>;
  // Takes all size bytes; false on error.
  using Writer = std::function<bool(const uint8_t* buf, size_t size)>;

  PayloadEncoder() = default;
  ~PayloadEncoder() { release(); }
  PayloadEncoder(const PayloadEncoder&) = delete;
  PayloadEncoder& operator=(const PayloadEncoder&) = delete;

  // Encodes everything read yields into write. sizeHint (the input's size, or
  // UINT64_MAX when unknown) sizes the working dictionary; level picks the
  // encoder's settings (see encoderOptions).
  bool encode(uint64_t sizeHint, const Reader& read, const Writer& write,
              uint64_t* sourceBytes = nullptr, int level = -1);
  // Encodes the file at sourcePath into outFd from offset 0, cutting outFd to
  // the payload's length. sourceBytes: the bytes actually read and encoded.
  bool encodeFile(const char* sourcePath, int outFd, uint64_t& sourceBytes, uint64_t& payloadBytes);
  // Frees the encoder's memory; the next input builds it again.
  void release();

 private:
  lzma_stream strm_ = LZMA_STREAM_INIT;
  bool active_ = false;
  std::unique_ptr<uint8_t[]> in_;
  std::unique_ptr<uint8_t[]> out_;
};

// read() and pwrite() that retry on EINTR and short counts.
ssize_t readRetry(int fd, uint8_t* buf, size_t size);
bool writeAllAt(int fd, const uint8_t* data, size_t size, uint64_t offset);
bool writeAll(int fd, const uint8_t* data, size_t size);

}  // namespace velzip

#endif  // VELZIP_LZMA_PAYLOAD_ENCODER_H
