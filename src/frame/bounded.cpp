#include "frame/bounded.h"

#include <cstring>

namespace velzip {

size_t boundedCopy(char* dst, const char* src, size_t size) {
  const size_t len = std::strlen(src);
  if (size != 0) {
    const size_t n = len < size ? len : size - 1;
    std::memcpy(dst, src, n);
    dst[n] = '\0';
  }
  return len;
}

size_t boundedAppend(char* dst, const char* src, size_t size) {
  const size_t used = strnlen(dst, size);
  if (used == size) return size + std::strlen(src);  // not terminated: leave it
  return used + boundedCopy(dst + used, src, size - used);
}

}  // namespace velzip
