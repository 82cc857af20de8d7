// The input side the library-backed decoders share: packed bytes pulled from
// the link below, one buffer at a time, handed to a decoder that takes what
// it can.
#ifndef VELZIP_UNZIP_PULLED_INPUT_H
#define VELZIP_UNZIP_PULLED_INPUT_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "unzip/byte_source.h"

namespace velzip {

class PulledInput {
 public:
  explicit PulledInput(ByteSource& source)
      : source_(source), buffer_(std::make_unique<uint8_t[]>(kSize)) {}

  // Pulls more once the decoder has taken everything; false on a failed read.
  bool fill() {
    if (left_ > 0 || sourceEnded_) return true;
    const ssize_t n = source_.read(buffer_.get(), kSize);
    if (n < 0) return false;
    sourceEnded_ = n == 0;
    next_ = buffer_.get();
    left_ = static_cast<size_t>(n);
    return true;
  }
  const uint8_t* data() const { return next_; }
  size_t size() const { return left_; }
  void consume(size_t n) {
    next_ += n;
    left_ -= n;
  }
  // Every packed byte has been handed over and no more will come.
  bool exhausted() const { return sourceEnded_ && left_ == 0; }

 private:
  static constexpr size_t kSize = 64 * 1024;

  ByteSource& source_;
  std::unique_ptr<uint8_t[]> buffer_;
  const uint8_t* next_ = nullptr;
  size_t left_ = 0;
  bool sourceEnded_ = false;
};

}  // namespace velzip

#endif  // VELZIP_UNZIP_PULLED_INPUT_H
