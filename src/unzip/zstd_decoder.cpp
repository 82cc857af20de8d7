// Methods 93 and 20 (its number before it had its own): Zstandard, decoded
// by libzstd. Frames may follow one another; the data ends with a frame.
#include <zstd.h>

#include <string>

#include "unzip/decoder_makers.h"
#include "unzip/pulled_input.h"

namespace velzip {
namespace {

// The largest window libzstd is allowed to set up: 2^30, the decoders' limit.
constexpr int kWindowLogMax = 30;
static_assert((uint64_t{1} << kWindowLogMax) == kDecoderMemoryLimit, "one limit for all");

struct FreeContext {
  void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

class ZstdDecoder : public ByteSource {
 public:
  ZstdDecoder(ByteSource& packed, StreamError& error) : input_(packed), error_(error) {}

  bool start() {
    context_.reset(ZSTD_createDCtx());
    return context_ != nullptr && !ZSTD_isError(ZSTD_DCtx_setParameter(
                                      context_.get(), ZSTD_d_windowLogMax, kWindowLogMax));
  }

  ssize_t read(uint8_t* buf, size_t size) override {
    if (ended_) return 0;
    ZSTD_outBuffer out{buf, size, 0};
    while (out.pos == 0) {
      if (!input_.fill()) return -1;
      if (input_.exhausted() && frameDone_) {
        ended_ = true;
        return 0;
      }
      ZSTD_inBuffer in{input_.data(), input_.size(), 0};
      const size_t rc = ZSTD_decompressStream(context_.get(), &out, &in);
      input_.consume(in.pos);
      if (ZSTD_isError(rc)) {
        return error_.fail(std::string("damaged zstd data (") + ZSTD_getErrorName(rc) + ")");
      }
      // 0: a frame ended and all of it was handed out.
      frameDone_ = rc == 0;
      if (out.pos == 0 && input_.exhausted() && !frameDone_) {
        return error_.fail("the zstd data is cut short");
      }
    }
    return static_cast<ssize_t>(out.pos);
  }

 private:
  PulledInput input_;
  StreamError& error_;
  std::unique_ptr<ZSTD_DCtx, FreeContext> context_;
  bool frameDone_ = false;
  bool ended_ = false;
};

}  // namespace

std::unique_ptr<ByteSource> makeZstdDecoder(ByteSource& packed, StreamError& error) {
  auto decoder = std::make_unique<ZstdDecoder>(packed, error);
  if (!decoder->start()) {
    error.fail("cannot start libzstd");
    return nullptr;
  }
  return decoder;
}

}  // namespace velzip
