// Method 12: bzip2, decoded by libbz2.
#include <bzlib.h>

#include <algorithm>
#include <climits>
#include <string>

#include "unzip/decoder_makers.h"
#include "unzip/pulled_input.h"

namespace velzip {
namespace {

class Bzip2Decoder : public ByteSource {
 public:
  Bzip2Decoder(ByteSource& packed, StreamError& error) : input_(packed), error_(error) {}
  ~Bzip2Decoder() override {
    if (ready_) BZ2_bzDecompressEnd(&bz_);
  }

  bool start() {
    ready_ = BZ2_bzDecompressInit(&bz_, 0, 0) == BZ_OK;
    return ready_;
  }

  ssize_t read(uint8_t* buf, size_t size) override {
    if (ended_) return 0;
    // libbz2 counts in unsigned int.
    const unsigned want = static_cast<unsigned>(std::min<size_t>(size, 1u << 30));
    bz_.next_out = reinterpret_cast<char*>(buf);
    bz_.avail_out = want;
    while (bz_.avail_out == want) {
      if (!input_.fill()) return -1;
      bz_.next_in = reinterpret_cast<char*>(const_cast<uint8_t*>(input_.data()));
      bz_.avail_in = static_cast<unsigned>(std::min<size_t>(input_.size(), UINT_MAX));
      const int rc = BZ2_bzDecompress(&bz_);
      input_.consume(input_.size() - bz_.avail_in);
      if (rc == BZ_STREAM_END) {
        // Bytes after the stream's end are padding, as for deflate.
        ended_ = true;
        break;
      }
      if (rc != BZ_OK)
        return error_.fail("damaged bzip2 data (libbz2 error " + std::to_string(rc) + ")");
      if (input_.exhausted() && bz_.avail_out == want) {
        return error_.fail("the bzip2 data is cut short");
      }
    }
    return static_cast<ssize_t>(want - bz_.avail_out);
  }

 private:
  PulledInput input_;
  StreamError& error_;
  bz_stream bz_{};
  bool ready_ = false;
  bool ended_ = false;
};

}  // namespace

std::unique_ptr<ByteSource> makeBzip2Decoder(ByteSource& packed, StreamError& error) {
  auto decoder = std::make_unique<Bzip2Decoder>(packed, error);
  if (!decoder->start()) {
    error.fail("cannot start libbz2");
    return nullptr;
  }
  return decoder;
}

}  // namespace velzip
