// Text and number conversions. UTF-8 is the native encoding on Linux, so the
// native/UTF-8 pairs copy; callers still name the direction they mean.
#include <utf8proc.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <memory>
#include <sstream>

#include "frame/handles.h"
#include "frame/log_emit.h"
#include "velzip/StringUtils.h"

namespace StringUtils {
namespace {

constexpr char kComponent[] = "StringUtils";

template <class T>
T readHex(const std::string& text) {
  T value{};
  std::istringstream in(text);
  in.setf(std::ios::hex, std::ios::basefield);
  in >> value;
  return value;
}

bool hasHexPrefix(const std::string& text) {
  return text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

}  // namespace

bool NativeToUTF8(const char* text, std::string& out, void*) {
  out = text;
  return true;
}

bool NativeToUTF8(const std::string& text, std::string& out, void*) {
  out = text;
  return true;
}

std::string NativeToUTF8(const std::string& text, void* logger) {
  std::string out;
  NativeToUTF8(text, out, logger);
  return out;
}

bool UTF8ToNative(const char* text, std::string& out, void*) {
  out = text != nullptr ? text : "";
  return true;
}

bool UTF8ToNative(const std::string& text, std::string& out, void*) {
  out = text;
  return true;
}

std::string UTF8ToNative(const std::string& text, void* logger) {
  std::string out;
  UTF8ToNative(text, out, logger);
  return out;
}

bool UTF8ToNFCNative(const std::string& text, std::string& out, void*) {
  utf8proc_uint8_t* composed = nullptr;
  const utf8proc_ssize_t n =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                   static_cast<utf8proc_ssize_t>(text.size()), &composed,
                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  std::unique_ptr<utf8proc_uint8_t, velzip::FreeDeleter> owner(composed);
  // Text that is not UTF-8 cannot be composed: hand it back as it came.
  if (n < 0) {
    out = text;
    return true;
  }
  out.assign(reinterpret_cast<const char*>(composed), static_cast<size_t>(n));
  return true;
}

bool UTF8ToNFCNative(const char* text, std::string& out, void* logger) {
  return UTF8ToNFCNative(std::string(text != nullptr ? text : ""), out, logger);
}

bool IntToNativeString(int value, std::string& out, void*) {
  out = std::to_string(value);
  return true;
}

bool LongToNativeString(long long value, std::string& out) {
  out = std::to_string(value);
  return true;
}

bool DoubleToNativeString(double value, std::string& out) {
  out = StdStringFromStringWithFormat("%f", value);
  return true;
}

bool PtrToNativeStr(const void* ptr, std::string& out, void*) {
  char buf[128] = {};
  std::snprintf(buf, sizeof buf, "%p", ptr);
  out = buf;
  return true;
}

std::string IntToUTF8(int value) {
  return std::to_string(value);
}

std::string IntToNativeString(int value) {
  return std::to_string(value);
}

std::string LongToUTF8(long value) {
  return std::to_string(value);
}

int UTF8ToInt(const std::string& text, void*) {
  return std::atoi(text.c_str());
}

int NativeStringToInt(const std::string& text, void*) {
  return std::atoi(text.c_str());
}

long long UTF8ToLong(const std::string& text, void*) {
  return std::atoll(text.c_str());
}

long long NativeStringToLong(const std::string& text, void*) {
  if (text.empty()) return 0;
  if (hasHexPrefix(text)) return readHex<long long>(text);
  long long value = 0;
  std::istringstream in(text);
  in >> value;
  return in.fail() ? 0 : value;
}

void* NativeStrToPtr(const std::string& text, void*) {
  if (hasHexPrefix(text)) return readHex<void*>(text);
  return reinterpret_cast<void*>(static_cast<intptr_t>(std::atoll(text.c_str())));
}

bool StringCopy(char* dst, int dstSize, const char* src, int /*srcSize*/, void* logger) {
  if (dst == nullptr || src == nullptr) {
    velzip::logUtility(logger, kLogLevelWarning, kComponent, "srcPtr or dstPtr is NULL");
    return false;
  }
  if (dstSize <= 0) {
    velzip::logUtility(logger, kLogLevelWarning, kComponent,
                       "destination or source length is zero");
    return false;
  }
  const size_t size = static_cast<size_t>(dstSize);
  const size_t len = std::strlen(src);
  const size_t n = len < size ? len : size - 1;
  std::memcpy(dst, src, n);
  dst[n] = '\0';
  if (len < size) return true;
  velzip::logUtility(logger, kLogLevelWarning, kComponent,
                     "Failed to Copy SrcStr to DestStr, error: destination buffer is small");
  return false;
}

std::string GetLastErrorString(int code) {
  if (code == -1) code = errno;
  char buf[256];
  // The XSI variant fills buf; the GNU one may return a static text instead.
  const char* text = strerror_r(code, buf, sizeof buf);
  return "Error " + IntToNativeString(code) + " " + text;
}

std::string ToLower(const std::string& text) {
  std::string out = text;
  for (char& c : out)
    if (static_cast<unsigned char>(c) < 0x80) c = static_cast<char>(std::tolower(c));
  return out;
}

std::string ToUpper(const std::string& text) {
  std::string out = text;
  for (char& c : out)
    if (static_cast<unsigned char>(c) < 0x80) c = static_cast<char>(std::toupper(c));
  return out;
}

bool IsMultiByte(const std::wstring& text) {
  for (wchar_t c : text)
    if (static_cast<uint32_t>(c) >= 256) return true;
  return false;
}

std::string StdStringFromStringWithFormat(const char* format, ...) {
  char buf[4096];
  va_list ap;
  va_start(ap, format);
  const int n = std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  if (n < 0) return {};
  return buf;
}

}  // namespace StringUtils
