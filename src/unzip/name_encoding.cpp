#include "unzip/name_encoding.h"

#include <zlib.h>

#include <cstdint>

namespace velzip {
namespace {

constexpr uint16_t kUnicodePathBlock = 0x7075;
constexpr uint8_t kUnicodePathVersion = 1;
constexpr size_t kUnicodePathHeader = 5;  // version and the stored name's CRC-32
constexpr unsigned kHostUnix = 3;
constexpr unsigned kHostDarwin = 19;

// Code page 437 from 0x80 on; below that it is ASCII.
constexpr char16_t kCp437High[128] = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7,  // 0x80
    0x00EA, 0x00EB, 0x00E8, 0x00EF, 0x00EE, 0x00EC, 0x00C4, 0x00C5,  // 0x88
    0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9,  // 0x90
    0x00FF, 0x00D6, 0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192,  // 0x98
    0x00E1, 0x00ED, 0x00F3, 0x00FA, 0x00F1, 0x00D1, 0x00AA, 0x00BA,  // 0xA0
    0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB,  // 0xA8
    0x2591, 0x2592, 0x2593, 0x2502, 0x2524, 0x2561, 0x2562, 0x2556,  // 0xB0
    0x2555, 0x2563, 0x2551, 0x2557, 0x255D, 0x255C, 0x255B, 0x2510,  // 0xB8
    0x2514, 0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F,  // 0xC0
    0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550, 0x256C, 0x2567,  // 0xC8
    0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553, 0x256B,  // 0xD0
    0x256A, 0x2518, 0x250C, 0x2588, 0x2584, 0x258C, 0x2590, 0x2580,  // 0xD8
    0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4,  // 0xE0
    0x03A6, 0x0398, 0x03A9, 0x03B4, 0x221E, 0x03C6, 0x03B5, 0x2229,  // 0xE8
    0x2261, 0x00B1, 0x2265, 0x2264, 0x2320, 0x2321, 0x00F7, 0x2248,  // 0xF0
    0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,  // 0xF8
};

void appendUtf8(std::string& out, char16_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | c >> 6);
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | c >> 12);
    out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

// The bytes a UTF-8 sequence led by lead needs and the range its second byte
// must fall in (which rules out overlong forms, surrogates and code points
// past U+10FFFF); 0 for a byte that cannot lead.
size_t sequenceLength(unsigned char lead, unsigned char& low, unsigned char& high) {
  low = 0x80;
  high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) {
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
    return 3;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
    return 4;
  }
  return 0;
}

// The UTF-8 name of a Unicode Path block written for exactly this stored
// name; a stale one (the name was changed by a tool that kept the block)
// does not count.
bool unicodePathName(const ZipEntryRecord& rec, std::string& name) {
  bool found = false;
  forEachExtraBlock(rec.extra, [&](uint16_t id, const unsigned char* d, size_t size) {
    if (found || id != kUnicodePathBlock || size <= kUnicodePathHeader ||
        d[0] != kUnicodePathVersion) {
      return;
    }
    // Only names that have such a block pay for the check.
    const uint32_t storedCrc = static_cast<uint32_t>(crc32(
        0L, reinterpret_cast<const Bytef*>(rec.name.data()), static_cast<uInt>(rec.name.size())));
    if (le32(d + 1) != storedCrc) return;
    std::string candidate(reinterpret_cast<const char*>(d) + kUnicodePathHeader,
                          size - kUnicodePathHeader);
    if (!isValidUtf8(candidate)) return;
    name = std::move(candidate);
    found = true;
  });
  return found;
}

// MS-DOS, Windows and the other hosts whose zip tools wrote names in the
// OEM code page; Unix and macOS tools wrote the bytes they had.
bool namesInCodePage(const ZipEntryRecord& rec) {
  const unsigned host = rec.versionMadeBy >> 8;
  return host != kHostUnix && host != kHostDarwin;
}

}  // namespace

bool isValidUtf8(const std::string& text) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  for (size_t i = 0; i < n;) {
    if (p[i] < 0x80) {
      ++i;
      continue;
    }
    unsigned char low, high;
    const size_t length = sequenceLength(p[i], low, high);
    if (length == 0 || i + length > n || p[i + 1] < low || p[i + 1] > high) return false;
    for (size_t k = 2; k < length; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) return false;
    }
    i += length;
  }
  return true;
}

std::string cp437ToUtf8(const std::string& text) {
  std::string out;
  out.reserve(text.size() * 2);
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    appendUtf8(out, byte < 0x80 ? byte : kCp437High[byte - 0x80]);
  }
  return out;
}

std::string decodedName(const ZipEntryRecord& rec) {
  std::string name;
  if (unicodePathName(rec, name)) return name;
  if ((rec.flag & kFlagUtf8) != 0 || !namesInCodePage(rec) || isValidUtf8(rec.name)) {
    return rec.name;
  }
  return cp437ToUtf8(rec.name);
}

}  // namespace velzip
