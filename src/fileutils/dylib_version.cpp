#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "fileutils/dylib_version_macho.h"
#include "fileutils/internal.h"
#include "frame/log_emit.h"
#include "velzip/FileUtils.h"
#include "velzip/StringUtils.h"

namespace UlvoUtils {
namespace FileUtils {

namespace {

using velzip::fileutils::kComponent;

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

class Mapping {
 public:
  Mapping(void* address, size_t size) : address_(address), size_(size) {}
  ~Mapping() {
    if (address_ != MAP_FAILED) munmap(address_, size_);
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  bool valid() const { return address_ != MAP_FAILED; }
  const uint8_t* bytes() const { return static_cast<const uint8_t*>(address_); }

 private:
  void* address_;
  size_t size_;
};

enum class Outcome { kOpenFailed, kStatFailed, kMapFailed, kNotFound, kFound };

// Unmaps and closes before the caller logs.
Outcome readBundleVersion(const char* path, std::string& text) {
  // Non-blocking, so that a FIFO at the path fails at the mapping instead of
  // waiting for a writer.
  Descriptor fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (fd.get() < 0) return Outcome::kOpenFailed;
  struct stat st;
  if (fstat(fd.get(), &st) != 0) return Outcome::kStatFailed;
  if (st.st_size < 0 || static_cast<uintmax_t>(st.st_size) > SIZE_MAX) return Outcome::kMapFailed;
  const size_t size = static_cast<size_t>(st.st_size);
  Mapping map(mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd.get(), 0), size);
  if (!map.valid()) return Outcome::kMapFailed;
  return velzip::findMachOBundleVersion(map.bytes(), size, text) ? Outcome::kFound
                                                                 : Outcome::kNotFound;
}

}  // namespace

bool GetDynamicLibraryVersion(const std::string& dylibPath, StringUtils::PackageVersion& version,
                              void* logger) {
  const char* path = dylibPath.c_str();
  std::string text;
  switch (readBundleVersion(path, text)) {
    case Outcome::kOpenFailed:
      velzip::logUtility(logger, 50, kComponent,
                         "Error Failed open the dylib %s while getting its version", path);
      return false;
    case Outcome::kStatFailed:
      velzip::logUtility(logger, 50, kComponent,
                         "Error Failed to fstat file '%s' while getting its version", path);
      return false;
    case Outcome::kMapFailed:
      velzip::logUtility(logger, 50, kComponent,
                         "Error Failed map the dylib %s while getting its version", path);
      return false;
    case Outcome::kNotFound:
      velzip::logUtility(logger, 50, kComponent, "Error Failed to get the dylib %s  version", path);
      return false;
    case Outcome::kFound:
      break;
  }
  // Whatever the text holds, a version was found; the conversion only fills
  // the fields it has parts for.
  StringUtils::GetPackageVersionFromPackageVersionString(text, version);
  velzip::logUtility(logger, 30, kComponent, "Version for the dylib %s successfully obtained",
                     path);
  return true;
}

}  // namespace FileUtils
}  // namespace UlvoUtils
