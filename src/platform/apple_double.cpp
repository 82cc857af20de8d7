// Packing a file's "user." extended attributes into an AppleDouble companion
// and restoring a companion onto a file. A final link is never followed.
#include "platform/apple_double.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "frame/handles.h"

namespace velzip {
namespace {

constexpr char kUserPrefix[] = "user.";
constexpr size_t kUserPrefixLength = sizeof(kUserPrefix) - 1;
constexpr char kFinderInfoName[] = "com.apple.FinderInfo";
constexpr char kResourceForkName[] = "com.apple.ResourceFork";
// An access control list in Mac text form means nothing to Linux.
constexpr char kAclName[] = "com.apple.acl.text";
// Attributes can change between the size query and the read.
constexpr int kSizeRaceAttempts = 8;

template <typename Buffer, typename Call>
bool readSized(Buffer& buffer, Call call) {
  for (int attempt = 0; attempt < kSizeRaceAttempts; ++attempt) {
    const ssize_t needed = call(nullptr, 0);
    if (needed < 0) return false;
    buffer.resize(static_cast<size_t>(needed));
    if (needed == 0) return true;
    const ssize_t got = call(buffer.data(), buffer.size());
    if (got >= 0) {
      buffer.resize(static_cast<size_t>(got));
      return true;
    }
    if (errno != ERANGE) return false;
  }
  errno = ERANGE;
  return false;
}

bool isSpecialName(const std::string& name) {
  return name == kFinderInfoName || name == kResourceForkName || name == kAclName;
}

bool writeAll(int fd, const std::vector<uint8_t>& data) {
  size_t done = 0;
  while (done < data.size()) {
    const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

// The whole file from offset 0, refusing anything that is not a regular file
// or is larger than a companion may be.
bool readCompanion(int fd, std::vector<uint8_t>& out) {
  struct stat st;
  if (::fstat(fd, &st) != 0) return false;
  if (!S_ISREG(st.st_mode) || static_cast<uint64_t>(st.st_size) > kAppleDoubleMaxSize) {
    errno = EINVAL;
    return false;
  }
  // One byte more than allowed tells a file that grew past the limit.
  out.resize(static_cast<size_t>(st.st_size) + 1);
  size_t done = 0;
  for (;;) {
    if (done == out.size()) {
      if (out.size() > kAppleDoubleMaxSize) {
        errno = EINVAL;
        return false;
      }
      out.resize(std::min(out.size() * 2, kAppleDoubleMaxSize + 1));
    }
    const ssize_t n = ::pread(fd, out.data() + done, out.size() - done, static_cast<off_t>(done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  out.resize(done);
  return true;
}

int packToBytes(const char* sourcePath, std::vector<uint8_t>& bytes) {
  AppleDoubleContents contents;
  if (appleDoubleCollect(sourcePath, contents) != 0) return -1;
  if (!appleDoubleBuild(contents, bytes)) {
    errno = EFBIG;
    return -1;
  }
  return 0;
}

}  // namespace

int appleDoubleCollect(const char* sourcePath, AppleDoubleContents& out) {
  out = AppleDoubleContents();
  if (sourcePath == nullptr) {
    errno = EINVAL;
    return -1;
  }
  struct stat st;
  if (::lstat(sourcePath, &st) != 0) return -1;
  if (S_ISLNK(st.st_mode)) {
    errno = ELOOP;
    return -1;
  }

  std::vector<char> list;
  if (!readSized(list,
                 [&](char* buf, size_t size) { return ::llistxattr(sourcePath, buf, size); })) {
    // A file system without attributes still gives every item its companion.
    if (errno == ENOTSUP) return 0;
    return -1;
  }
  for (size_t pos = 0; pos < list.size();) {
    const char* full = list.data() + pos;
    const size_t length = strnlen(full, list.size() - pos);
    pos += length + 1;
    if (length <= kUserPrefixLength || std::strncmp(full, kUserPrefix, kUserPrefixLength) != 0) {
      continue;
    }
    const std::string fullName(full, length);
    std::vector<uint8_t> value;
    if (!readSized(value, [&](uint8_t* buf, size_t size) {
          return ::lgetxattr(sourcePath, fullName.c_str(), buf, size);
        })) {
      if (errno == ENODATA) continue;  // removed since the listing
      return -1;
    }
    std::string name = fullName.substr(kUserPrefixLength);
    if (name == kFinderInfoName) {
      // Only a well-formed Finder Info has a place in the companion.
      if (value.size() == sizeof(out.finderInfo)) {
        std::memcpy(out.finderInfo, value.data(), value.size());
      }
    } else if (name == kResourceForkName) {
      out.resourceFork = std::move(value);
    } else if (name != kAclName && name.size() <= kAppleDoubleMaxNameLength) {
      AppleDoubleAttribute attribute;
      attribute.name = std::move(name);
      attribute.value = std::move(value);
      out.attributes.push_back(std::move(attribute));
    }
  }
  return 0;
}

namespace {

// setxattr(2) or lsetxattr(2): the one difference between the two ways of
// naming the target.
using SetAttribute = int (*)(const char*, const char*, const void*, size_t, int);

int applyWith(const AppleDoubleContents& contents, const char* targetPath, SetAttribute setter) {
  int firstError = 0;
  auto set = [&](const char* name, const void* value, size_t size) {
    std::string full = kUserPrefix;
    full += name;
    if (setter(targetPath, full.c_str(), value, size, 0) != 0 && firstError == 0) {
      firstError = errno;
    }
  };
  const uint8_t* fi = contents.finderInfo;
  if (std::any_of(fi, fi + sizeof(contents.finderInfo), [](uint8_t b) { return b != 0; })) {
    set(kFinderInfoName, fi, sizeof(contents.finderInfo));
  }
  for (const AppleDoubleAttribute& a : contents.attributes) {
    // The Finder Info and the fork have their own fields; those win.
    if (isSpecialName(a.name)) continue;
    set(a.name.c_str(), a.value.data(), a.value.size());
  }
  if (!appleDoubleIsEmptyResourceFork(contents.resourceFork)) {
    set(kResourceForkName, contents.resourceFork.data(), contents.resourceFork.size());
  }
  if (firstError != 0) {
    errno = firstError;
    return -1;
  }
  return 0;
}

}  // namespace

int appleDoubleApply(const AppleDoubleContents& contents, const char* targetPath) {
  if (targetPath == nullptr) {
    errno = EINVAL;
    return -1;
  }
  struct stat st;
  if (::lstat(targetPath, &st) != 0) return -1;
  return applyWith(contents, targetPath, ::lsetxattr);
}

int appleDoubleApplyFd(const AppleDoubleContents& contents, int fd) {
  // The descriptor's /proc link leads to exactly the item it holds.
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  return applyWith(contents, path.c_str(), ::setxattr);
}

int appleDoublePackFd(const char* sourcePath, int fd) {
  std::vector<uint8_t> bytes;
  if (packToBytes(sourcePath, bytes) != 0) return -1;
  return writeAll(fd, bytes) ? 0 : -1;
}

int appleDoublePack(const char* sourcePath, const char* companionPath) {
  if (companionPath == nullptr) {
    errno = EINVAL;
    return -1;
  }
  // Everything is read before the companion is created, so a failure leaves
  // no file behind.
  std::vector<uint8_t> bytes;
  if (packToBytes(sourcePath, bytes) != 0) return -1;
  UniqueFd fd(::open(companionPath, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (fd.get() < 0) return -1;
  const bool written = writeAll(fd.get(), bytes);
  const bool closed = ::close(fd.release()) == 0;
  if (!written || !closed) {
    const int saved = errno;
    ::unlink(companionPath);
    errno = saved;
    return -1;
  }
  return 0;
}

int appleDoubleUnpackFd(int fd, const char* targetPath) {
  std::vector<uint8_t> bytes;
  if (!readCompanion(fd, bytes)) return -1;
  AppleDoubleContents contents;
  if (!appleDoubleParse(bytes.data(), bytes.size(), contents)) {
    errno = EINVAL;
    return -1;
  }
  return appleDoubleApply(contents, targetPath);
}

int appleDoubleUnpack(const char* companionPath, const char* targetPath) {
  if (companionPath == nullptr) {
    errno = EINVAL;
    return -1;
  }
  UniqueFd fd(::open(companionPath, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (fd.get() < 0) return -1;
  return appleDoubleUnpackFd(fd.get(), targetPath);
}

}  // namespace velzip
