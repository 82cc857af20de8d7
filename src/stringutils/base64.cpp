#include "stringutils/base64.h"

#include <climits>
#include <cstring>
#include <iterator>
#include <memory>
#include <vector>

#include "frame/log_emit.h"
#include "velzip/StringUtils.h"

namespace StringUtils {

bool EncodeDataInBase64(const char* data, int length, std::string& out, void* logger) {
  if (data == nullptr || length <= 0) {
    velzip::logUtility(logger, 40, "StringUtils", "Invalid arguments to utilEncodeDataInBase64.");
    return false;
  }
  out.reserve(out.size() + (static_cast<size_t>(length) + 2) / 3 * 4);
  velzip::Base64Encode(data, data + length, std::back_inserter(out));
  return true;
}

// length only has to be non-zero: the text is read to its terminating zero.
bool DecodeBase64Data(const char* text, int length, std::string& out, void* logger) {
  if (text == nullptr || length == 0) {
    velzip::logUtility(logger, 40, "StringUtils", "Invalid arguments to utilDecodeBase64Data.");
    return false;
  }
  const size_t n = std::strlen(text);
  std::string decoded;
  decoded.reserve(n / 4 * 3);
  bool ok = false;
  velzip::Base64Decode(text, text + n, std::back_inserter(decoded), ok);
  if (!ok) {
    velzip::logUtility(logger, 40, "StringUtils", "Failed to decode from base 64.");
    return false;
  }
  out.swap(decoded);
  return true;
}

bool DecodeBase64Data(const char* text, int length, unsigned char** buffer, int& size,
                      void* logger) {
  if (text == nullptr || length == 0) {
    velzip::logUtility(logger, 40, "StringUtils", "Invalid arguments to utilDecodeBase64Data.");
    return false;
  }
  const size_t n = std::strlen(text);
  std::vector<unsigned char> decoded;
  decoded.reserve(n / 4 * 3);
  bool ok = false;
  velzip::Base64Decode(text, text + n, std::back_inserter(decoded), ok);
  // A count that does not fit size cannot be reported; treat it as a failure.
  if (!ok || decoded.size() > static_cast<size_t>(INT_MAX)) {
    velzip::logUtility(logger, 40, "StringUtils", "Failed to decode from base 64.");
    return false;
  }
  size = static_cast<int>(decoded.size());
  if (buffer != nullptr && !decoded.empty()) {
    // The caller owns the copy and releases it with delete[].
    auto copy = std::make_unique<unsigned char[]>(decoded.size());
    std::memcpy(copy.get(), decoded.data(), decoded.size());
    *buffer = copy.release();
  }
  return true;
}

}  // namespace StringUtils
