#include "unzip/byte_source.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "unzip/archive_file.h"

namespace velzip {

ssize_t RangeSource::read(uint8_t* buf, size_t size) {
  if (left_ == 0) return 0;
  const size_t want = static_cast<size_t>(std::min<uint64_t>(size, left_));
  if (!ahead_.empty()) {
    std::memcpy(buf, ahead_.data() + (ahead_.size() - left_), want);
    offset_ += want;
    left_ -= want;
    return static_cast<ssize_t>(want);
  }
  const ssize_t got = file_.readAt(offset_, buf, want);
  if (got < 0) return error_.fail(std::string("cannot read the archive: ") + std::strerror(errno));
  if (got == 0) return error_.fail("the archive ends inside the entry's data");
  offset_ += static_cast<uint64_t>(got);
  left_ -= static_cast<uint64_t>(got);
  return got;
}

ssize_t readFully(ByteSource& source, uint8_t* buf, size_t size) {
  size_t done = 0;
  while (done < size) {
    const ssize_t n = source.read(buf + done, size - done);
    if (n < 0) return -1;
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

}  // namespace velzip
