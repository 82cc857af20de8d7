// A small tmpfs mounted over a folder, for "no space left" failures. Needs
// root; the test process first moves to a mount namespace of its own so that
// nothing is seen, or left, outside it.
#ifndef VELZIP_TESTS_SUPPORT_SMALL_DISK_H
#define VELZIP_TESTS_SUPPORT_SMALL_DISK_H

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <string>

namespace velzip_test {

class SmallDisk {
 public:
  // Mounts a tmpfs of sizeKiB over the existing folder path.
  SmallDisk(const std::string& path, unsigned sizeKiB) : path_(path) {
    static const bool isolated = unshare(CLONE_NEWNS) == 0 &&
                                 mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    (void)isolated;
    const std::string options = "size=" + std::to_string(sizeKiB) + "k,mode=0755";
    mounted_ = mount("tmpfs", path.c_str(), "tmpfs", 0, options.c_str()) == 0;
  }
  ~SmallDisk() {
    if (mounted_) umount2(path_.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  bool mounted() const { return mounted_; }

 private:
  std::string path_;
  bool mounted_ = false;
};

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_SMALL_DISK_H
