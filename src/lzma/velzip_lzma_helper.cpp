#include <fcntl.h>
#include <lzma.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "lzma/lzma2_codec.h"
#include "velzip/VelLzmaHelper.h"

namespace Vel {
namespace {

constexpr size_t kIoBlock = 64 * 1024;

class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }
  // Closing reports errors a write may have deferred.
  bool release() {
    const int fd = fd_;
    fd_ = -1;
    return fd < 0 || close(fd) == 0;
  }

 private:
  int fd_;
};

class Stream {
 public:
  Stream() = default;
  ~Stream() { lzma_end(&strm_); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  lzma_stream* get() { return &strm_; }

 private:
  lzma_stream strm_ = LZMA_STREAM_INIT;
};

bool writeAll(int fd, const uint8_t* data, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

ssize_t readSome(int fd, uint8_t* buf, size_t size) {
  for (;;) {
    const ssize_t n = read(fd, buf, size);
    if (n >= 0 || errno != EINTR) return n;
  }
}

// Runs the raw LZMA2 encoder from read() to write() callables. The property
// byte goes first; the encoder's own output ends with the LZMA2 end byte.
template <class ReadFn, class WriteFn>
bool encode(uint32_t dictSize, ReadFn&& readSome, WriteFn&& writeAll) {
  lzma_options_lzma opt = velzip::encoderOptions(dictSize);
  lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &opt}, {LZMA_VLI_UNKNOWN, nullptr}};
  Stream stream;
  lzma_stream* strm = stream.get();
  if (lzma_raw_encoder(strm, filters) != LZMA_OK) return false;

  const uint8_t prop = velzip::kLzma2PropByte;
  if (!writeAll(&prop, 1)) return false;

  std::vector<uint8_t> in(kIoBlock), out(kIoBlock);
  lzma_action action = LZMA_RUN;
  strm->next_out = out.data();
  strm->avail_out = out.size();
  for (;;) {
    if (strm->avail_in == 0 && action == LZMA_RUN) {
      const ssize_t n = readSome(in.data(), in.size());
      if (n < 0) return false;
      strm->next_in = in.data();
      strm->avail_in = static_cast<size_t>(n);
      if (n == 0) action = LZMA_FINISH;
    }
    const lzma_ret ret = lzma_code(strm, action);
    if (strm->avail_out == 0 || ret == LZMA_STREAM_END) {
      if (!writeAll(out.data(), out.size() - strm->avail_out)) return false;
      strm->next_out = out.data();
      strm->avail_out = out.size();
    }
    if (ret == LZMA_STREAM_END) return true;
    if (ret != LZMA_OK) return false;
  }
}

}  // namespace

struct VelLzmaHelper::Decoder {
  Stream stream;
  lzma_ret init = LZMA_PROG_ERROR;
  uint8_t* dict = nullptr;
  unsigned long dictSize = 0;
  unsigned long decoded = 0;
  bool finished = false;
};

VelLzmaHelper::VelLzmaHelper() = default;
VelLzmaHelper::~VelLzmaHelper() = default;

bool VelLzmaHelper::encodeFileWithLZMA2(const std::string& inPath, const std::string& outPath) {
  Fd in(open(inPath.c_str(), O_RDONLY | O_CLOEXEC));
  if (!in.ok()) return false;
  Fd out(open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!out.ok()) return false;
  struct stat st;
  const uint64_t size = fstat(in.get(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : ~0ull;
  const bool ok = encode(
      velzip::workingDictSize(size),
      [&](uint8_t* buf, size_t n) { return readSome(in.get(), buf, n); },
      [&](const uint8_t* buf, size_t n) { return writeAll(out.get(), buf, n); });
  return out.release() && ok;
}

bool VelLzmaHelper::encodeStreamWithLZMA2(void* inStream, void* outStream) {
  auto* in = static_cast<ISeqInStream*>(inStream);
  auto* out = static_cast<ISeqOutStream*>(outStream);
  if (in == nullptr || out == nullptr) return false;
  return encode(
      velzip::kLzma2DictSize,
      [&](uint8_t* buf, size_t n) -> ssize_t {
        size_t size = n;
        if (in->Read(in, buf, &size) != 0 || size > n) return -1;
        return static_cast<ssize_t>(size);
      },
      [&](const uint8_t* buf, size_t n) {
        while (n > 0) {
          const size_t written = out->Write(out, buf, n);
          if (written == 0 || written > n) return false;
          buf += written;
          n -= written;
        }
        return true;
      });
}

bool VelLzmaHelper::initDecoder(char* props, char* dictBuffer, unsigned long dictBufferSize) {
  decoder_ = std::make_unique<Decoder>();
  decoder_->dict = reinterpret_cast<uint8_t*>(dictBuffer);
  decoder_->dictSize = dictBuffer != nullptr ? dictBufferSize : 0;
  const uint64_t announced = props != nullptr ? velzip::dictSizeFromProp(static_cast<uint8_t>(*props)) : 0;
  if (announced == 0) {
    decoder_->init = LZMA_OPTIONS_ERROR;
    return true;
  }
  // The whole entry lands in the caller's buffer, so no match can reach
  // further back than its size: a larger history would be wasted memory.
  uint64_t dict = announced < dictBufferSize ? announced : dictBufferSize;
  if (dict < LZMA_DICT_SIZE_MIN) dict = LZMA_DICT_SIZE_MIN;
  lzma_options_lzma opt{};
  opt.dict_size = static_cast<uint32_t>(dict);
  lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &opt}, {LZMA_VLI_UNKNOWN, nullptr}};
  decoder_->init = lzma_raw_decoder(decoder_->stream.get(), filters);
  return true;
}

int VelLzmaHelper::decodeLZMA2(char* src, unsigned long srcLen, unsigned long dicLimit,
                               unsigned long& decodedTotal) {
  if (!decoder_) return 5;  // no initDecoder: a parameter error
  Decoder& d = *decoder_;
  if (d.init != LZMA_OK) return velzip::sdkResult(d.init);
  // After the end mark nothing more is consumed or produced: a stalled stream.
  if (d.finished || src == nullptr) return 1;

  const unsigned long limit = dicLimit < d.dictSize ? dicLimit : d.dictSize;
  lzma_stream* strm = d.stream.get();
  strm->next_in = reinterpret_cast<const uint8_t*>(src);
  strm->avail_in = srcLen;
  strm->next_out = d.dict + d.decoded;
  strm->avail_out = limit > d.decoded ? limit - d.decoded : 0;
  while (strm->avail_in > 0 && strm->avail_out > 0) {
    const size_t before = strm->avail_in + strm->avail_out;
    const lzma_ret ret = lzma_code(strm, LZMA_RUN);
    if (ret == LZMA_STREAM_END) {
      d.finished = true;
      break;
    }
    if (ret != LZMA_OK) return velzip::sdkResult(ret);
    if (strm->avail_in + strm->avail_out == before) break;
  }
  const unsigned long consumed = srcLen - strm->avail_in;
  const unsigned long total = static_cast<unsigned long>(strm->total_out);
  if (consumed == 0 && total == d.decoded) return 1;
  d.decoded = total;
  decodedTotal = total;
  return 0;
}

bool VelLzmaHelper::exitDecoder() {
  decoder_.reset();
  return true;
}

}  // namespace Vel
