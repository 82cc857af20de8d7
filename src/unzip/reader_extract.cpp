// Extraction: one entry at a time below a destination, then the closing pass
// that makes links and gives folders their modes and times.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "frame/staged_file.h"
#include "lzma/entry_layout.h"
#include "platform/apple_double.h"
#include "unzip/file_work.h"
#include "unzip/reader_core.h"
#include "velzip/StringUtils.h"

namespace velzip {
namespace {

constexpr int kAttempts = 20;  // one try and 19 retries
constexpr useconds_t kRetryDelayUs = 100000;
constexpr uint32_t kNoMode = 0xFFFFFFFFu;
constexpr size_t kMaxLinkTarget = 65536;
constexpr size_t kLinkChunk = 65536;

std::string errorText(int err) {
  return StringUtils::GetLastErrorString(err);
}

std::string parentRel(const std::string& rel) {
  const size_t slash = rel.rfind('/');
  return slash == std::string::npos ? std::string() : rel.substr(0, slash);
}

// Modification time only; the access time is left as it is.
void timesFor(int64_t modTime, timespec (&ts)[2]) {
  ts[0].tv_sec = 0;
  ts[0].tv_nsec = UTIME_OMIT;
  ts[1].tv_sec = static_cast<time_t>(modTime);
  ts[1].tv_nsec = 0;
}

// A companion is small: it is held in memory, up to the format's limit.
class MemoryTarget : public ContentTarget {
 public:
  explicit MemoryTarget(Progress& progress) : progress_(progress) {}
  bool write(const uint8_t* data, size_t size, std::string& why) override {
    if (size > kAppleDoubleMaxSize - bytes.size()) {
      why =
          "the metadata companion is larger than " + std::to_string(kAppleDoubleMaxSize) + " bytes";
      return false;
    }
    bytes.insert(bytes.end(), data, data + size);
    return true;
  }
  bool report(uint64_t bytes) override {
    const uint32_t n = bytes > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(bytes);
    return progress_.report(kZLibStateEntryData, n, nullptr, nullptr,
                            progress_.data().isDirectory) == kZLibContinue;
  }
  std::vector<uint8_t> bytes;

 private:
  Progress& progress_;
};

// Sets what a companion carries onto the item at fd (an O_PATH descriptor).
// A read-only file of ours is opened up for the moment it takes.
int applyCompanion(const AppleDoubleContents& contents, int fd) {
  if (appleDoubleApplyFd(contents, fd) == 0) return 0;
  const int err = errno;
  struct stat st;
  if ((err != EACCES && err != EPERM) || fstat(fd, &st) != 0 || st.st_uid != geteuid() ||
      (st.st_mode & S_IWUSR) != 0) {
    errno = err;
    return -1;
  }
  const std::string path = procPath(fd);
  if (chmod(path.c_str(), (st.st_mode & 07777) | S_IWUSR) != 0) {
    errno = err;
    return -1;
  }
  const int rc = appleDoubleApplyFd(contents, fd);
  const int saved = errno;
  chmod(path.c_str(), st.st_mode & 07777);
  errno = saved;
  return rc;
}

}  // namespace

// --- One entry ----------------------------------------------------------------

bool ReaderCore::unzipFile(int index, const char* destFolder, bool junkPaths, unsigned long mode) {
  if (zip_ == nullptr) {
    logTagged(kLogLevelError, "NULLARG", "NULL unzip File. OpenZip not called successfully.");
    return false;
  }
  if (!positionOn(index)) return false;
  return unzipFile(destFolder, junkPaths, mode);
}

bool ReaderCore::openDestination(const char* folder) {
  std::string path = folder;
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  if (dest_.isOpen() && dest_.path() == path) return true;
  return dest_.open(path, [this](const std::string& p, int attempt, int err, bool final) {
    const std::string text = errorText(err);
    if (final) {
      log(kLogLevelWarning, "Failed to create directory after %d retry attempts: %s with code %s",
          attempt, p.c_str(), text.c_str());
    } else {
      log(kLogLevelDetail, "Failed to create directory: %s with code %s", p.c_str(), text.c_str());
    }
  });
}

bool ReaderCore::unzipFile(const char* destFolder, bool junkPaths, unsigned long mode) {
  if (zip_ == nullptr) return false;
  const char* folder = destFolder != nullptr ? destFolder : outputFolder_;
  if (!createFolder(folder) || !openDestination(folder)) {
    log(kLogLevelError, "Failed to create destinationFolder '%s'.  %s", folder,
        errorText(errno).c_str());
    return false;
  }
  if (!wholeArchive_) umask_ = currentUmask();
  Entry entry;
  planEntry(folder, junkPaths, mode, entry);
  const bool ok = extractPlanned(entry);
  // Alone, an entry puts back at once what it opened up; within a whole
  // archive that waits for the closing pass.
  if (!wholeArchive_) dest_.close();
  return ok;
}

bool ReaderCore::planEntry(const char* folder, bool junkPaths, unsigned long mode, Entry& entry) {
  std::string why;
  if (!currentRecord(entry.rec, why)) {
    entry.refusal = "Failed to read the entry: " + why;
    return false;
  }
  const std::string stored = entryName(entry.rec);
  std::string name = stored;
  if (junkPaths) name = name.substr(name.rfind('/') + 1);
  name = StringUtils::UTF8ToNative(name, nullptr);

  entry.path = folder;
  if (!entry.path.empty() && entry.path.back() != '/') entry.path += '/';
  entry.path += name;
  entry.name = name;
  const EntryType type = entryType(entry.rec, stored);
  // Junked, a companion's folder part is gone and it is an ordinary file.
  const bool companion = type == EntryType::kCompanion && !companionTargetName(name).empty();
  entry.type = type == EntryType::kCompanion && !companion ? EntryType::kFile : type;
  entry.strayCompanion =
      entry.type == EntryType::kFile && name.compare(0, 9, kCompanionFolder) == 0;
  // Asked first, so that a host can leave out an entry it would refuse.
  entry.leftOut =
      filter_ != nullptr && !filter_(entry.name.c_str(), publicKind(entry.type), filterData_);
  if (stored.find('\0') != std::string::npos || hasParentComponent(stored.c_str()) ||
      !normaliseRelative(name, entry.rel)) {
    entry.refusal = "Refusing to extract outside the destination: " + stored;
    return false;
  }
  entry.modeGiven = mode != kKeepEntryMode;
  entry.mode = entry.modeGiven ? static_cast<uint32_t>(mode)
                               : entryMode(entry.rec, entry.type, keepSetId_, umask_);
  return true;
}

bool ReaderCore::extractPlanned(const Entry& entry) {
  if (entry.leftOut) return true;
  if (!entry.refusal.empty()) {
    log(kLogLevelError, "%s", entry.refusal.c_str());
    return false;
  }
  switch (entry.type) {
    case EntryType::kLink:
      return extractLink(entry);
    case EntryType::kFolder:
      return extractFolder(entry);
    case EntryType::kCompanion:
      return extractCompanion(entry);
    case EntryType::kFile:
      break;
  }
  return extractFile(entry);
}

bool ReaderCore::openEntryLogged(const Entry& entry, EntryStream& in) {
  if (in.open(archive_, entry.rec, password_)) return true;
  log(kLogLevelError, "Failed to unzOpenCurrentFilePassword: %s: %s", entry.path.c_str(),
      in.why().c_str());
  return false;
}

bool ReaderCore::extractLink(const Entry& entry) {
  std::string leaf;
  if (entry.rel.empty() || !dest_.parentOf(entry.rel, leaf)) {
    log(kLogLevelError, "Failed to CreateFilePath: %s. %s", entry.path.c_str(),
        errorText(entry.rel.empty() ? EISDIR : errno).c_str());
    return false;
  }
  EntryStream in;
  if (!openEntryLogged(entry, in)) return false;
  // Reading on past the longest target a writer stores only checks the data.
  std::vector<char> chunk(kLinkChunk);
  std::string target;
  ssize_t got;
  while ((got = in.read(chunk.data(), chunk.size())) > 0) {
    if (target.size() < kMaxLinkTarget) target.append(chunk.data(), static_cast<size_t>(got));
  }
  if (got < 0) {
    log(kLogLevelError, "Failed to extract %s: %s", entry.path.c_str(), in.why().c_str());
    return false;
  }
  target.resize(std::min(target.find('\0'), target.size()));
  PendingLink link;
  link.link = DeferredLink{target, entry.name, entry.mode};
  link.rel = entry.rel;
  link.modTime = entryModTime(entry.rec, in.localExtra());
  links_.emplace(entry.path, std::move(link));
  return true;
}

bool ReaderCore::extractFolder(const Entry& entry) {
  const FolderFd dir = dest_.folder(entry.rel);
  if (!dir) {
    log(kLogLevelError, "Failed to CreateFilePath: %s. %s", entry.path.c_str(),
        errorText(errno).c_str());
    return false;
  }
  // The folder is made and its mode and time are due whatever the callback
  // answers: skipping a folder leaves out nothing else.
  LocalEntry local;
  std::string why;
  PendingFolder folder;
  folder.rel = entry.rel;
  folder.mode = entry.modeGiven ? entry.mode & 0777 : entry.mode & 07777;
  folder.modTime = entryModTime(
      entry.rec, archive_.readLocal(entry.rec, local, why) ? local.extra : std::string());
  if (wholeArchive_) {
    folders_.push_back(std::move(folder));
  } else {
    applyFolder(folder);
  }
  return progress_.report(kZLibStateEntryDone, 0, entry.name.c_str(), entry.path.c_str(), true) !=
         kZLibAbort;
}

void ReaderCore::fillWork(const Entry& entry, FileWork& work) const {
  work.rec = entry.rec;
  work.mode = entry.mode;
  work.modTimeFromCentral = entry.rec.hasModTime;
  work.modTime = entryModTime(entry.rec, std::string());
}

FolderFd ReaderCore::prepareFile(const Entry& entry, std::string& leaf) {
  FolderFd dir = entry.rel.empty() ? nullptr : dest_.parentOf(entry.rel, leaf);
  if (!dir) {
    log(kLogLevelError, "Failed to CreateFilePath: %s. %s", entry.path.c_str(),
        errorText(entry.rel.empty() ? EISDIR : errno).c_str());
  }
  return dir;
}

void ReaderCore::decodeHere(const Entry& entry, FileWork& work) {
  const DataReporter live = [this](uint64_t bytes) {
    const uint32_t n = bytes > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(bytes);
    return progress_.report(kZLibStateEntryData, n, nullptr, nullptr,
                            progress_.data().isDirectory) == kZLibContinue;
  };
  const auto retrying = [&](int err) {
    log(kLogLevelDetail, "Failed to open file : %s with code %s", entry.path.c_str(),
        errorText(err).c_str());
  };
  decodeFile(archive_, password_, traits_.writeContent, work, live, retrying);
  // A read-only folder of ours is opened up for as long as the extraction lasts.
  if (work.opened && work.createError == EACCES &&
      dest_.makeWritable(work.dir, parentRel(entry.rel))) {
    decodeFile(archive_, password_, traits_.writeContent, work, live, retrying);
  }
}

bool ReaderCore::finishFile(const Entry& entry, FileWork& work, const FolderFd& dir,
                            const std::string& leaf) {
  const char* path = entry.path.c_str();
  if (!work.opened) {
    log(kLogLevelError, "Failed to unzOpenCurrentFilePassword: %s: %s", path, work.openWhy.c_str());
    return false;
  }
  if (work.createError != 0) {
    log(kLogLevelWarning, "Cannot open file '%s' after all retries for writing: %s", path,
        errorText(work.createError).c_str());
    return false;
  }
  const ContentOutcome& outcome = work.outcome;
  if (outcome.result == ContentOutcome::Result::kNoSizeText) {
    log(kLogLevelError, "Failed to get extra local size for file %s", path);
    return false;
  }
  bool ok = outcome.ok();
  if (!ok && outcome.result != ContentOutcome::Result::kAborted) {
    log(kLogLevelError, "Failed to extract %s: %s", path, outcome.why.c_str());
  }
  if (!outcome.reachedData()) return false;
  if (ok && !work.finishWhy.empty()) {
    log(kLogLevelError, "Failed to extract %s: %s", path, work.finishWhy.c_str());
    ok = false;
  }
  if (ok && entry.strayCompanion) {
    // Under "__MACOSX/" but naming no file: there is nothing to restore.
    log(kLogLevelError, "Failed to extract %s: %s", path, "not a metadata companion");
    ok = false;
  }
  if (ok && !work.staged.publish(dir->get(), leaf.c_str())) {
    log(kLogLevelError, "Failed to extract %s: %s", path, errorText(errno).c_str());
    ok = false;
  }
  work.staged.discard();
  progress_.report(kZLibStateEntryDone, 0, entry.name.c_str(), path, progress_.data().isDirectory);
  return ok;
}

// ahead, when given, holds the content a worker decoded before the entry's
// turn: what it held back is told now, as a single thread would have told it.
bool ReaderCore::extractFile(const Entry& entry, FileWork* ahead) {
  std::string leaf;
  const FolderFd dir = prepareFile(entry, leaf);
  if (!dir) return false;
  const ZLibCallbackAction action =
      progress_.report(kZLibStateEntryStart, 0, entry.name.c_str(), entry.path.c_str(), false);
  if (action == kZLibAbort) return false;
  if (action == kZLibSkip) return true;
  // Opening up a read-only folder changes shared state: left to this thread.
  if (ahead == nullptr || (ahead->opened && ahead->createError == EACCES)) {
    FileWork here;
    fillWork(entry, here);
    here.dir = dir;
    decodeHere(entry, here);
    return finishFile(entry, here, dir, leaf);
  }
  for (int i = 0; i < ahead->createRetries; ++i) {
    log(kLogLevelDetail, "Failed to open file : %s with code %s", entry.path.c_str(),
        errorText(ahead->retryError).c_str());
  }
  for (uint64_t bytes : ahead->reports) {
    const uint32_t n = bytes > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(bytes);
    if (progress_.report(kZLibStateEntryData, n, nullptr, nullptr, false) != kZLibContinue) {
      ahead->outcome = ContentOutcome::failed(ContentOutcome::Result::kAborted, "");
      break;
    }
  }
  return finishFile(entry, *ahead, dir, leaf);
}

bool ReaderCore::extractCompanion(const Entry& entry) {
  std::string targetRel, leaf;
  if (!normaliseRelative(companionTargetName(entry.name), targetRel) || targetRel.empty()) {
    log(kLogLevelError, "Refusing to extract outside the destination: %s", entry.name.c_str());
    return false;
  }
  const std::string targetPath = dest_.display(targetRel);
  const FolderFd dir = dest_.parentOf(targetRel, leaf);
  if (!dir) {
    log(kLogLevelError, "Failed to CreateFilePath: %s. %s", targetPath.c_str(),
        errorText(errno).c_str());
    return false;
  }
  EntryStream in;
  if (!openEntryLogged(entry, in)) return false;
  MemoryTarget bytes(progress_);
  const ContentOutcome outcome = traits_.writeContent(in, bytes);
  if (outcome.result == ContentOutcome::Result::kNoSizeText) {
    log(kLogLevelError, "Failed to get extra local size for file %s", entry.path.c_str());
  } else if (!outcome.ok() && outcome.result != ContentOutcome::Result::kAborted) {
    log(kLogLevelError, "Failed to extract %s: %s", entry.path.c_str(), outcome.why.c_str());
  }
  if (!outcome.reachedData()) return false;
  progress_.report(kZLibStateEntryDone, 0, entry.name.c_str(), targetPath.c_str(),
                   progress_.data().isDirectory);
  if (!outcome.ok()) return false;

  AppleDoubleContents contents;
  if (!appleDoubleParse(bytes.bytes.data(), bytes.bytes.size(), contents)) {
    log(kLogLevelError, "Failed to restore the metadata of %s: %s", targetPath.c_str(),
        "not a valid AppleDouble companion");
    return false;
  }
  // The file it describes is normally there already; if not, it is made empty.
  UniqueFd target(openat(dir->get(), leaf.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!target.ok() && errno == ENOENT) {
    UniqueFd made(openat(dir->get(), leaf.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    target.reset(openat(dir->get(), leaf.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  }
  struct stat st;
  int err = 0;
  if (!target.ok() || fstat(target.get(), &st) != 0) {
    err = errno;
  } else if (S_ISLNK(st.st_mode)) {
    err = ELOOP;  // metadata never goes through a link
  } else if (applyCompanion(contents, target.get()) != 0) {
    err = errno;
  }
  if (err != 0) {
    log(kLogLevelError, "Failed to restore the metadata of %s: %s", targetPath.c_str(),
        errorText(err).c_str());
    return false;
  }
  return true;
}

// --- Whole archive ----------------------------------------------------------

bool ReaderCore::makeLink(const std::string& key, const PendingLink& pending) {
  std::string leaf;
  const FolderFd dir = dest_.parentOf(pending.rel, leaf);
  int err = 0;
  std::string temp;
  if (!dir) {
    err = errno;
  } else {
    // Made under a fresh name, then renamed over whatever stands there.
    bool relaxed = false;
    for (int attempt = 0; temp.empty(); ++attempt) {
      std::string name = stagingName();
      if (symlinkat(pending.link.linkTarget.c_str(), dir->get(), name.c_str()) == 0) {
        temp = std::move(name);
      } else if (errno == EACCES && !relaxed && dest_.makeWritable(dir, parentRel(pending.rel))) {
        relaxed = true;
      } else if (errno != EEXIST || attempt == kAttempts) {
        err = errno;
        break;
      }
    }
  }
  if (err == 0) {
    timespec ts[2];
    timesFor(pending.modTime, ts);
    utimensat(dir->get(), temp.c_str(), ts, AT_SYMLINK_NOFOLLOW);
    if (renameat(dir->get(), temp.c_str(), dir->get(), leaf.c_str()) != 0) {
      err = errno;
      // An empty folder gives way; one with something in it does not.
      if (err == EISDIR) {
        err = unlinkat(dir->get(), leaf.c_str(), AT_REMOVEDIR) == 0 &&
                      renameat(dir->get(), temp.c_str(), dir->get(), leaf.c_str()) == 0
                  ? 0
                  : errno;
      }
      if (err != 0) unlinkat(dir->get(), temp.c_str(), 0);
    }
  }
  if (err != 0) {
    log(kLogLevelError, "Failed to create the link %s: %s", key.c_str(), errorText(err).c_str());
    return false;
  }
  return true;
}

void ReaderCore::applyFolder(const PendingFolder& folder) {
  const FolderFd fd = dest_.folder(folder.rel);
  if (!fd) return;
  const std::string path = procPath(fd->get());
  if (folder.mode != 0 && folder.mode != kNoMode) chmod(path.c_str(), folder.mode);
  timespec ts[2];
  timesFor(folder.modTime, ts);
  utimensat(AT_FDCWD, path.c_str(), ts, 0);
}

bool ReaderCore::finishPass() {
  bool ok = true;
  for (const auto& [key, pending] : links_) {
    ok = makeLink(key, pending) && ok;
    if (progress_.report(kZLibStateEntryDone, 0, pending.link.entryName.c_str(), key.c_str(),
                         false) == kZLibAbort) {
      break;
    }
  }
  links_.clear();
  // Folders last, deepest first: filling a folder changes its time, and a
  // read-only folder could not have been filled.
  dest_.restoreFolders();
  std::stable_sort(folders_.begin(), folders_.end(), [](const auto& a, const auto& b) {
    return std::count(a.rel.begin(), a.rel.end(), '/') >
           std::count(b.rel.begin(), b.rel.end(), '/');
  });
  for (const PendingFolder& folder : folders_) applyFolder(folder);
  folders_.clear();
  return ok;
}

bool ReaderCore::unzipTo(const char* destFolder, bool junkPaths, unsigned long mode) {
  if (zip_ == nullptr) return false;
  if (destFolder == nullptr || !createFolder(destFolder) || !openDestination(destFolder)) {
    log(kLogLevelError, "Folder creation failed: %s",
        destFolder != nullptr ? destFolder : "(null)");
    return false;
  }
  if (getFileCount() == 0) {
    log(kLogLevelError, "Failed to get file count.");
    return false;
  }
  if (!gotoFirstFile(nullptr)) {
    log(kLogLevelError, "Failed to go to First File.");
    return false;
  }
  umask_ = currentUmask();
  links_.clear();
  folders_.clear();
  wholeArchive_ = true;
  bool ok = true;
  if (threads_ > 1) {
    ok = extractInParallel(destFolder, junkPaths, mode);
  } else {
    // The destination is open already: each entry goes straight to its plan.
    do {
      Entry entry;
      planEntry(destFolder, junkPaths, mode, entry);
      ok = extractPlanned(entry);
    } while (ok && gotoNextFile(nullptr));
  }
  wholeArchive_ = false;
  if (ok) {
    ok = finishPass();
  } else {
    links_.clear();
    folders_.clear();
  }
  dest_.close();
  return ok;
}

bool ReaderCore::unzip(bool junkPaths) {
  if (zip_ == nullptr) return false;
  return unzipTo(outputFolder_, junkPaths, kKeepEntryMode);
}

bool ReaderCore::unzip(const char* zipPath, const char* destFolder, bool junkPaths,
                       unsigned long mode) {
  closeHandle();
  if (!openZip(zipPath)) return false;
  const bool ok = unzipTo(destFolder != nullptr ? destFolder : outputFolder_, junkPaths, mode);
  closeHandle();
  return ok;
}

bool ReaderCore::setFileModTime(const char* path, unsigned long dosDate) {
  if (path == nullptr) return false;
  timespec ts[2];
  timesFor(dosDateToTime(static_cast<uint32_t>(dosDate)), ts);
  return utimensat(AT_FDCWD, path, ts, AT_SYMLINK_NOFOLLOW) == 0;
}

}  // namespace velzip
