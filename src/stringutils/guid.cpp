#include <uuid/uuid.h>

#include <cctype>
#include <cstdlib>
#include <iterator>

#include "frame/log_emit.h"
#include "stringutils/base64.h"
#include "velzip/StringUtils.h"

namespace StringUtils {

bool GUIDString(std::string& out) {
  uuid_t id;
  uuid_generate_random(id);
  char text[37];
  uuid_unparse_upper(id, text);
  out.assign(text, 36);
  return true;
}

bool GUIDToBase64(std::string& guid, void* logger) {
  std::string hex(guid);
  Replace(hex, "}", "");
  Replace(hex, "{", "");
  Replace(hex, "-", "");
  hex = NativeToUTF8(hex, nullptr);

  // Two hex digits per byte, the last pair possibly single; a pair is read as
  // far as it holds hex digits, so one that starts with anything else is 0.
  std::string bytes;
  bytes.reserve(hex.size() / 2 + 1);
  for (size_t i = 0; i < hex.size(); i += 2) {
    char pair[3] = {hex[i], i + 1 < hex.size() ? hex[i + 1] : '\0', '\0'};
    long value = 0;
    if (std::isxdigit(static_cast<unsigned char>(pair[0]))) value = std::strtol(pair, nullptr, 16);
    bytes.push_back(static_cast<char>(value & 0xFF));
  }

  if (bytes.empty()) {
    // The encoder's complaint goes to the process-wide sink, never the handle.
    velzip::logUtility(nullptr, 40, "StringUtils", "Invalid arguments to utilEncodeDataInBase64.");
    velzip::logUtility(logger, 40, "StringUtils", "Failed to convert GUID to Base64");
    return false;
  }

  std::string encoded;
  encoded.reserve((bytes.size() + 2) / 3 * 4);
  velzip::Base64Encode(bytes.begin(), bytes.end(), std::back_inserter(encoded));
  encoded = UTF8ToNative(encoded, nullptr);
  Replace(encoded, "/", "_");
  Replace(encoded, "+", "-");
  // Only the "==" padding for a GUID's 16 bytes; other lengths lose real text.
  encoded.resize(encoded.size() - 2);
  guid.swap(encoded);
  return true;
}

}  // namespace StringUtils
