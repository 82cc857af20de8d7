// Owners for the plain C resources velzip opens: descriptors, FILE streams,
// folder listings and malloc'd buffers.
#ifndef VELZIP_FRAME_HANDLES_H
#define VELZIP_FRAME_HANDLES_H

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace velzip {

class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  // Closes now and reports what close() says: a deferred write error shows here.
  bool close() { return ::close(release()) == 0; }

 private:
  int fd_;
};

struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

struct DirCloser {
  void operator()(DIR* d) const { ::closedir(d); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

struct FreeDeleter {
  void operator()(void* p) const { std::free(p); }
};
using UniqueBuffer = std::unique_ptr<char, FreeDeleter>;

}  // namespace velzip

#endif  // VELZIP_FRAME_HANDLES_H
