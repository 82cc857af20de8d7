#include "unzip/method_decoders.h"

#include <zlib.h>

#include <string>

#include "unzip/decoder_makers.h"
#include "unzip/zip_record.h"

namespace velzip {
namespace {

constexpr unsigned kStored = 0;
constexpr unsigned kDeflated = 8;
constexpr unsigned kBzip2 = 12;
constexpr unsigned kLzma = 14;
constexpr unsigned kZstdOld = 20;
constexpr unsigned kZstd = 93;
constexpr unsigned kXz = 95;
constexpr size_t kInputChunk = 64 * 1024;

class StoredDecoder : public ByteSource {
 public:
  explicit StoredDecoder(ByteSource& in) : in_(in) {}
  ssize_t read(uint8_t* buf, size_t size) override { return in_.read(buf, size); }

 private:
  ByteSource& in_;
};

class InflateDecoder : public ByteSource {
 public:
  InflateDecoder(ByteSource& in, StreamError& error) : in_(in), error_(error) {}
  ~InflateDecoder() override {
    if (ready_) inflateEnd(&z_);
  }

  bool start() {
    ready_ = inflateInit2(&z_, -MAX_WBITS) == Z_OK;
    return ready_;
  }

  ssize_t read(uint8_t* buf, size_t size) override {
    if (ended_) return 0;
    // zlib counts in 32 bits.
    const uInt want = static_cast<uInt>(size < (1u << 30) ? size : (1u << 30));
    z_.next_out = buf;
    z_.avail_out = want;
    while (z_.avail_out == want) {
      if (z_.avail_in == 0 && !inputEnded_) {
        const ssize_t n = in_.read(input_, sizeof input_);
        if (n < 0) return -1;
        inputEnded_ = n == 0;
        z_.next_in = input_;
        z_.avail_in = static_cast<uInt>(n);
      }
      const int rc = inflate(&z_, Z_NO_FLUSH);
      if (rc == Z_STREAM_END) {
        // Bytes stored after the stream's end are padding some writers add.
        ended_ = true;
        break;
      }
      if (rc == Z_BUF_ERROR && inputEnded_) return error_.fail("the deflate data is cut short");
      if (rc != Z_OK && rc != Z_BUF_ERROR) {
        return error_.fail(std::string("damaged deflate data") +
                           (z_.msg != nullptr ? std::string(" (") + z_.msg + ")" : ""));
      }
    }
    return static_cast<ssize_t>(want - z_.avail_out);
  }

 private:
  ByteSource& in_;
  StreamError& error_;
  z_stream z_{};
  bool ready_ = false;
  bool inputEnded_ = false;
  bool ended_ = false;
  uint8_t input_[kInputChunk];
};

}  // namespace

bool methodSupported(unsigned method) {
  switch (method) {
    case kStored:
    case kDeflated:
    case kBzip2:
    case kLzma:
    case kZstdOld:
    case kZstd:
    case kXz:
      return true;
    default:
      return false;
  }
}

std::unique_ptr<ByteSource> makeMethodDecoder(const MethodInput& input, ByteSource& packed,
                                              StreamError& error) {
  switch (input.method) {
    case kStored:
      return std::make_unique<StoredDecoder>(packed);
    case kDeflated: {
      auto d = std::make_unique<InflateDecoder>(packed, error);
      if (!d->start()) {
        error.fail("cannot start zlib");
        return nullptr;
      }
      return d;
    }
    case kBzip2:
      return makeBzip2Decoder(packed, error);
    case kLzma:
      return makeLzmaDecoder(input, packed, error);
    case kZstdOld:
    case kZstd:
      return makeZstdDecoder(packed, error);
    case kXz:
      return makeXzDecoder(packed, error);
    default:
      error.fail("unsupported compression method " + std::to_string(input.method) + " (" +
                 methodName(input.method) + ")");
      return nullptr;
  }
}

}  // namespace velzip
