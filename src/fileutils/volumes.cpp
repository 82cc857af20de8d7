#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "fileutils/internal.h"
#include "velzip/FileUtils.h"

namespace UlvoUtils {
namespace FileUtils {

namespace {

using velzip::fileutils::MountEntry;

// "/a/b" gives "/a", "/a" gives "/"; done in place so long paths shrink cheaply.
void dropLastComponent(std::string& path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  size_t slash = path.find_last_of('/');
  if (slash != std::string::npos) path.resize(slash == 0 ? 1 : slash);
}

// The mount holding an absolute path, walking up past parts that do not exist.
bool mountOfPath(const std::string& path, MountEntry& mount) {
  if (path.empty() || path[0] != '/') return false;
  std::string probe = path;
  for (;;) {
    struct statfs fs;
    if (statfs(probe.c_str(), &fs) == 0) return velzip::fileutils::findMountOf(probe, mount);
    if ((errno != ENOENT && errno != ENAMETOOLONG) || probe == "/") return false;
    dropLastComponent(probe);
  }
}

// udev writes unsafe bytes of a label as \xHH.
std::string decodeLabel(const char* name) {
  std::string out;
  for (const char* p = name; *p != '\0'; ++p) {
    if (p[0] == '\\' && p[1] == 'x' && isxdigit(static_cast<unsigned char>(p[2])) &&
        isxdigit(static_cast<unsigned char>(p[3]))) {
      const char hex[3] = {p[2], p[3], '\0'};
      out += static_cast<char>(std::strtol(hex, nullptr, 16));
      p += 3;
    } else {
      out += *p;
    }
  }
  return out;
}

bool labelFromDevice(const std::string& source, std::string& label) {
  if (source.compare(0, 5, "/dev/") != 0) return false;
  std::unique_ptr<char, decltype(&free)> device(realpath(source.c_str(), nullptr), &free);
  velzip::fileutils::DirHandle dir(opendir("/dev/disk/by-label"));
  if (!device || !dir) return false;
  while (const dirent* entry = readdir(dir.get())) {
    if (entry->d_name[0] == '.') continue;
    const std::string link = std::string("/dev/disk/by-label/") + entry->d_name;
    std::unique_ptr<char, decltype(&free)> target(realpath(link.c_str(), nullptr), &free);
    if (target && strcmp(target.get(), device.get()) == 0) {
      label = decodeLabel(entry->d_name);
      return true;
    }
  }
  return false;
}

bool labelOfMount(const MountEntry& mount, std::string& label) {
  int fd = open(mount.mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) {
    char buf[FSLABEL_MAX + 1] = {};
    int rc = ioctl(fd, FS_IOC_GETFSLABEL, buf);
    close(fd);
    if (rc == 0 && buf[0] != '\0') {
      label = buf;
      return true;
    }
  }
  std::string fromDevice;
  if (labelFromDevice(mount.source, fromDevice) && !fromDevice.empty()) {
    label = fromDevice;
    return true;
  }
  return false;
}

bool isNetworkType(const std::string& type) {
  static const char* const kTypes[] = {"nfs",   "nfs4",  "cifs", "smb3", "smbfs",
                                       "afpfs", "sshfs", "9p",   "ceph", "glusterfs"};
  // FUSE file systems show up as fuse.<name>.
  const std::string bare = type.compare(0, 5, "fuse.") == 0 ? type.substr(5) : type;
  for (const char* known : kTypes) {
    if (bare == known) return true;
  }
  return false;
}

}  // namespace

bool GetVolumeNameOfPath(const std::string& path, std::string& volumeName, void* /*logger*/) {
  MountEntry mount;
  if (!mountOfPath(path, mount)) return false;
  std::string label;
  if (labelOfMount(mount, label)) {
    volumeName = label;
  } else if (mount.mountPoint == "/") {
    volumeName = "/";
  } else {
    volumeName = mount.mountPoint.substr(mount.mountPoint.find_last_of('/') + 1);
  }
  return true;
}

bool isPathANetworkDrive(const std::string& path) {
  struct statfs fs;
  if (path.empty() || statfs(path.c_str(), &fs) != 0) return false;
  MountEntry mount;
  if (!velzip::fileutils::findMountOf(path, mount)) return false;
  // A server-style source (host:export) is network whatever its type claims;
  // bare words name local pseudo file systems (tmpfs, overlay, proc).
  if (!mount.source.empty() && mount.source[0] != '/' &&
      mount.source.find(':') != std::string::npos) {
    return true;
  }
  return isNetworkType(mount.fsType);
}

}  // namespace FileUtils
}  // namespace UlvoUtils
