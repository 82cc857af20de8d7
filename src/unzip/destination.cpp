#include "unzip/destination.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace velzip {
namespace {

constexpr int kAttempts = 20;  // one try and 19 retries
constexpr useconds_t kRetryDelayUs = 100000;
constexpr size_t kCacheSize = 64;
constexpr mode_t kOwnerWriteSearch = S_IWUSR | S_IXUSR;

bool gHaveOpenat2 = true;  // until the kernel says otherwise

FolderFd adopt(int fd) {
  return fd >= 0 ? std::make_shared<UniqueFd>(fd) : nullptr;
}

int openat2Beneath(int root, const std::string& rel) {
  open_how how{};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  for (;;) {
    const long fd = syscall(SYS_openat2, root, rel.c_str(), &how, sizeof how);
    if (fd >= 0 || errno != EAGAIN) return static_cast<int>(fd);
  }
}

// Without openat2, one component at a time and no link followed at all: a
// link on the way counts as leading outside.
int walkBeneath(int root, const std::string& rel) {
  UniqueFd cur(fcntl(root, F_DUPFD_CLOEXEC, 0));
  size_t at = 0;
  while (cur.ok() && at < rel.size()) {
    size_t slash = rel.find('/', at);
    if (slash == std::string::npos) slash = rel.size();
    const std::string part = rel.substr(at, slash - at);
    const int next = openat(cur.get(), part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) {
      const int err = errno;
      struct stat st;
      errno = fstatat(cur.get(), part.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode)
                  ? EXDEV
                  : err;
      return -1;
    }
    cur.reset(next);
    at = slash + 1;
  }
  return cur.release();
}

// chmod of exactly what an O_PATH descriptor holds.
bool chmodFd(int fd, mode_t mode) {
  if (chmod(procPath(fd).c_str(), mode) == 0) return true;
  if (errno != ENOENT) return false;
  UniqueFd real(openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return real.ok() && fchmod(real.get(), mode) == 0;
}

std::string parentRel(const std::string& rel) {
  const size_t slash = rel.rfind('/');
  return slash == std::string::npos ? std::string() : rel.substr(0, slash);
}

}  // namespace

bool isTransientError(int err) {
  return err == EINTR || err == EAGAIN || err == EBUSY || err == ETXTBSY || err == ENFILE ||
         err == EMFILE;
}

std::string procPath(int fd) {
  return "/proc/self/fd/" + std::to_string(fd);
}

bool normaliseRelative(const std::string& name, std::string& rel) {
  rel.clear();
  size_t at = 0;
  while (at <= name.size()) {
    size_t slash = name.find('/', at);
    if (slash == std::string::npos) slash = name.size();
    const std::string part = name.substr(at, slash - at);
    if (part == "..") return false;
    if (!part.empty() && part != ".") {
      if (!rel.empty()) rel += '/';
      rel += part;
    }
    at = slash + 1;
  }
  return true;
}

bool Destination::open(const std::string& folder, FolderFailure onFailure) {
  close();
  root_ = adopt(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!root_) return false;
  path_ = folder;
  while (path_.size() > 1 && path_.back() == '/') path_.pop_back();
  onFailure_ = std::move(onFailure);
  return true;
}

void Destination::close() {
  restoreFolders();
  cache_.clear();
  root_.reset();
  path_.clear();
}

std::string Destination::display(const std::string& rel) const {
  if (rel.empty()) return path_;
  return path_ == "/" ? "/" + rel : path_ + "/" + rel;
}

FolderFd Destination::openBelow(const std::string& rel) {
  if (gHaveOpenat2) {
    const int fd = openat2Beneath(root_->get(), rel);
    if (fd >= 0 || errno != ENOSYS) return adopt(fd);
    gHaveOpenat2 = false;
  }
  return adopt(walkBeneath(root_->get(), rel));
}

FolderFd Destination::folder(const std::string& rel) {
  if (!root_) {
    errno = EBADF;
    return nullptr;
  }
  if (rel.empty()) return root_;
  const auto hit = cache_.find(rel);
  if (hit != cache_.end()) return hit->second;
  FolderFd fd = openBelow(rel);
  if (!fd && errno == ENOENT) {
    std::string leaf;
    const FolderFd parent = parentOf(rel, leaf);
    if (!parent || !makeFolder(parent, leaf, rel)) return nullptr;
    fd = openBelow(rel);
  }
  if (!fd) return nullptr;
  if (cache_.size() >= kCacheSize) cache_.clear();
  cache_.emplace(rel, fd);
  return fd;
}

FolderFd Destination::parentOf(const std::string& rel, std::string& leaf) {
  const size_t slash = rel.rfind('/');
  leaf = slash == std::string::npos ? rel : rel.substr(slash + 1);
  return folder(parentRel(rel));
}

FolderFd Destination::deepestExisting(const std::string& rel) {
  if (!root_) return nullptr;
  for (std::string at = rel;; at = parentRel(at)) {
    if (at.empty()) return root_;
    const auto hit = cache_.find(at);
    if (hit != cache_.end()) return hit->second;
    FolderFd fd = openBelow(at);
    if (fd) return fd;
    if (errno != ENOENT) return nullptr;
  }
}

bool Destination::makeFolder(const FolderFd& parent, const std::string& leaf,
                             const std::string& rel) {
  bool relaxed = false;
  for (int attempt = 1;; ++attempt) {
    if (mkdirat(parent->get(), leaf.c_str(), 0775) == 0 || errno == EEXIST) return true;
    const int err = errno;
    if (err == EACCES && !relaxed && makeWritable(parent, parentRel(rel))) {
      relaxed = true;
      continue;
    }
    const bool final = !isTransientError(err) || attempt == kAttempts;
    if (onFailure_) onFailure_(display(rel), attempt, err, final);
    if (final) {
      errno = err;
      return false;
    }
    usleep(kRetryDelayUs);
  }
}

bool Destination::makeWritable(const FolderFd& dir, const std::string& rel) {
  struct stat st;
  if (!dir || fstat(dir->get(), &st) != 0 || st.st_uid != geteuid()) return false;
  if ((st.st_mode & kOwnerWriteSearch) == kOwnerWriteSearch) return false;
  if (!chmodFd(dir->get(), (st.st_mode & 07777) | kOwnerWriteSearch)) return false;
  relaxed_.emplace(rel, st.st_mode & 07777);
  return true;
}

void Destination::restoreFolders() {
  if (relaxed_.empty() || !root_) return;
  // Deepest first: a parent without search permission would hide its children.
  std::vector<std::pair<std::string, mode_t>> order(relaxed_.begin(), relaxed_.end());
  std::sort(order.begin(), order.end(), [](const auto& a, const auto& b) {
    return std::count(a.first.begin(), a.first.end(), '/') >
           std::count(b.first.begin(), b.first.end(), '/');
  });
  relaxed_.clear();
  for (const auto& [rel, mode] : order) {
    const FolderFd fd = rel.empty() ? root_ : openBelow(rel);
    if (fd) chmodFd(fd->get(), mode);
  }
}

}  // namespace velzip
