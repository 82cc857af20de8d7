#include "unzip/archive_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace velzip {
namespace {

constexpr uint32_t kEndSignature = 0x06054b50;
constexpr uint32_t kZip64EndSignature = 0x06064b50;
constexpr uint32_t kZip64LocatorSignature = 0x07064b50;
constexpr size_t kEndSize = 22;
constexpr size_t kZip64EndSize = 56;
constexpr size_t kZip64LocatorSize = 20;
constexpr size_t kMaxComment = 0xFFFF;
// Directories larger than this are read from the file as the walk goes.
constexpr uint64_t kMaxCachedDirectory = uint64_t{256} << 20;
// What one read of a local header takes in: its fixed part and, usually,
// its name and extra field too; and an entry's data with it when the whole
// fits in kLocalReadAhead, as most do.
constexpr size_t kLocalHeadRead = 512;
constexpr uint64_t kLocalReadAhead = 64 * 1024;

}  // namespace

bool ArchiveFile::open(const char* path) {
  close();
  fd_.reset(::open(path, O_RDONLY | O_CLOEXEC));
  if (!fd_.ok()) return false;
  struct stat st;
  if (fstat(fd_.get(), &st) != 0) {
    close();
    return false;
  }
  size_ = static_cast<uint64_t>(st.st_size);
  if (!locateDirectory()) {
    close();
    errno = EINVAL;
    return false;
  }
  return true;
}

void ArchiveFile::close() {
  fd_.reset();
  size_ = shift_ = cacheStart_ = 0;
  std::vector<uint8_t>().swap(cache_);
}

void ArchiveFile::cacheDirectory(uint64_t from) {
  if (from >= size_ || size_ - from > kMaxCachedDirectory) return;
  std::vector<uint8_t> bytes(static_cast<size_t>(size_ - from));
  if (readAt(from, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) return;
  cacheStart_ = from;
  cache_ = std::move(bytes);
}

ssize_t ArchiveFile::readAt(uint64_t offset, void* buf, size_t size) const {
  auto* p = static_cast<unsigned char*>(buf);
  // Nothing lies past the end: a read that reaches it is not followed by
  // another that returns 0.
  if (offset >= size_) return 0;
  size = static_cast<size_t>(std::min<uint64_t>(size, size_ - offset));
  if (!cache_.empty() && offset >= cacheStart_ && offset - cacheStart_ <= cache_.size()) {
    const uint64_t at = offset - cacheStart_;
    if (size <= cache_.size() - at) {
      std::memcpy(p, cache_.data() + at, size);
      return static_cast<ssize_t>(size);
    }
  }
  size_t done = 0;
  while (done < size) {
    const ssize_t n = pread(fd_.get(), p + done, size - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return -1;
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

// The same search the zip layer makes, so both agree on where the archive
// starts: the last end record in the file's tail, then its zip64 twin.
bool ArchiveFile::locateDirectory() {
  const size_t tail = static_cast<size_t>(std::min<uint64_t>(size_, kEndSize + kMaxComment));
  if (tail < kEndSize) return false;
  std::vector<unsigned char> buf(tail);
  const uint64_t tailStart = size_ - tail;
  if (readAt(tailStart, buf.data(), tail) != static_cast<ssize_t>(tail)) return false;
  size_t end = tail - kEndSize + 1;
  do {
    --end;
  } while (end > 0 && le32(buf.data() + end) != kEndSignature);
  if (le32(buf.data() + end) != kEndSignature) return false;

  uint64_t recordAt = tailStart + end;
  uint64_t dirSize = le32(buf.data() + end + 12);
  uint64_t dirOffset = le32(buf.data() + end + 16);
  if (recordAt >= kZip64LocatorSize) {
    unsigned char loc[kZip64LocatorSize];
    unsigned char rec[kZip64EndSize];
    if (readAt(recordAt - kZip64LocatorSize, loc, sizeof loc) == sizeof loc &&
        le32(loc) == kZip64LocatorSignature) {
      const uint64_t at = le64(loc + 8);
      if (readAt(at, rec, sizeof rec) == sizeof rec && le32(rec) == kZip64EndSignature) {
        recordAt = at;
        dirSize = le64(rec + 40);
        dirOffset = le64(rec + 48);
      }
    }
  }
  if (dirOffset > UINT64_MAX - dirSize || recordAt < dirOffset + dirSize) return false;
  shift_ = recordAt - (dirOffset + dirSize);
  cacheDirectory(shift_ + dirOffset);
  return true;
}

zlib_filefunc64_def* ArchiveFile::zipFunctions() {
  cursor_ = Cursor{this, 0, false};
  functions_.zopen64_file = [](voidpf opaque, const void*, int) -> voidpf { return opaque; };
  functions_.zread_file = readCursor;
  functions_.zwrite_file = [](voidpf, voidpf, const void*, uLong) -> uLong { return 0; };
  functions_.ztell64_file = [](voidpf, voidpf stream) -> ZPOS64_T {
    return static_cast<Cursor*>(stream)->position;
  };
  functions_.zseek64_file = seekCursor;
  functions_.zclose_file = [](voidpf, voidpf) { return 0; };
  functions_.zerror_file = [](voidpf, voidpf stream) {
    return static_cast<Cursor*>(stream)->failed ? 1 : 0;
  };
  functions_.opaque = &cursor_;
  return &functions_;
}

uLong ArchiveFile::readCursor(voidpf, voidpf stream, void* buf, uLong size) {
  auto* c = static_cast<Cursor*>(stream);
  const ssize_t n = c->file->readAt(c->position, buf, size);
  if (n < 0) {
    c->failed = true;
    return 0;
  }
  c->position += static_cast<uint64_t>(n);
  return static_cast<uLong>(n);
}

long ArchiveFile::seekCursor(voidpf, voidpf stream, ZPOS64_T offset, int origin) {
  auto* c = static_cast<Cursor*>(stream);
  switch (origin) {
    case ZLIB_FILEFUNC_SEEK_SET:
      c->position = offset;
      return 0;
    case ZLIB_FILEFUNC_SEEK_CUR:
      c->position += offset;
      return 0;
    case ZLIB_FILEFUNC_SEEK_END:
      c->position = c->file->size() + offset;
      return 0;
    default:
      return -1;
  }
}

bool ArchiveFile::readCentral(uint64_t centralOffset, ZipEntryRecord& rec, std::string& why) const {
  rec = ZipEntryRecord();
  unsigned char head[kCentralHeaderSize];
  const uint64_t at = shift_ + centralOffset;
  size_t nameLen = 0, extraLen = 0, commentLen = 0;
  if (readAt(at, head, sizeof head) != static_cast<ssize_t>(sizeof head) ||
      !parseCentralHeader(head, rec, nameLen, extraLen, commentLen)) {
    why = "damaged central directory record";
    return false;
  }
  std::string rest(nameLen + extraLen + commentLen, '\0');
  if (readAt(at + sizeof head, rest.data(), rest.size()) != static_cast<ssize_t>(rest.size())) {
    why = "damaged central directory record";
    return false;
  }
  rec.name = rest.substr(0, nameLen);
  rec.extra = rest.substr(nameLen, extraLen);
  rec.comment = rest.substr(nameLen + extraLen);
  if (!applyCentralExtra(rec)) {
    why = "damaged zip64 field in the central directory";
    return false;
  }
  return true;
}

bool ArchiveFile::readLocal(const ZipEntryRecord& rec, LocalEntry& out, std::string& why,
                            bool withData) const {
  // The local name and extra field usually repeat the central ones; a little
  // more room covers a local extra field that is longer.
  const uint64_t guess = kLocalHeaderSize + rec.name.size() + rec.extra.size() + 64;
  const uint64_t whole = guess + rec.compressedSize;
  std::vector<unsigned char> buffer(
      withData && whole <= kLocalReadAhead ? static_cast<size_t>(whole) : kLocalHeadRead);
  if (buffer.size() < kLocalHeadRead) buffer.resize(kLocalHeadRead);
  unsigned char* head = buffer.data();
  const uint64_t at = shift_ + rec.localHeaderOffset;
  const ssize_t got = rec.localHeaderOffset > size_ ? -1 : readAt(at, head, buffer.size());
  if (got < static_cast<ssize_t>(kLocalHeaderSize) || le32(head) != kLocalSignature) {
    why = "no local header where the central directory points";
    return false;
  }
  const size_t nameLen = le16(head + 26), extraLen = le16(head + 28);
  const size_t extraAt = kLocalHeaderSize + nameLen;
  if (extraAt + extraLen <= static_cast<size_t>(got)) {
    out.extra.assign(reinterpret_cast<const char*>(head) + extraAt, extraLen);
  } else {
    out.extra.assign(extraLen, '\0');
    if (readAt(at + extraAt, out.extra.data(), extraLen) != static_cast<ssize_t>(extraLen)) {
      why = "truncated local header";
      return false;
    }
  }
  out.dataOffset = at + extraAt + extraLen;
  if (out.dataOffset > size_ || rec.compressedSize > size_ - out.dataOffset) {
    why = "the entry's data runs past the end of the archive";
    return false;
  }
  const size_t dataAt = extraAt + extraLen;
  out.data.clear();
  if (withData && dataAt <= static_cast<size_t>(got) &&
      rec.compressedSize <= static_cast<size_t>(got) - dataAt) {
    out.data.assign(reinterpret_cast<const char*>(head) + dataAt,
                    static_cast<size_t>(rec.compressedSize));
  }
  return true;
}

}  // namespace velzip
