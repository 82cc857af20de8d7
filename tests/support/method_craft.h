// Entry data in the compression methods other tools write, made here with
// the methods' own libraries, for archives that zip_craft.h lays out.
#ifndef VELZIP_TESTS_SUPPORT_METHOD_CRAFT_H
#define VELZIP_TESTS_SUPPORT_METHOD_CRAFT_H

#include <bzlib.h>
#include <lzma.h>
#include <zstd.h>

#include <cstdint>
#include <string>

#include "support/zip_craft.h"

namespace velzip_test {

constexpr uint16_t kLzmaEndMarkerFlag = 1u << 1;

inline std::string bzip2Bytes(const std::string& data) {
  unsigned size = static_cast<unsigned>(data.size() + data.size() / 100 + 600);
  std::string out(size, '\0');
  BZ2_bzBuffToBuffCompress(out.data(), &size, const_cast<char*>(data.data()),
                           static_cast<unsigned>(data.size()), 9, 0, 0);
  out.resize(size);
  return out;
}

inline std::string xzBytes(const std::string& data) {
  std::string out(lzma_stream_buffer_bound(data.size()), '\0');
  size_t at = 0;
  lzma_easy_buffer_encode(6, LZMA_CHECK_CRC64, nullptr,
                          reinterpret_cast<const uint8_t*>(data.data()), data.size(),
                          reinterpret_cast<uint8_t*>(out.data()), &at, out.size());
  out.resize(at);
  return out;
}

inline std::string zstdBytes(const std::string& data) {
  std::string out(ZSTD_compressBound(data.size()), '\0');
  out.resize(ZSTD_compress(out.data(), out.size(), data.data(), data.size(), 3));
  return out;
}

// Zip's LZMA layout: version 9.20, properties size 5, lc 3 lp 0 pb 2 and the
// dictionary size, then the raw stream, which ends in a marker only when
// asked. dictionaryInHeader overrides what the header claims.
inline std::string lzmaZipBytes(const std::string& data, bool endMarker,
                                uint32_t dictionaryInHeader = 0) {
  lzma_options_lzma options;
  lzma_lzma_preset(&options, 6);
  options.dict_size = 1u << 20;
  options.ext_flags = endMarker ? LZMA_LZMA1EXT_ALLOW_EOPM : 0;
  lzma_set_ext_size(options, UINT64_MAX);
  const lzma_filter filters[] = {{LZMA_FILTER_LZMA1EXT, &options}, {LZMA_VLI_UNKNOWN, nullptr}};
  std::string stream(data.size() + data.size() / 2 + 1024, '\0');
  size_t at = 0;
  lzma_raw_buffer_encode(filters, nullptr, reinterpret_cast<const uint8_t*>(data.data()),
                         data.size(), reinterpret_cast<uint8_t*>(stream.data()), &at,
                         stream.size());
  stream.resize(at);
  std::string header = "\x09\x14";
  put16(header, 5);
  header += static_cast<char>((options.pb * 5 + options.lp) * 9 + options.lc);
  put32(header, dictionaryInHeader != 0 ? dictionaryInHeader : options.dict_size);
  return header + stream;
}

// An entry of content whose stored bytes are packed (already encoded with
// the method).
inline CraftEntry packedEntry(const std::string& name, const std::string& content,
                              const std::string& packed, uint16_t method, uint16_t flag = 0) {
  CraftEntry e = storedEntry(name, content);
  e.stored = packed;
  e.method = method;
  e.flag = flag;
  return e;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_METHOD_CRAFT_H
