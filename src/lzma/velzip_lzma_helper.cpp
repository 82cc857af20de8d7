#include <fcntl.h>
#include <lzma.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "frame/handles.h"
#include "lzma/lzma2_codec.h"
#include "lzma/payload_encoder.h"
#include "velzip/VelLzmaHelper.h"

namespace Vel {
namespace {

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
  velzip::UniqueFd in(open(inPath.c_str(), O_RDONLY | O_CLOEXEC));
  if (!in.ok()) return false;
  velzip::UniqueFd out(open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!out.ok()) return false;
  struct stat st;
  const uint64_t size = fstat(in.get(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : UINT64_MAX;
  velzip::PayloadEncoder encoder;
  const bool ok = encoder.encode(
      size, [&](uint8_t* buf, size_t n) { return velzip::readRetry(in.get(), buf, n); },
      [&](const uint8_t* buf, size_t n) { return velzip::writeAll(out.get(), buf, n); });
  return out.close() && ok;
}

bool VelLzmaHelper::encodeStreamWithLZMA2(void* inStream, void* outStream) {
  auto* in = static_cast<ISeqInStream*>(inStream);
  auto* out = static_cast<ISeqOutStream*>(outStream);
  if (in == nullptr || out == nullptr) return false;
  velzip::PayloadEncoder encoder;
  return encoder.encode(
      UINT64_MAX,
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
  const uint64_t announced =
      props != nullptr ? velzip::dictSizeFromProp(static_cast<uint8_t>(*props)) : 0;
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
