// Companions written byte by byte, independently of the codec under test.
#ifndef VELZIP_TESTS_PLATFORM_APPLE_DOUBLE_BYTES_H
#define VELZIP_TESTS_PLATFORM_APPLE_DOUBLE_BYTES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velzip_test {

inline void put16(std::vector<uint8_t>& b, size_t at, uint32_t v) {
  b[at] = static_cast<uint8_t>(v >> 8);
  b[at + 1] = static_cast<uint8_t>(v);
}
inline void put32(std::vector<uint8_t>& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}
inline uint32_t get16(const std::vector<uint8_t>& b, size_t at) {
  return (b[at] << 8) | b[at + 1];
}
inline uint32_t get32(const std::vector<uint8_t>& b, size_t at) {
  return (uint32_t{b[at]} << 24) | (uint32_t{b[at + 1]} << 16) | (uint32_t{b[at + 2]} << 8) |
         b[at + 3];
}

// The resource fork Mac tools write for a file that has none: a 256-byte
// header holding a note, then a 30-byte map with no types.
inline std::vector<uint8_t> emptyResourceMap() {
  std::vector<uint8_t> f(286, 0);
  put32(f, 0, 0x100);  // data offset
  put32(f, 4, 0x100);  // map offset
  put32(f, 8, 0);      // data length
  put32(f, 12, 0x1E);  // map length
  const std::string note = "This resource fork intentionally left blank   ";
  std::copy(note.begin(), note.end(), f.begin() + 16);
  put32(f, 0x100, 0x100);  // the map repeats the header
  put32(f, 0x104, 0x100);
  put32(f, 0x10C, 0x1E);
  put16(f, 0x100 + 24, 0x1C);    // type list offset
  put16(f, 0x100 + 26, 0x1E);    // name list offset
  put16(f, 0x100 + 28, 0xFFFF);  // number of types minus one
  return f;
}

constexpr char kQuarantineValue[] = "0083;65a1b2c3;Safari;8F0E6D2A-1B7C-4E55-9D3A-2C4B6E8F0A1B";

// 4096 bytes as a Mac writes them for a downloaded file: Finder Info entry at
// 50 holding an attribute block with com.apple.quarantine, zero fill, and
// the empty resource map last.
inline std::vector<uint8_t> macShapedCompanion() {
  const std::string name = "com.apple.quarantine";
  const std::string value = kQuarantineValue;
  std::vector<uint8_t> b(4096, 0);
  const uint32_t forkOffset = 4096 - 286;  // 3810
  put32(b, 0, 0x00051607);
  put32(b, 4, 0x00020000);
  const std::string filler = "Mac OS X        ";
  std::copy(filler.begin(), filler.end(), b.begin() + 8);
  put16(b, 24, 2);
  put32(b, 26, 9);
  put32(b, 30, 50);
  put32(b, 34, forkOffset - 50);
  put32(b, 38, 2);
  put32(b, 42, forkOffset);
  put32(b, 46, 286);
  // Finder Info (all zero) and 2 pad bytes, then the attribute header at 84.
  put32(b, 84, 0x41545452);
  put32(b, 88, 0);  // debug tag
  put32(b, 92, forkOffset);
  const uint32_t entrySize = (11 + name.size() + 1 + 3) & ~3u;  // 32
  const uint32_t dataStart = 120 + entrySize;
  put32(b, 96, dataStart);
  put32(b, 100, value.size());
  put16(b, 116, 0);  // flags
  put16(b, 118, 1);  // attribute count
  put32(b, 120, dataStart);
  put32(b, 124, value.size());
  put16(b, 128, 0);
  b[130] = static_cast<uint8_t>(name.size() + 1);
  std::copy(name.begin(), name.end(), b.begin() + 131);
  std::copy(value.begin(), value.end(), b.begin() + dataStart);
  const std::vector<uint8_t> fork = emptyResourceMap();
  std::copy(fork.begin(), fork.end(), b.begin() + forkOffset);
  return b;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_PLATFORM_APPLE_DOUBLE_BYTES_H
