// One encoded payload on its way into an entry. The first bytes stay in
// memory, up to a cap; the rest goes to an unnamed file in a folder the
// owner names (the archive's own, so that a small /tmp never matters and a
// killed process leaves nothing). A buffer owns all it holds and shares
// nothing, so several can be filled at once, one per worker.
#ifndef VELZIP_ZIP_PAYLOAD_BUFFER_H
#define VELZIP_ZIP_PAYLOAD_BUFFER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "frame/staged_file.h"

namespace velzip {

class PayloadBuffer {
 public:
  // Past a few MiB the encoding costs seconds and a trip through the page
  // cache nothing, while memory adds to the encoder's own for a large file.
  static constexpr size_t kDefaultMemoryCap = size_t{4} << 20;

  explicit PayloadBuffer(size_t memoryCap = kDefaultMemoryCap) : cap_(memoryCap) {}
  PayloadBuffer(const PayloadBuffer&) = delete;
  PayloadBuffer& operator=(const PayloadBuffer&) = delete;

  // Where bytes beyond the cap go: a folder descriptor, borrowed, that must
  // outlive the buffer's file (release() ends it).
  void setSpillFolder(int folderFd) { folder_ = folderFd; }

  // Adds bytes at the end. False with errno set (and kept in error()).
  bool append(const uint8_t* data, size_t size);
  // Empties the buffer; its memory and file are kept for the next payload.
  void clear();
  // Frees the memory and closes the file.
  void release();

  uint64_t size() const { return memory_.size() + spilled_; }
  bool spilled() const { return spilled_ > 0; }
  // errno of the first failure since clear(), 0 when none.
  int error() const { return error_; }

  // Hands the payload to fn in order, in blocks of blockSize bytes (the last
  // one shorter). Stops at fn's first non-zero answer and returns it; -1
  // (errno set) when the file cannot be read back; 0 when all was handed.
  int forEachBlock(size_t blockSize, const std::function<int(const uint8_t*, size_t)>& fn);

 private:
  bool spill(const uint8_t* data, size_t size);
  bool readSpilled(uint64_t offset, uint8_t* out, size_t size);

  size_t cap_;
  int folder_ = -1;
  std::vector<uint8_t> memory_;
  StagedFile file_;  // never published: it disappears with its descriptor
  uint64_t spilled_ = 0;
  int error_ = 0;
  std::unique_ptr<uint8_t[]> block_;  // assembles blocks that leave memory
  size_t blockSize_ = 0;
};

}  // namespace velzip

#endif  // VELZIP_ZIP_PAYLOAD_BUFFER_H
