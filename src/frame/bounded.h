// Bounded copy and concatenation into the fixed path buffers of the writers
// and readers. Longer text is cut silently and the result is always
// terminated (when size > 0). Both return the length they tried to create,
// so callers can tell truncation apart.
#ifndef VELZIP_FRAME_BOUNDED_H
#define VELZIP_FRAME_BOUNDED_H

#include <cstddef>

namespace velzip {

constexpr size_t kPathBufferSize = 1024;

size_t boundedCopy(char* dst, const char* src, size_t size);
size_t boundedAppend(char* dst, const char* src, size_t size);

template <size_t N>
size_t boundedCopy(char (&dst)[N], const char* src) {
  return boundedCopy(dst, src, N);
}
template <size_t N>
size_t boundedAppend(char (&dst)[N], const char* src) {
  return boundedAppend(dst, src, N);
}

}  // namespace velzip

#endif  // VELZIP_FRAME_BOUNDED_H
