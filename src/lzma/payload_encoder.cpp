#include "lzma/payload_encoder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "frame/handles.h"
#include "lzma/lzma2_codec.h"

namespace velzip {
namespace {

constexpr size_t kIoBlock = 256 * 1024;

}  // namespace

ssize_t readRetry(int fd, uint8_t* buf, size_t size) {
  for (;;) {
    const ssize_t n = ::read(fd, buf, size);
    if (n >= 0 || errno != EINTR) return n;
  }
}

bool writeAllAt(int fd, const uint8_t* data, size_t size, uint64_t offset) {
  while (size > 0) {
    const ssize_t n = ::pwrite(fd, data, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
    offset += static_cast<uint64_t>(n);
  }
  return true;
}

bool writeAll(int fd, const uint8_t* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

void PayloadEncoder::release() {
  if (active_) lzma_end(&strm_);
  strm_ = LZMA_STREAM_INIT;
  active_ = false;
  in_.reset();
  out_.reset();
}

bool PayloadEncoder::encode(uint64_t sizeHint, const Reader& read, const Writer& write,
                            uint64_t* sourceBytes, int level) {
  // Re-initialising the same stream keeps liblzma's allocations when the
  // dictionary size repeats.
  lzma_options_lzma opt = encoderOptions(workingDictSize(sizeHint), level);
  lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &opt}, {LZMA_VLI_UNKNOWN, nullptr}};
  if (lzma_raw_encoder(&strm_, filters) != LZMA_OK) {
    release();
    return false;
  }
  active_ = true;
  if (!in_) {
    in_ = std::make_unique<uint8_t[]>(kIoBlock);
    out_ = std::make_unique<uint8_t[]>(kIoBlock);
  }

  uint64_t consumed = 0;
  out_[0] = kLzma2PropByte;
  strm_.next_out = out_.get() + 1;
  strm_.avail_out = kIoBlock - 1;
  strm_.next_in = nullptr;
  strm_.avail_in = 0;
  lzma_action action = LZMA_RUN;
  for (;;) {
    if (strm_.avail_in == 0 && action == LZMA_RUN) {
      const ssize_t n = read(in_.get(), kIoBlock);
      if (n < 0 || static_cast<size_t>(n) > kIoBlock) return false;
      strm_.next_in = in_.get();
      strm_.avail_in = static_cast<size_t>(n);
      consumed += static_cast<uint64_t>(n);
      if (n == 0) action = LZMA_FINISH;
    }
    const lzma_ret ret = lzma_code(&strm_, action);
    if (strm_.avail_out == 0 || ret == LZMA_STREAM_END) {
      if (!write(out_.get(), kIoBlock - strm_.avail_out)) return false;
      strm_.next_out = out_.get();
      strm_.avail_out = kIoBlock;
    }
    if (ret == LZMA_STREAM_END) break;
    if (ret != LZMA_OK) return false;
  }
  if (sourceBytes != nullptr) *sourceBytes = consumed;
  return true;
}

bool PayloadEncoder::encodeFile(const char* sourcePath, int outFd, uint64_t& sourceBytes,
                                uint64_t& payloadBytes) {
  // Non-blocking: a fifo that slipped in fails instead of waiting for a writer.
  UniqueFd in(::open(sourcePath, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!in.ok()) return false;
  struct stat st;
  const uint64_t size = fstat(in.get(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : UINT64_MAX;
  uint64_t offset = 0;
  const bool ok = encode(
      size, [&](uint8_t* buf, size_t n) { return readRetry(in.get(), buf, n); },
      [&](const uint8_t* buf, size_t n) {
        if (!writeAllAt(outFd, buf, n, offset)) return false;
        offset += n;
        return true;
      },
      &sourceBytes);
  // Shrinking (never to zero) rather than truncating first: some file systems
  // flush a file that was emptied and rewritten as soon as it is closed.
  if (!ok || ::ftruncate(outFd, static_cast<off_t>(offset)) != 0) return false;
  payloadBytes = offset;
  return true;
}

}  // namespace velzip
