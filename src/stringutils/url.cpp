#include <utf8proc.h>

#include <string>

#include "velzip/StringUtils.h"

namespace {

bool isValidUTF8(const std::string& text) {
  const auto* p = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  utf8proc_ssize_t left = static_cast<utf8proc_ssize_t>(text.size());
  while (left > 0) {
    utf8proc_int32_t cp;
    const utf8proc_ssize_t n = utf8proc_iterate(p, left, &cp);
    if (n <= 0) return false;
    p += n;
    left -= n;
  }
  return true;
}

// Left as they are: letters, digits and the unreserved marks. Everything else
// (the reserved ":/?#[]@$&+,;=", space, '%', controls, bytes that are illegal
// in a URL and every non-ASCII byte) is escaped.
bool keepsUnescaped(unsigned char c) {
  if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
  switch (c) {
    case '-':
    case '.':
    case '_':
    case '~':
    case '!':
    case '\'':
    case '(':
    case ')':
    case '*':
      return true;
    default:
      return false;
  }
}

int hexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

namespace StringUtils {

bool GetURLEncodedString(std::string& text) {
  if (!isValidUTF8(text)) return false;
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size() * 3);
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (keepsUnescaped(c)) {
      encoded.push_back(ch);
    } else {
      encoded.push_back('%');
      encoded.push_back(kHex[c >> 4]);
      encoded.push_back(kHex[c & 0x0F]);
    }
  }
  text.swap(encoded);
  return true;
}

// A '%' without two hex digits after it is a malformed escape and fails, as
// do escapes whose bytes are not valid UTF-8.
bool GetURLDecodedString(std::string& text) {
  if (text.empty()) return true;
  if (!isValidUTF8(text)) return false;
  std::string decoded;
  decoded.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded.push_back(text[i]);
      continue;
    }
    if (i + 2 >= text.size()) return false;
    const int hi = hexValue(static_cast<unsigned char>(text[i + 1]));
    const int lo = hexValue(static_cast<unsigned char>(text[i + 2]));
    if (hi < 0 || lo < 0) return false;
    decoded.push_back(static_cast<char>(hi << 4 | lo));
    i += 2;
  }
  if (!isValidUTF8(decoded)) return false;
  text.swap(decoded);
  return true;
}

}  // namespace StringUtils
