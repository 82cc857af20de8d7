// The decoding loop of a liblzma decoder, whichever kind it was set up as:
// the zip LZMA method (a raw LZMA1 decoder) and xz share it.
#ifndef VELZIP_UNZIP_LIBLZMA_SOURCE_H
#define VELZIP_UNZIP_LIBLZMA_SOURCE_H

#include <lzma.h>

#include <string>

#include "unzip/byte_source.h"
#include "unzip/pulled_input.h"

namespace velzip {

class LiblzmaSource : public ByteSource {
 public:
  // what names the data in failures ("LZMA", "xz").
  LiblzmaSource(ByteSource& packed, const char* what, StreamError& error)
      : input_(packed), what_(what), error_(error) {}
  ~LiblzmaSource() override { lzma_end(&stream_); }
  LiblzmaSource(const LiblzmaSource&) = delete;
  LiblzmaSource& operator=(const LiblzmaSource&) = delete;

  // The stream for one of liblzma's decoder set-ups; false with a reason
  // when it failed (rc is what that set-up returned).
  lzma_stream* stream() { return &stream_; }
  bool started(lzma_ret rc);

  ssize_t read(uint8_t* buf, size_t size) override;

 private:
  ssize_t failure(lzma_ret rc);

  PulledInput input_;
  const char* what_;
  StreamError& error_;
  lzma_stream stream_ = LZMA_STREAM_INIT;
  bool ended_ = false;
};

}  // namespace velzip

#endif  // VELZIP_UNZIP_LIBLZMA_SOURCE_H
