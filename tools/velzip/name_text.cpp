#include "name_text.h"

#include <cstdint>
#include <cstdio>

namespace velzip_tool {
namespace {

// The length of the UTF-8 sequence at text[at] and its code point; 0 when
// it is not one (overlong forms and surrogates included).
size_t utf8At(const std::string& text, size_t at, uint32_t& cp) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at);
  size_t len = 0;
  uint32_t least = 0;
  if (lead < 0x80) {
    cp = lead;
    return 1;
  } else if ((lead & 0xE0) == 0xC0) {
    len = 2, cp = lead & 0x1F, least = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    len = 3, cp = lead & 0x0F, least = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    len = 4, cp = lead & 0x07, least = 0x10000;
  } else {
    return 0;
  }
  if (at + len > text.size()) return 0;
  for (size_t i = 1; i < len; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80) return 0;
    cp = cp << 6 | (byte(at + i) & 0x3F);
  }
  if (cp < least || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

std::string escaped(const char* format, unsigned value) {
  char buf[8];
  std::snprintf(buf, sizeof buf, format, value);
  return buf;
}

}  // namespace

std::string printable(const std::string& text) {
  std::string out;
  for (size_t at = 0; at < text.size();) {
    uint32_t cp = 0;
    const size_t len = utf8At(text, at, cp);
    const unsigned char byte = static_cast<unsigned char>(text[at]);
    if (len == 0) {
      out += escaped("\\x%02x", byte);
      ++at;
      continue;
    }
    if (cp == '\n') {
      out += "\\n";
    } else if (cp == '\t') {
      out += "\\t";
    } else if (cp == '\r') {
      out += "\\r";
    } else if (cp == '\\') {
      out += "\\\\";
    } else if (cp < 0x20 || cp == 0x7F) {
      out += escaped("\\x%02x", cp);
    } else if (cp >= 0x80 && cp < 0xA0) {
      out += escaped("\\u%04x", cp);
    } else {
      out.append(text, at, len);
    }
    at += len;
  }
  return out;
}

std::string jsonString(const std::string& text) {
  std::string out = "\"";
  for (size_t at = 0; at < text.size();) {
    uint32_t cp = 0;
    const size_t len = utf8At(text, at, cp);
    if (len == 0) {
      out += "\xEF\xBF\xBD";  // U+FFFD
      ++at;
      continue;
    }
    if (cp == '"' || cp == '\\') {
      out += '\\';
      out += static_cast<char>(cp);
    } else if (cp < 0x20 || cp == 0x7F) {
      out += escaped("\\u%04x", cp);
    } else {
      out.append(text, at, len);
    }
    at += len;
  }
  return out + "\"";
}

bool isUtf8(const std::string& text) {
  uint32_t cp = 0;
  for (size_t at = 0, len = 0; at < text.size(); at += len) {
    if ((len = utf8At(text, at, cp)) == 0) return false;
  }
  return true;
}

std::string hexBytes(const std::string& bytes) {
  std::string out;
  for (unsigned char c : bytes) out += escaped("%02x", c);
  return out;
}

}  // namespace velzip_tool
