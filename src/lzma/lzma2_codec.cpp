#include "lzma/lzma2_codec.h"

namespace velzip {

uint32_t workingDictSize(uint64_t inputSize) {
  uint32_t dict = kLzma2MinDictSize;
  while (dict < inputSize && dict < kLzma2DictSize) dict <<= 1;
  return dict;
}

uint64_t dictSizeFromProp(uint8_t prop) {
  if (prop > 40) return 0;
  if (prop == 40) return 0xFFFFFFFFu;
  return static_cast<uint64_t>(2u | (prop & 1u)) << (prop / 2 + 11);
}

lzma_options_lzma encoderOptions(uint32_t dictSize, int level) {
  lzma_options_lzma opt{};
  if (level < 0 || level > 9 || level == kLzma2DefaultLevel) {
    lzma_lzma_preset(&opt, kLzma2DefaultLevel);
    opt.mode = LZMA_MODE_NORMAL;
    opt.nice_len = 32;
    opt.mf = LZMA_MF_BT4;
    opt.depth = 32;
  } else {
    lzma_lzma_preset(&opt, static_cast<uint32_t>(level));
  }
  // Every level uses the working dictionary whole, up to the 16 MiB the
  // property byte announces, not its preset's (8 MiB at 5 and 6).
  opt.dict_size = dictSize < kLzma2MinDictSize ? kLzma2MinDictSize : dictSize;
  opt.lc = 3;
  opt.lp = 0;
  opt.pb = 2;
  return opt;
}

int sdkResult(lzma_ret ret) {
  switch (ret) {
    case LZMA_OK:
    case LZMA_STREAM_END:
      return 0;
    case LZMA_DATA_ERROR:
    case LZMA_FORMAT_ERROR:
    case LZMA_BUF_ERROR:
      return 1;
    case LZMA_MEM_ERROR:
    case LZMA_MEMLIMIT_ERROR:
      return 2;
    case LZMA_OPTIONS_ERROR:
      return 4;
    default:
      return 11;
  }
}

}  // namespace velzip
