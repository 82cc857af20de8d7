// Where a regular entry's bytes come from: a file open for reading, read to
// its end, or bytes already in memory (a packed metadata companion).
#ifndef VELZIP_ZIP_ENTRY_SOURCE_H
#define VELZIP_ZIP_ENTRY_SOURCE_H

#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "lzma/payload_encoder.h"

namespace velzip {

class EntrySource {
 public:
  static EntrySource file(int fd, uint64_t size) { return EntrySource(fd, nullptr, size); }
  static EntrySource memory(const uint8_t* data, size_t size) {
    return EntrySource(-1, data, size);
  }

  // As known before reading: a file may still change while it is read.
  uint64_t size() const { return size_; }
  // Reads fail with ECANCELED once *flag is set (a worker's content that is
  // no longer wanted).
  void cancelWhen(const std::atomic<bool>* flag) { cancelled_ = flag; }

  // Up to n bytes; 0 at the end; -1 on a read error, whose errno error() keeps.
  ssize_t read(uint8_t* buf, size_t n) {
    if (cancelled_ != nullptr && cancelled_->load(std::memory_order_relaxed)) {
      error_ = errno = ECANCELED;
      return -1;
    }
    if (data_ != nullptr) {
      const size_t take = static_cast<size_t>(std::min<uint64_t>(n, size_ - offset_));
      std::memcpy(buf, data_ + offset_, take);
      offset_ += take;
      return static_cast<ssize_t>(take);
    }
    const ssize_t got = readRetry(fd_, buf, n);
    if (got < 0) error_ = errno;
    return got;
  }
  int error() const { return error_; }

 private:
  EntrySource(int fd, const uint8_t* data, uint64_t size) : fd_(fd), data_(data), size_(size) {}

  int fd_;
  const uint8_t* data_;
  uint64_t size_;
  uint64_t offset_ = 0;
  int error_ = 0;
  const std::atomic<bool>* cancelled_ = nullptr;
};

}  // namespace velzip

#endif  // VELZIP_ZIP_ENTRY_SOURCE_H
