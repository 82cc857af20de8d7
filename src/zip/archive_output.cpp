#include "zip/archive_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "lzma/payload_encoder.h"
#include "zip/failure_text.h"
#include "zip/zip64_end.h"

namespace velzip {
namespace {

constexpr size_t kBufferSize = 256 * 1024;
constexpr size_t kCopyChunk = size_t{1} << 30;

// copy_file_range cannot serve this pair of files; plain reads can.
bool copyUnsupported(int err) {
  return err == EXDEV || err == EINVAL || err == ENOSYS || err == EOPNOTSUPP || err == EBADF;
}

ArchiveOutput* self(voidpf opaque) {
  return static_cast<ArchiveOutput*>(opaque);
}

}  // namespace

ArchiveOutput::ArchiveOutput() {
  functions_.zopen64_file = onOpen;
  functions_.zread_file = onRead;
  functions_.zwrite_file = onWrite;
  functions_.ztell64_file = onTell;
  functions_.zseek64_file = onSeek;
  functions_.zclose_file = onClose;
  functions_.zerror_file = onError;
  functions_.opaque = this;
}

bool ArchiveOutput::create(const std::string& path, bool append, std::string& why) {
  discard();
  const auto failed = [&](const char* what) {
    why = failureText(what, path, errno);
    discard();
    return false;
  };
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    errno = EINVAL;
    return failed("cannot create");
  }
  name_ = path.substr(slash + 1);
  if (name_.empty() || name_ == "." || name_ == "..") {
    errno = EISDIR;
    return failed("cannot create");
  }
  const std::string folder = slash == 0 ? "/" : path.substr(0, slash);
  folder_.reset(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder_.ok()) return failed("cannot create");

  struct stat old;
  const bool exists = fstatat(folder_.get(), name_.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  if (!exists && errno != ENOENT) return failed("cannot create");
  mode_t mode = 0666;
  if (exists) {
    if (S_ISDIR(old.st_mode)) {
      errno = EISDIR;
      return failed("cannot create");
    }
    if (!S_ISREG(old.st_mode) && !S_ISLNK(old.st_mode)) {
      why = "cannot replace " + path + ": not a regular file";
      discard();
      return false;
    }
    // A file the caller could not write is not replaced behind its back;
    // one it could keeps its permissions.
    if (S_ISREG(old.st_mode)) {
      if (faccessat(folder_.get(), name_.c_str(), W_OK, AT_EACCESS) != 0)
        return failed("cannot replace");
      mode = old.st_mode & 0777;
    }
    replaces_ = true;
  }
  if (!staged_.create(folder_.get(), mode)) return failed("cannot create");
  if (exists && S_ISREG(old.st_mode) && fchmod(staged_.fd(), mode) != 0)
    return failed("cannot create");
  if (append && exists && !copyExisting(path, why)) {
    discard();
    return false;
  }
  return true;
}

bool ArchiveOutput::copyExisting(const std::string& path, std::string& why) {
  UniqueFd in(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat st;
  if (!in.ok() || fstat(in.get(), &st) != 0) {
    why = failureText("cannot read", path, errno);
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    why = "cannot append to " + path + ": not a regular file";
    return false;
  }
  uint64_t copied = 0;
  for (;;) {
    const ssize_t n = copy_file_range(in.get(), nullptr, staged_.fd(), nullptr, kCopyChunk, 0);
    if (n > 0) {
      copied += static_cast<uint64_t>(n);
      continue;
    }
    if (n == 0 || copyUnsupported(errno)) break;
    if (errno == EINTR) continue;
    why = failureText("cannot append to", path, errno);
    return false;
  }
  // Whatever copy_file_range left, plainly: both offsets moved with it.
  auto block = std::make_unique<uint8_t[]>(kBufferSize);
  for (;;) {
    const ssize_t n = readRetry(in.get(), block.get(), kBufferSize);
    if (n < 0) {
      why = failureText("cannot read", path, errno);
      return false;
    }
    if (n == 0) break;
    if (!writeAll(staged_.fd(), block.get(), static_cast<size_t>(n))) {
      why = failureText("cannot append to", path, errno);
      return false;
    }
    copied += static_cast<uint64_t>(n);
  }
  pos_ = end_ = copied;
  continues_ = true;
  return true;
}

bool ArchiveOutput::flush() {
  if (buffered_ == 0 || dropping_) {
    buffered_ = 0;
    return true;
  }
  const bool ok = writeAllAt(staged_.fd(), buffer_.get(), buffered_, bufferStart_);
  if (!ok) fail(errno != 0 ? errno : EIO);
  buffered_ = 0;
  return ok;
}

size_t ArchiveOutput::write(const uint8_t* data, size_t size) {
  if (dropping_) {
    pos_ += size;
    return size;
  }
  if (error_ != 0) return 0;
  if (!buffer_) buffer_ = std::make_unique<uint8_t[]>(kBufferSize);
  if (buffered_ == 0) bufferStart_ = pos_;
  // Inside or right after what is buffered, and within the buffer: patches
  // of headers land here too.
  const bool fits = pos_ >= bufferStart_ && pos_ <= bufferStart_ + buffered_ &&
                    pos_ - bufferStart_ + size <= kBufferSize;
  if (!fits) {
    if (!flush()) return 0;
    bufferStart_ = pos_;
    if (size >= kBufferSize) {
      if (!writeAllAt(staged_.fd(), data, size, pos_)) {
        fail(errno != 0 ? errno : EIO);
        return 0;
      }
      pos_ += size;
      end_ = std::max(end_, pos_);
      return size;
    }
  }
  const size_t at = static_cast<size_t>(pos_ - bufferStart_);
  std::memcpy(buffer_.get() + at, data, size);
  buffered_ = std::max(buffered_, at + size);
  pos_ += size;
  end_ = std::max(end_, pos_);
  return size;
}

size_t ArchiveOutput::read(uint8_t* data, size_t size) {
  if (!flush()) return 0;
  size_t done = 0;
  while (done < size) {
    const ssize_t n = ::pread(staged_.fd(), data + done, size - done, static_cast<off_t>(pos_));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail(errno);
    if (n <= 0) break;
    done += static_cast<size_t>(n);
    pos_ += static_cast<uint64_t>(n);
  }
  return done;
}

bool ArchiveOutput::completeEnd(uint64_t entries) {
  if (entries < 0xFFFF || dropping_) return error_ == 0;
  uint8_t tail[kEndRecordSize + kZip64LocatorSize];
  const size_t n = static_cast<size_t>(std::min<uint64_t>(sizeof tail, end_));
  pos_ = end_ - n;
  if (n < kEndRecordSize || read(tail, n) != n) return false;
  if (hasZip64Locator(tail, n)) return true;
  uint8_t record[kEndRecordSize];
  std::memcpy(record, tail + n - kEndRecordSize, kEndRecordSize);
  const std::string records = zip64EndRecords(record, end_ - kEndRecordSize, entries);
  if (records.empty()) {
    fail(EINVAL);
    return false;
  }
  pos_ = end_ - kEndRecordSize;
  write(reinterpret_cast<const uint8_t*>(records.data()), records.size());
  return error_ == 0;
}

bool ArchiveOutput::publish() {
  if (!staged_.ok()) {
    errno = EBADF;
    return false;
  }
  if (!flush() || error_ != 0) {
    errno = error_;
    return false;
  }
  // A replaced archive is gone for good once the name moves: the new one
  // must be on the disk before that.
  if (!staged_.publish(folder_.get(), name_.c_str(), replaces_)) return false;
  discard();
  return true;
}

void ArchiveOutput::discard() {
  staged_.discard();
  folder_.reset();
  name_.clear();
  continues_ = replaces_ = dropping_ = false;
  error_ = 0;
  pos_ = end_ = bufferStart_ = 0;
  buffered_ = 0;
}

voidpf ArchiveOutput::onOpen(voidpf opaque, const void* /*name*/, int /*mode*/) {
  return self(opaque)->staged_.ok() ? opaque : nullptr;
}

uLong ArchiveOutput::onRead(voidpf opaque, voidpf /*stream*/, void* buf, uLong size) {
  return self(opaque)->read(static_cast<uint8_t*>(buf), size);
}

uLong ArchiveOutput::onWrite(voidpf opaque, voidpf /*stream*/, const void* buf, uLong size) {
  return self(opaque)->write(static_cast<const uint8_t*>(buf), size);
}

ZPOS64_T ArchiveOutput::onTell(voidpf opaque, voidpf /*stream*/) {
  return self(opaque)->pos_;
}

long ArchiveOutput::onSeek(voidpf opaque, voidpf /*stream*/, ZPOS64_T offset, int origin) {
  ArchiveOutput* out = self(opaque);
  switch (origin) {
    case ZLIB_FILEFUNC_SEEK_SET:
      out->pos_ = offset;
      return 0;
    case ZLIB_FILEFUNC_SEEK_CUR:
      out->pos_ += offset;
      return 0;
    case ZLIB_FILEFUNC_SEEK_END:
      out->pos_ = out->end_ + offset;
      return 0;
    default:
      return -1;
  }
}

int ArchiveOutput::onClose(voidpf opaque, voidpf /*stream*/) {
  ArchiveOutput* out = self(opaque);
  return out->flush() && out->error_ == 0 ? 0 : -1;
}

int ArchiveOutput::onError(voidpf opaque, voidpf /*stream*/) {
  return self(opaque)->error_;
}

}  // namespace velzip
