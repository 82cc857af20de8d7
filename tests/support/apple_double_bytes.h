// Companions written byte by byte, independently of the codec: for the codec's
// tests and as the fuzzer's seeds.
#ifndef VELZIP_TESTS_SUPPORT_APPLE_DOUBLE_BYTES_H
#define VELZIP_TESTS_SUPPORT_APPLE_DOUBLE_BYTES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace velzip_test {

inline void put16(std::vector<uint8_t>& b, size_t at, uint32_t v) {
  b[at] = static_cast<uint8_t>(v >> 8);
  b[at + 1] = static_cast<uint8_t>(v);
}
inline void put32(std::vector<uint8_t>& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}
inline uint32_t get32(const std::vector<uint8_t>& b, size_t at) {
  return (uint32_t{b[at]} << 24) | (uint32_t{b[at + 1]} << 16) | (uint32_t{b[at + 2]} << 8) |
         b[at + 3];
}
inline void putText(std::vector<uint8_t>& b, size_t at, const std::string& text) {
  std::copy(text.begin(), text.end(), b.begin() + at);
}

// The resource fork Mac tools write for a file that has none: a 256-byte
// header holding a note, then a 30-byte map with no types that repeats the
// header's offsets and lengths.
inline std::vector<uint8_t> emptyResourceMap() {
  std::vector<uint8_t> f(286, 0);
  for (size_t at : {0, 0x100}) {
    put32(f, at, 0x100);      // data offset
    put32(f, at + 4, 0x100);  // map offset
    put32(f, at + 12, 0x1E);  // map length
  }
  putText(f, 16, "This resource fork intentionally left blank   ");
  put16(f, 0x100 + 24, 0x1C);    // type list offset
  put16(f, 0x100 + 26, 0x1E);    // name list offset
  put16(f, 0x100 + 28, 0xFFFF);  // number of types minus one
  return f;
}

constexpr char kQuarantineValue[] = "0083;65a1b2c3;Safari;8F0E6D2A-1B7C-4E55-9D3A-2C4B6E8F0A1B";

// 4096 bytes as a Mac writes them for a downloaded file: the Finder Info
// entry at 50 (zero Finder Info, 2 pad bytes, the attribute header at 84, one
// 32-byte attribute entry at 120 for com.apple.quarantine, its value), zero
// fill, and the empty resource map last.
inline std::vector<uint8_t> macShapedCompanion() {
  const uint32_t fork = 4096 - 286, value = 120 + 32, size = sizeof kQuarantineValue - 1;
  std::vector<uint8_t> b(4096, 0);
  const std::pair<size_t, uint32_t> fields[] = {
      {0, 0x00051607}, {4, 0x00020000}, {26, 9},          {30, 50},   {34, fork - 50}, {38, 2},
      {42, fork},      {46, 286},       {84, 0x41545452}, {92, fork}, {96, value},     {100, size},
      {116, 1},        {120, value},    {124, size}};  // 116: flags 0, one attribute
  for (const auto& [at, v] : fields) put32(b, at, v);
  putText(b, 8, "Mac OS X        ");
  put16(b, 24, 2);  // entry count
  b[130] = sizeof "com.apple.quarantine";
  putText(b, 131, "com.apple.quarantine");
  putText(b, value, kQuarantineValue);
  const std::vector<uint8_t> map = emptyResourceMap();
  std::copy(map.begin(), map.end(), b.begin() + fork);
  return b;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_APPLE_DOUBLE_BYTES_H
