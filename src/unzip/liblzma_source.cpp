#include "unzip/liblzma_source.h"

#include "unzip/decoder_makers.h"

namespace velzip {

bool LiblzmaSource::started(lzma_ret rc) {
  if (rc == LZMA_OK) return true;
  failure(rc);
  return false;
}

ssize_t LiblzmaSource::failure(lzma_ret rc) {
  const std::string what = what_;
  switch (rc) {
    case LZMA_MEM_ERROR:
      return error_.fail("out of memory decoding the " + what + " data");
    case LZMA_MEMLIMIT_ERROR:
      return error_.fail("the " + what + " data needs more than " +
                         std::to_string(kDecoderMemoryLimit >> 20) + " MiB of memory to decode");
    case LZMA_FORMAT_ERROR:
      return error_.fail("not " + what + " data");
    case LZMA_OPTIONS_ERROR:
      return error_.fail("the " + what + " data uses options liblzma cannot decode");
    case LZMA_BUF_ERROR:
      return error_.fail("the " + what + " data is cut short");
    default:
      return error_.fail("damaged " + what + " data (liblzma error " +
                         std::to_string(static_cast<int>(rc)) + ")");
  }
}

ssize_t LiblzmaSource::read(uint8_t* buf, size_t size) {
  if (ended_) return 0;
  stream_.next_out = buf;
  stream_.avail_out = size;
  while (stream_.avail_out == size) {
    if (!input_.fill()) return -1;
    stream_.next_in = input_.data();
    stream_.avail_in = input_.size();
    const lzma_ret rc = lzma_code(&stream_, input_.exhausted() ? LZMA_FINISH : LZMA_RUN);
    input_.consume(input_.size() - stream_.avail_in);
    if (rc == LZMA_STREAM_END) {
      // Bytes after the stream's end are padding, as for deflate.
      ended_ = true;
      break;
    }
    if (rc != LZMA_OK) return failure(rc);
    if (input_.exhausted() && stream_.avail_out == size) return failure(LZMA_BUF_ERROR);
  }
  return static_cast<ssize_t>(size - stream_.avail_out);
}

}  // namespace velzip
