#include <lzma.h>

#include <algorithm>
#include <memory>

#include "lzma/lzma2_codec.h"
#include "unzip/content.h"

namespace velzip {
namespace {

using Result = ContentOutcome::Result;

constexpr size_t kReadChunk = 65536;
constexpr size_t kWriteChunk = 1 << 20;

class RawDecoder {
 public:
  ~RawDecoder() { lzma_end(&strm_); }
  lzma_stream* get() { return &strm_; }

 private:
  lzma_stream strm_ = LZMA_STREAM_INIT;
};

// Never more history than the file can reach back into: a small file needs
// a small dictionary whatever its property byte announces.
uint32_t historySize(uint64_t announced, uint64_t size) {
  const uint64_t dict = std::min<uint64_t>(announced, std::max<uint64_t>(size, LZMA_DICT_SIZE_MIN));
  return static_cast<uint32_t>(std::max<uint64_t>(dict, LZMA_DICT_SIZE_MIN));
}

}  // namespace

bool parseSizeText(const std::string& extra, uint64_t& size) {
  const size_t end = std::min(extra.find('\0'), extra.size());
  if (end == 0) return false;
  uint64_t value = 0;
  for (size_t i = 0; i < end; ++i) {
    const char c = extra[i];
    if (c < '0' || c > '9') return false;
    const uint64_t digit = static_cast<uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10) return false;
    value = value * 10 + digit;
  }
  size = value;
  return true;
}

ContentOutcome decodeLzmaContent(EntryStream& in, ContentTarget& out) {
  if (in.localExtra().empty()) return ContentOutcome::failed(Result::kNoSizeText, "no size text");
  uint64_t size = 0;
  if (!parseSizeText(in.localExtra(), size)) {
    return ContentOutcome::failed(Result::kNotStarted, "the size text is not a number");
  }
  uint8_t prop = 0;
  const ssize_t got = in.read(&prop, 1);
  if (got != 1) {
    return ContentOutcome::failed(Result::kNotStarted,
                                  got < 0 ? in.why() : "the payload has no property byte");
  }

  // Buffers no larger than the entry needs: most are small, and a fresh
  // megabyte per file cost more than decoding it.
  const size_t readChunk = static_cast<size_t>(std::min<uint64_t>(kReadChunk, in.size() + 1));
  const size_t writeChunk = static_cast<size_t>(std::min<uint64_t>(kWriteChunk, size + 1));
  const auto input = std::make_unique<uint8_t[]>(readChunk);
  const auto output = std::make_unique<uint8_t[]>(writeChunk);
  const uint64_t announced = dictSizeFromProp(prop);
  if (announced == 0) return ContentOutcome::failed(Result::kFailed, "invalid LZMA2 property byte");
  RawDecoder decoder;
  lzma_options_lzma opt{};
  opt.dict_size = historySize(announced, size);
  lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &opt}, {LZMA_VLI_UNKNOWN, nullptr}};
  if (lzma_raw_decoder(decoder.get(), filters) != LZMA_OK) {
    return ContentOutcome::failed(Result::kFailed, "cannot start the LZMA2 decoder");
  }
  lzma_stream* strm = decoder.get();
  uint64_t produced = 0;
  bool ended = false;
  for (;;) {
    const ssize_t n = in.read(input.get(), readChunk);
    if (n < 0) return ContentOutcome::failed(Result::kFailed, in.why());
    if (n == 0) break;
    if (ended) return ContentOutcome::failed(Result::kFailed, "data after the payload's end");
    const uint64_t before = produced;
    strm->next_in = input.get();
    strm->avail_in = static_cast<size_t>(n);
    // Until the chunk is used up and the decoder holds nothing back.
    do {
      strm->next_out = output.get();
      strm->avail_out = writeChunk;
      const lzma_ret ret = lzma_code(strm, LZMA_RUN);
      const size_t made = writeChunk - strm->avail_out;
      produced += made;
      // Checked first: a size text that is too small also starves the
      // decoder of history, which then looks like damage.
      if (produced > size) {
        return ContentOutcome::failed(Result::kFailed, "the payload holds more than its size text");
      }
      if (ret == LZMA_STREAM_END) {
        ended = true;
      } else if (ret != LZMA_OK) {
        return ContentOutcome::failed(Result::kFailed, "damaged LZMA2 payload");
      }
      std::string why;
      if (made > 0 && !out.write(output.get(), made, why)) {
        return ContentOutcome::failed(Result::kFailed, why);
      }
    } while (!ended && (strm->avail_in > 0 || strm->avail_out == 0));
    if (strm->avail_in > 0) {
      return ContentOutcome::failed(Result::kFailed, "data after the payload's end");
    }
    if (!out.report(produced - before)) return ContentOutcome::failed(Result::kAborted, "");
  }
  // A stream cut short decodes without complaint; only the end mark tells.
  if (!ended || produced != size) {
    return ContentOutcome::failed(Result::kFailed, "the payload ends after " +
                                                       std::to_string(produced) + " of " +
                                                       std::to_string(size) + " bytes");
  }
  return {};
}

}  // namespace velzip
