// Format-1 payload encoding for a writer that encodes many files in a row:
// the LZMA2 encoder, its tables and the I/O blocks are kept from one file to
// the next instead of being rebuilt per file, which dominates the cost of
// small files. The settings and the output are the payload codec's.
#ifndef VELZIP_ZIP_PAYLOAD_ENCODER_H
#define VELZIP_ZIP_PAYLOAD_ENCODER_H

#include <lzma.h>

#include <cstdint>
#include <memory>

namespace velzip {

class PayloadEncoder {
 public:
  PayloadEncoder() = default;
  ~PayloadEncoder() { release(); }
  PayloadEncoder(const PayloadEncoder&) = delete;
  PayloadEncoder& operator=(const PayloadEncoder&) = delete;

  // Encodes the file at sourcePath into outFd, written from offset 0 and cut
  // to the payload's length. sourceBytes: the bytes read and encoded.
  bool encodeFile(const char* sourcePath, int outFd, uint64_t& sourceBytes, uint64_t& payloadBytes);
  // Frees the encoder's memory; the next file builds it again.
  void release();

 private:
  bool flush(int outFd, uint64_t& offset);

  lzma_stream strm_ = LZMA_STREAM_INIT;
  bool active_ = false;
  std::unique_ptr<uint8_t[]> in_;
  std::unique_ptr<uint8_t[]> out_;
};

}  // namespace velzip

#endif  // VELZIP_ZIP_PAYLOAD_ENCODER_H
