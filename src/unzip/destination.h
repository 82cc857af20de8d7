// The folder an extraction writes into, and every folder below it, reached
// so that no symbolic link (planted, or left by an earlier extraction) can
// lead a write outside it. Links that stay inside are followed; one that
// leads outside, or an absolute one, fails with EXDEV.
#ifndef VELZIP_UNZIP_DESTINATION_H
#define VELZIP_UNZIP_DESTINATION_H

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "frame/handles.h"

namespace velzip {

// errno values that can pass: worth another attempt after a pause.
bool isTransientError(int err);

// A folder below the destination, shared so that it stays open while a file
// is staged in it.
using FolderFd = std::shared_ptr<UniqueFd>;

class Destination {
 public:
  // Told of each folder creation that failed: attempt (1-based), the full
  // path and errno; final is true for the last word.
  using FolderFailure =
      std::function<void(const std::string& path, int attempt, int err, bool final)>;

  Destination() = default;
  ~Destination() = default;
  Destination(const Destination&) = delete;
  Destination& operator=(const Destination&) = delete;

  // Opens folder itself (the caller named it, so a link there is followed).
  bool open(const std::string& folder, FolderFailure onFailure);
  void close();
  bool isOpen() const { return root_ != nullptr; }
  const std::string& path() const { return path_; }
  // path() + "/" + rel.
  std::string display(const std::string& rel) const;

  // The folder rel ('/'-separated, no ".." component) below the
  // destination, made with 0775 where missing. Null with errno set.
  FolderFd folder(const std::string& rel);
  // The folder holding rel's last component, which goes to leaf.
  FolderFd parentOf(const std::string& rel, std::string& leaf);
  // The deepest folder on the way to rel that exists already (rel itself
  // when it does); nothing is made. Null when even that cannot be reached.
  FolderFd deepestExisting(const std::string& rel);

  // After EACCES in folder dir (at rel): gives the owner write and search
  // permission until restoreFolders(), when this process owns it. False
  // when nothing could be changed.
  bool makeWritable(const FolderFd& dir, const std::string& rel);
  // Puts back the modes makeWritable changed.
  void restoreFolders();

 private:
  FolderFd openBelow(const std::string& rel);
  bool makeFolder(const FolderFd& parent, const std::string& leaf, const std::string& rel);

  FolderFd root_;
  std::string path_;
  FolderFailure onFailure_;
  std::map<std::string, FolderFd> cache_;
  std::map<std::string, mode_t> relaxed_;  // rel -> mode before makeWritable
};

// "/proc/self/fd/N" for a descriptor: lets calls that take only a path act
// on exactly the object an O_PATH descriptor holds.
std::string procPath(int fd);

// rel without empty and "." components; false when a ".." is among them.
bool normaliseRelative(const std::string& name, std::string& rel);

}  // namespace velzip

#endif  // VELZIP_UNZIP_DESTINATION_H
