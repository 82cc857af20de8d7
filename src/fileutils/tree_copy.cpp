#include <dirent.h>
#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "fileutils/internal.h"
#include "velzip/FileUtils.h"

namespace velzip {
namespace fileutils {

namespace {

// Only the user namespace: the others need privileges or mean something
// (security labels, ACLs) that belongs to the target's place.
void copyUserAttributes(int from, int to) {
  ssize_t size = flistxattr(from, nullptr, 0);
  if (size <= 0) return;
  std::vector<char> names(static_cast<size_t>(size));
  size = flistxattr(from, names.data(), names.size());
  if (size <= 0) return;
  for (const char* name = names.data(); name < names.data() + size; name += strlen(name) + 1) {
    if (strncmp(name, "user.", 5) != 0) continue;
    ssize_t length = fgetxattr(from, name, nullptr, 0);
    if (length < 0) continue;
    std::vector<char> value(static_cast<size_t>(length) + 1);
    length = fgetxattr(from, name, value.data(), value.size());
    // A file system without user attributes simply loses them.
    if (length >= 0) (void)fsetxattr(to, name, value.data(), static_cast<size_t>(length), 0);
  }
}

bool copyData(int in, int out) {
  for (;;) {
    ssize_t n = copy_file_range(in, nullptr, out, nullptr, 1 << 30, 0);
    if (n > 0) continue;
    if (n == 0) return true;
    if (errno == EINTR) continue;
    if (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP) break;
    return false;
  }
  std::vector<char> buf(1 << 16);
  for (;;) {
    ssize_t n = read(in, buf.data(), buf.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    for (ssize_t done = 0; done < n;) {
      ssize_t w = write(out, buf.data() + done, static_cast<size_t>(n - done));
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) return false;
      done += w;
    }
  }
}

class Copier {
 public:
  explicit Copier(bool keepOwner) : keepOwner_(keepOwner) {}

  bool copyItem(const std::string& src, const struct stat& st, const std::string& dst, bool merge,
                bool top) {
    if (S_ISDIR(st.st_mode)) return copyFolder(src, st, dst, merge, top);
    if (S_ISREG(st.st_mode)) return copyFile(src, st, dst, merge);
    if (S_ISLNK(st.st_mode)) return copyLink(src, st, dst, merge);
    if (S_ISSOCK(st.st_mode)) return true;  // a socket belongs to its server, not to a copy
    return copySpecial(st, dst, merge);
  }

 private:
  // Makes room for a non-folder at dst: only merging replaces, and never a folder.
  static bool clearSpot(const std::string& dst, bool merge) {
    struct stat st;
    if (lstat(dst.c_str(), &st) != 0) return errno == ENOENT;
    if (!merge || S_ISDIR(st.st_mode)) return false;
    return unlink(dst.c_str()) == 0;
  }

  bool applyMetadata(int fd, const struct stat& st) const {
    // Owner before mode: chown clears set-id bits.
    if (keepOwner_) (void)!fchown(fd, st.st_uid, st.st_gid);
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    bool ok = fchmod(fd, st.st_mode & 07777) == 0;
    return futimens(fd, times) == 0 && ok;
  }

  bool applyPathMetadata(const std::string& dst, const struct stat& st, bool isLink) const {
    if (keepOwner_) (void)!lchown(dst.c_str(), st.st_uid, st.st_gid);
    bool ok = isLink || chmod(dst.c_str(), st.st_mode & 07777) == 0;
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    return utimensat(AT_FDCWD, dst.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0 && ok;
  }

  bool copyFile(const std::string& src, const struct stat& st, const std::string& dst,
                bool merge) const {
    UniqueFd in(open(src.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!in.ok() || !clearSpot(dst, merge)) return false;
    UniqueFd out(open(dst.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!out.ok()) return false;
    bool ok = copyData(in.get(), out.get());
    if (ok) {
      copyUserAttributes(in.get(), out.get());
      ok = applyMetadata(out.get(), st);
    }
    ok = out.close() && ok;
    if (!ok) unlink(dst.c_str());
    return ok;
  }

  bool copyLink(const std::string& src, const struct stat& st, const std::string& dst,
                bool merge) const {
    std::string target(static_cast<size_t>(st.st_size) + 1, '\0');
    ssize_t n = readlink(src.c_str(), &target[0], target.size());
    // A link retargeted since lstat would come back cut.
    if (n < 0 || static_cast<size_t>(n) >= target.size()) return false;
    target.resize(static_cast<size_t>(n));
    if (!clearSpot(dst, merge) || symlink(target.c_str(), dst.c_str()) != 0) return false;
    return applyPathMetadata(dst, st, true);
  }

  bool copySpecial(const struct stat& st, const std::string& dst, bool merge) const {
    if (!clearSpot(dst, merge)) return false;
    int rc = S_ISFIFO(st.st_mode) ? mkfifo(dst.c_str(), 0600)
                                  : mknod(dst.c_str(), (st.st_mode & S_IFMT) | 0600, st.st_rdev);
    return rc == 0 && applyPathMetadata(dst, st, false);
  }

  bool copyFolder(const std::string& src, const struct stat& st, const std::string& dst, bool merge,
                  bool top) {
    // The top of a merge may be reached through links; below it nothing is followed.
    const int follow = top ? 0 : O_NOFOLLOW;
    struct stat existing;
    int found = top ? stat(dst.c_str(), &existing) : lstat(dst.c_str(), &existing);
    if (found == 0 && (!merge || (!S_ISDIR(existing.st_mode) && unlink(dst.c_str()) != 0))) {
      return false;
    }
    if ((found != 0 || !S_ISDIR(existing.st_mode)) && mkdir(dst.c_str(), 0700) != 0) return false;
    UniqueFd out(open(dst.c_str(), O_RDONLY | O_DIRECTORY | follow | O_CLOEXEC));
    struct stat made;
    if (!out.ok() || fstat(out.get(), &made) != 0) return false;
    if (top) {
      // A destination inside the source must not be copied into itself.
      skipDev_ = made.st_dev;
      skipIno_ = made.st_ino;
    }
    int inFd = open(src.c_str(), O_RDONLY | O_DIRECTORY | follow | O_CLOEXEC);
    DirHandle dir(inFd >= 0 ? fdopendir(inFd) : nullptr);
    if (!dir) {
      if (inFd >= 0) close(inFd);
      return false;
    }
    bool ok = true;
    while (const dirent* entry = readdir(dir.get())) {
      if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
      const std::string from = src + "/" + entry->d_name;
      struct stat child;
      if (lstat(from.c_str(), &child) != 0) {
        ok = false;
        continue;
      }
      if (S_ISDIR(child.st_mode) && child.st_dev == skipDev_ && child.st_ino == skipIno_) continue;
      if (!copyItem(from, child, dst + "/" + entry->d_name, merge, false)) ok = false;
    }
    copyUserAttributes(dirfd(dir.get()), out.get());
    return applyMetadata(out.get(), st) && ok;
  }

  bool keepOwner_;
  dev_t skipDev_ = 0;
  ino_t skipIno_ = 0;
};

}  // namespace

bool copyTree(const std::string& src, const std::string& dst, bool merge, bool keepOwner) {
  struct stat st;
  if (src.empty() || dst.empty()) return false;
  if ((merge ? stat(src.c_str(), &st) : lstat(src.c_str(), &st)) != 0) return false;
  if (merge) {
    std::vector<char> buf(dst.c_str(), dst.c_str() + dst.size() + 1);
    if (makeDirectories(dirname(buf.data()), 0777) != 0) return false;
  }
  Copier copier(keepOwner);
  return copier.copyItem(src, st, dst, merge, true);
}

}  // namespace fileutils
}  // namespace velzip

namespace UlvoUtils {
namespace FileUtils {

bool utilCopySrcFolderToDstFolder(const std::string& src, const std::string& dst, bool) {
  bool isDirectory = false;
  if (!PathExists(src, isDirectory, nullptr) || !isDirectory || dst.empty()) return false;
  // As root the owners travel too, the way an installer expects its trees to land.
  return velzip::fileutils::copyTree(src, dst, true, geteuid() == 0);
}

}  // namespace FileUtils
}  // namespace UlvoUtils
