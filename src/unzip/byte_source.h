// Entry data is read through a chain of pull streams: the stored bytes, then
// decryption, then the method's decoder, then the checks. Each link asks the
// one below it for bytes, so memory stays one buffer per link whatever the
// entry's size.
#ifndef VELZIP_UNZIP_BYTE_SOURCE_H
#define VELZIP_UNZIP_BYTE_SOURCE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace velzip {

// What went wrong, shared by the links of one chain: the first failure wins.
struct StreamError {
  std::string why;
  bool failed() const { return !why.empty(); }
  ssize_t fail(const std::string& reason) {
    if (why.empty()) why = reason;
    return -1;
  }
};

class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Up to size (> 0) bytes into buf: the count, 0 at the end, -1 on failure.
  virtual ssize_t read(uint8_t* buf, size_t size) = 0;
};

class ArchiveFile;

// length bytes of the archive file from offset.
class RangeSource : public ByteSource {
 public:
  // ahead: the range's bytes when they were already read (all of them), or
  // empty; the source then makes no system call.
  RangeSource(const ArchiveFile& file, uint64_t offset, uint64_t length, StreamError& error,
              std::string ahead = std::string())
      : file_(file), offset_(offset), left_(length), error_(error), ahead_(std::move(ahead)) {}
  ssize_t read(uint8_t* buf, size_t size) override;
  uint64_t left() const { return left_; }

 private:
  const ArchiveFile& file_;
  uint64_t offset_;
  uint64_t left_;
  StreamError& error_;
  std::string ahead_;
};

// Fills buf completely from source unless it ends first: the count, or -1.
ssize_t readFully(ByteSource& source, uint8_t* buf, size_t size);

}  // namespace velzip

#endif  // VELZIP_UNZIP_BYTE_SOURCE_H
