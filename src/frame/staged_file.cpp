#include "frame/staged_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace velzip {
namespace {

constexpr int kNameAttempts = 100;

// Errors by which a file system says it has no unnamed files.
bool unnamedUnsupported(int err) {
  return err == EOPNOTSUPP || err == EISDIR || err == EINVAL || err == ENOENT;
}

}  // namespace

std::string stagingName() {
  static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
  unsigned char bytes[12];
  if (getrandom(bytes, sizeof bytes, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof bytes)) {
    // Uniqueness still comes from the exclusive create; this only spreads tries.
    static unsigned counter = 0;
    const unsigned long seed = static_cast<unsigned long>(getpid()) * 2654435761u + ++counter;
    for (size_t i = 0; i < sizeof bytes; ++i)
      bytes[i] = static_cast<unsigned char>(seed >> (i % 8));
  }
  std::string name = ".velzip-";
  for (unsigned char b : bytes) name += kDigits[b % 36];
  return name;
}

bool StagedFile::create(int dirFd, mode_t mode) {
  discard();
  const int unnamed = openat(dirFd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode);
  if (unnamed >= 0) {
    fd_.reset(unnamed);
    return true;
  }
  if (!unnamedUnsupported(errno)) return false;
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    std::string name = stagingName();
    const int fd =
        openat(dirFd, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd >= 0) {
      fd_.reset(fd);
      dirFd_ = dirFd;
      stagedName_ = std::move(name);
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

// An unnamed file gets a name through its /proc link (any user may), or
// through the descriptor itself where /proc is missing (needs privilege).
bool StagedFile::linkUnnamed(int dirFd, const char* name) {
  char proc[64];
  std::snprintf(proc, sizeof proc, "/proc/self/fd/%d", fd_.get());
  if (linkat(AT_FDCWD, proc, dirFd, name, AT_SYMLINK_FOLLOW) == 0) return true;
  if (errno != ENOENT) return false;
  return linkat(fd_.get(), "", dirFd, name, AT_EMPTY_PATH) == 0;
}

bool StagedFile::publish(int dirFd, const char* name, bool sync) {
  if (!fd_.ok()) {
    errno = EBADF;
    return false;
  }
  if (sync && fdatasync(fd_.get()) != 0) return false;
  if (stagedName_.empty()) {
    // Straight to the name when nothing stands there; else under a fresh
    // name first, then over the old one in one rename.
    if (linkUnnamed(dirFd, name)) {
      fd_.reset();
      return true;
    }
    if (errno != EEXIST) return false;
    for (int attempt = 0;; ++attempt) {
      std::string temp = stagingName();
      if (linkUnnamed(dirFd, temp.c_str())) {
        dirFd_ = dirFd;
        stagedName_ = std::move(temp);
        break;
      }
      if (errno != EEXIST || attempt == kNameAttempts) return false;
    }
  }
  if (renameat(dirFd_, stagedName_.c_str(), dirFd, name) != 0) return false;
  stagedName_.clear();
  dirFd_ = -1;
  fd_.reset();
  return true;
}

void StagedFile::discard() {
  const int saved = errno;
  fd_.reset();
  if (!stagedName_.empty()) unlinkat(dirFd_, stagedName_.c_str(), 0);
  stagedName_.clear();
  dirFd_ = -1;
  errno = saved;
}

}  // namespace velzip
