// liblzma settings behind the format-1 payload: the classic encoder's level 5
// with a 16 MiB dictionary, written as a raw LZMA2 stream.
#ifndef VELZIP_LZMA_LZMA2_CODEC_H
#define VELZIP_LZMA_LZMA2_CODEC_H

#include <lzma.h>

#include <cstdint>

namespace velzip {

constexpr uint8_t kLzma2PropByte = 24;         // 16 MiB dictionary
constexpr uint32_t kLzma2DictSize = 1u << 24;  // what the property byte announces
constexpr uint32_t kLzma2MinDictSize = 1u << 12;
constexpr int kLzma2DefaultLevel = 5;

// The dictionary an encoder needs for an input of inputSize bytes: the
// smallest power of two covering it, at least 4 KiB, at most 16 MiB. Matches
// never reach further back than the input, so the output is the same LZMA2
// stream a 16 MiB dictionary gives, for a fraction of the set-up cost.
uint32_t workingDictSize(uint64_t inputSize);

// Dictionary size a property byte announces; 0 for an invalid byte (> 40).
uint64_t dictSizeFromProp(uint8_t prop);

// Level-5 options: lc 3, lp 0, pb 2, normal mode, nice length 32, BT4, depth 32.
// Another level (0 to 9) takes liblzma's preset of that number for the match
// finder, nice length, depth and mode; lc, lp, pb and the dictionary (dictSize)
// stay, so every payload keeps the property byte 24 and decodes in the same
// memory.
lzma_options_lzma encoderOptions(uint32_t dictSize, int level = kLzma2DefaultLevel);

// LZMA SDK style result code for a liblzma result (1 data error, 2 memory,
// 4 unsupported, 11 anything else).
int sdkResult(lzma_ret ret);

}  // namespace velzip

#endif  // VELZIP_LZMA_LZMA2_CODEC_H
