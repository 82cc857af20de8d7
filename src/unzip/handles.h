// Owners for the descriptors and streams the readers open.
#ifndef VELZIP_UNZIP_HANDLES_H
#define VELZIP_UNZIP_HANDLES_H

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
  void reset(int fd) {
    reset();
    fd_ = fd;
  }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

struct FreeDeleter {
  void operator()(void* p) const { std::free(p); }
};
using UniqueBuffer = std::unique_ptr<char, FreeDeleter>;

}  // namespace velzip

#endif  // VELZIP_UNZIP_HANDLES_H
