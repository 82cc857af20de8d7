#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "platform/plist.h"
#include "velzip/FileUtils.h"

namespace UlvoUtils {
namespace FileUtils {

namespace {

// Far above any real Info.plist; a larger file is not taken for one.
constexpr off_t kMaxInfoPlistSize = 8 << 20;

struct Descriptor {
  explicit Descriptor(int value) : fd(value) {}
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  const int fd;
};

bool readSmallFile(const std::string& path, std::vector<char>& bytes) {
  // Non-blocking, so that a FIFO in place of the list cannot hang the caller.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  const int fd = file.fd;
  if (fd < 0) return false;
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxInfoPlistSize) return false;
  bytes.resize(static_cast<size_t>(st.st_size));
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = read(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// A plain file name: anything that could lead out of Contents/MacOS is not one.
bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

}  // namespace

bool GetBundleExecutablePath(const std::string& bundlePath, std::string& executable) {
  if (bundlePath.empty()) return false;
  std::unique_ptr<char, decltype(&free)> real(realpath(bundlePath.c_str(), nullptr), &free);
  struct stat st;
  if (!real || stat(real.get(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
  const std::string contents =
      std::string(real.get()) + (real.get()[1] == '\0' ? "" : "/") + "Contents";

  std::vector<char> bytes;
  velzip::PlistValue info;
  if (!readSmallFile(contents + "/Info.plist", bytes) ||
      !velzip::parsePropertyList(bytes.data(), bytes.size(), info)) {
    return false;
  }
  const std::string* name = info.findString("CFBundleExecutable");
  if (name == nullptr || !isPlainName(*name)) return false;
  const std::string path = contents + "/MacOS/" + *name;
  if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  executable = path;
  return true;
}

}  // namespace FileUtils
}  // namespace UlvoUtils
