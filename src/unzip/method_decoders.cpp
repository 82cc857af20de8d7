#include "unzip/method_decoders.h"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "frame/handles.h"
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

// Small entries are inflated in one call by libdeflate, about twice as fast
// as zlib's streaming inflate; the sizes the record gives bound the memory.
class WholeInflateDecoder : public ByteSource {
 public:
  static constexpr uint64_t kMaxSize = uint64_t{32} << 20;

  WholeInflateDecoder(ByteSource& in, const MethodInput& input, StreamError& error)
      : in_(in), input_(input), error_(error) {}
  ~WholeInflateDecoder() override {
    if (decompressor_ != nullptr) libdeflate_free_decompressor(decompressor_);
  }

  ssize_t read(uint8_t* buf, size_t size) override {
    if (!inflated_ && !inflateAll()) return -1;
    const size_t n = std::min(size, made_ - served_);
    std::memcpy(buf, output_.get() + served_, n);
    served_ += n;
    return static_cast<ssize_t>(n);
  }

 private:
  bool inflateAll() {
    inflated_ = true;
    // One byte more than the record says tells stored data that runs on.
    // Neither buffer is cleared first: both are written before they are read.
    const size_t packedSize = static_cast<size_t>(input_.packedSize) + 1;
    UniqueBuffer packed(static_cast<char*>(std::malloc(packedSize)));
    const size_t outputSize = static_cast<size_t>(input_.size) + 1;
    output_.reset(static_cast<char*>(std::malloc(outputSize)));
    if (!packed || !output_) {
      error_.fail("out of memory");
      return false;
    }
    auto* in = reinterpret_cast<uint8_t*>(packed.get());
    const ssize_t got = readFully(in_, in, packedSize);
    if (got < 0) return false;
    decompressor_ = libdeflate_alloc_decompressor();
    if (decompressor_ == nullptr) {
      error_.fail("out of memory");
      return false;
    }
    // The room for one byte more than the record says catches data that
    // inflates to more, as the size check would.
    size_t used = 0;
    const libdeflate_result rc = libdeflate_deflate_decompress_ex(
        decompressor_, in, static_cast<size_t>(got), output_.get(), outputSize, &used, &made_);
    if (rc == LIBDEFLATE_BAD_DATA) {
      // Cut short or damaged; zlib's reading of the same bytes says which.
      error_.fail(endsEarly(in, got) ? "the deflate data is cut short" : "damaged deflate data");
      return false;
    }
    if (rc == LIBDEFLATE_INSUFFICIENT_SPACE) {
      error_.fail("the entry holds more bytes than its record says");
      return false;
    }
    return true;
  }

  // Whether zlib would run out of input before the stream ends.
  static bool endsEarly(const uint8_t* packed, ssize_t got) {
    z_stream z{};
    if (inflateInit2(&z, -MAX_WBITS) != Z_OK) return false;
    std::vector<uint8_t> sink(1 << 16);
    z.next_in = const_cast<uint8_t*>(packed);
    z.avail_in = static_cast<uInt>(got);
    int rc = Z_OK;
    while (rc == Z_OK) {
      z.next_out = sink.data();
      z.avail_out = static_cast<uInt>(sink.size());
      rc = ::inflate(&z, Z_NO_FLUSH);
    }
    inflateEnd(&z);
    return rc == Z_BUF_ERROR;
  }

  ByteSource& in_;
  MethodInput input_;
  StreamError& error_;
  libdeflate_decompressor* decompressor_ = nullptr;
  bool inflated_ = false;
  UniqueBuffer output_;
  size_t made_ = 0;
  size_t served_ = 0;
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
      if (input.size <= WholeInflateDecoder::kMaxSize &&
          input.packedSize <= WholeInflateDecoder::kMaxSize) {
        return std::make_unique<WholeInflateDecoder>(packed, input, error);
      }
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
