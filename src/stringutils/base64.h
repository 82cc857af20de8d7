// Base64 codec over iterators, shared by the exported wrappers.
#ifndef VELZIP_STRINGUTILS_BASE64_H
#define VELZIP_STRINGUTILS_BASE64_H

#include <array>

namespace velzip {

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Values of the alphabet's bytes; every other byte maps to 0. Built at compile
// time so concurrent first calls cannot race on it.
constexpr std::array<unsigned char, 256> makeBase64DecodeTable() {
  std::array<unsigned char, 256> table{};
  for (unsigned char i = 0; i < 64; ++i) table[static_cast<unsigned char>(kBase64Alphabet[i])] = i;
  return table;
}
inline constexpr std::array<unsigned char, 256> kBase64DecodeTable = makeBase64DecodeTable();

// Standard Base64 with padding and no line breaks.
template <class InputIt, class OutputIt>
OutputIt Base64Encode(InputIt begin, InputIt end, OutputIt out) {
  unsigned bits = 0;  // pending bits, right-aligned
  int pendingBits = 0;
  int groupBytes = 0;  // bytes of the current 3-byte group
  for (; begin != end; ++begin) {
    bits = (bits << 8) | static_cast<unsigned char>(*begin);
    pendingBits += 8;
    groupBytes = groupBytes == 2 ? 0 : groupBytes + 1;
    while (pendingBits >= 6) {
      pendingBits -= 6;
      *out++ = kBase64Alphabet[(bits >> pendingBits) & 0x3F];
    }
    bits &= (1u << pendingBits) - 1;
  }
  if (pendingBits > 0) *out++ = kBase64Alphabet[(bits << (6 - pendingBits)) & 0x3F];
  if (groupBytes == 1) {
    *out++ = '=';
    *out++ = '=';
  } else if (groupBytes == 2) {
    *out++ = '=';
  }
  return out;
}

// Lenient decoding: bytes '0'..'z' (which includes '=' and some punctuation
// that decodes as 0) and '+', '/' count; everything else is skipped. Decoding
// goes on after a padded group. ok turns false on a short final group or
// misplaced padding; bytes decoded before that stay written.
template <class InputIt, class OutputIt>
OutputIt Base64Decode(InputIt begin, InputIt end, OutputIt out, bool& ok) {
  ok = true;
  unsigned char group[4];
  int count = 0;
  for (; begin != end; ++begin) {
    const unsigned char c = static_cast<unsigned char>(*begin);
    if (!((c >= '0' && c <= 'z') || c == '+' || c == '/')) continue;
    group[count++] = c;
    if (count < 4) continue;
    count = 0;
    if (group[0] == '=' || group[1] == '=') {
      ok = false;
      return out;
    }
    const unsigned v = (kBase64DecodeTable[group[0]] << 18) | (kBase64DecodeTable[group[1]] << 12) |
                       (kBase64DecodeTable[group[2]] << 6) | kBase64DecodeTable[group[3]];
    int bytes = 3;
    if (group[2] == '=') {
      if (group[3] != '=') {
        ok = false;
        return out;
      }
      bytes = 1;
    } else if (group[3] == '=') {
      bytes = 2;
    }
    *out++ = static_cast<unsigned char>(v >> 16);
    if (bytes > 1) *out++ = static_cast<unsigned char>(v >> 8);
    if (bytes > 2) *out++ = static_cast<unsigned char>(v);
  }
  if (count != 0) ok = false;
  return out;
}

}  // namespace velzip

#endif  // VELZIP_STRINGUTILS_BASE64_H
