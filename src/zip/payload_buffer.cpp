#include "zip/payload_buffer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "lzma/payload_encoder.h"

namespace velzip {

bool PayloadBuffer::append(const uint8_t* data, size_t size) {
  if (error_ != 0) {
    errno = error_;
    return false;
  }
  const size_t room = spilled_ > 0 ? 0 : cap_ - std::min(cap_, memory_.size());
  const size_t kept = std::min(room, size);
  if (kept > 0) {
    // Doubling, but never past the cap: a payload that fits costs no more.
    const size_t need = memory_.size() + kept;
    if (need > memory_.capacity())
      memory_.reserve(std::min(cap_, std::max(need, 2 * memory_.capacity())));
    memory_.insert(memory_.end(), data, data + kept);
  }
  return kept == size || spill(data + kept, size - kept);
}

bool PayloadBuffer::spill(const uint8_t* data, size_t size) {
  if (!file_.ok()) {
    if (folder_ < 0) errno = EBADF;
    if (folder_ < 0 || !file_.create(folder_, 0600)) {
      error_ = errno;
      return false;
    }
  }
  // The file is reused from payload to payload: stale bytes past the end
  // are never read.
  if (!writeAllAt(file_.fd(), data, size, spilled_)) {
    error_ = errno != 0 ? errno : EIO;
    errno = error_;
    return false;
  }
  spilled_ += size;
  return true;
}

void PayloadBuffer::clear() {
  memory_.clear();
  spilled_ = 0;
  error_ = 0;
}

void PayloadBuffer::release() {
  clear();
  std::vector<uint8_t>().swap(memory_);
  file_.discard();
  block_.reset();
  blockSize_ = 0;
}

bool PayloadBuffer::readSpilled(uint64_t offset, uint8_t* out, size_t size) {
  while (size > 0) {
    const ssize_t n = ::pread(file_.fd(), out, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;  // the file is shorter than what was written
      error_ = errno;
      return false;
    }
    out += n;
    size -= static_cast<size_t>(n);
    offset += static_cast<uint64_t>(n);
  }
  return true;
}

int PayloadBuffer::forEachBlock(size_t blockSize,
                                const std::function<int(const uint8_t*, size_t)>& fn) {
  const uint64_t total = size(), inMemory = memory_.size();
  for (uint64_t at = 0; at < total; at += blockSize) {
    const size_t n = static_cast<size_t>(std::min<uint64_t>(blockSize, total - at));
    const uint8_t* block = nullptr;
    if (at + n <= inMemory) {
      block = memory_.data() + at;
    } else {
      if (blockSize_ < blockSize) {
        block_ = std::make_unique<uint8_t[]>(blockSize);
        blockSize_ = blockSize;
      }
      // A block may start in memory and end in the file.
      const size_t head = at < inMemory ? static_cast<size_t>(inMemory - at) : 0;
      if (head > 0) std::memcpy(block_.get(), memory_.data() + at, head);
      if (!readSpilled(at + head - inMemory, block_.get() + head, n - head)) return -1;
      block = block_.get();
    }
    if (const int answer = fn(block, n)) return answer;
  }
  return 0;
}

}  // namespace velzip
