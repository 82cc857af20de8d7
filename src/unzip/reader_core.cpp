#include "unzip/reader_core.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "frame/handles.h"
#include "platform/apple_double.h"
#include "velzip/StringUtils.h"

namespace velzip {
namespace {

constexpr int kAttempts = 20;  // one try and 19 retries
constexpr useconds_t kRetryDelayUs = 100000;
constexpr uint32_t kTypeMask = 0xF000;
constexpr uint32_t kTypeLink = 0xA000;
constexpr uint32_t kNoMode = 0xFFFFFFFFu;
constexpr size_t kLinkChunk = 65535;
constexpr size_t kMaxLinkTarget = 65536;
constexpr char kForkFolder[] = "__MACOSX/";
constexpr size_t kForkFolderLen = sizeof kForkFolder - 1;
constexpr char kForkTempTemplate[] = "/tmp/moxzip.temp.XXXXXX";

std::string errorText() {
  return StringUtils::GetLastErrorString(-1);
}

// The text before the last '/'; false when there is none.
bool cutAtLastSlash(const char* path, std::string& head) {
  const char* slash = std::strrchr(path, '/');
  if (slash == nullptr) return false;
  head.assign(path, static_cast<size_t>(slash - path));
  return true;
}

// Link modes mean nothing on Linux, and chmod on a link would change
// whatever it points to, possibly outside the destination.
void applyFolderMode(const char* path, uint32_t mode) {
  if (mode == 0 || mode == kNoMode || (mode & kTypeMask) == kTypeLink) return;
  struct stat st;
  if (lstat(path, &st) == 0 && S_ISLNK(st.st_mode)) return;
  chmod(path, mode & 0x1FF);
}

// full is a destination prefix of prefixLen bytes plus a part taken from
// the archive; only that part is examined (the prefix is the caller's).
bool escapesDestination(const char* full, size_t prefixLen) {
  const size_t len = std::strlen(full);
  return hasParentComponent(full + (prefixLen < len ? prefixLen : len));
}

// Removes a staging file on every way out.
class ScopedUnlink {
 public:
  ScopedUnlink() = default;
  ~ScopedUnlink() {
    if (!path_.empty()) unlink(path_.c_str());
  }
  ScopedUnlink(const ScopedUnlink&) = delete;
  ScopedUnlink& operator=(const ScopedUnlink&) = delete;
  void arm(const char* path) { path_ = path; }

 private:
  std::string path_;
};

// A stream on a new descriptor for the same open file; errno survives failure.
FILE* streamOnDuplicate(int fd) {
  const int copy = dup(fd);
  if (copy < 0) return nullptr;
  FILE* f = fdopen(copy, "wb");
  if (f == nullptr) {
    const int saved = errno;
    close(copy);
    errno = saved;
  }
  return f;
}

// Never writes through a link already sitting at path.
FILE* createOutput(const char* path) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (fd < 0) return nullptr;
  FILE* f = fdopen(fd, "wb");
  if (f == nullptr) {
    const int saved = errno;
    close(fd);
    errno = saved;
  }
  return f;
}

bool extensionMatches(const char* name, const char* extension) {
  const char* dot = std::strrchr(name, '.');
  return dot != nullptr && strcasecmp(dot + 1, extension) == 0;
}

}  // namespace

bool hasParentComponent(const char* path) {
  for (const char* p = path; p != nullptr && *p != '\0';) {
    const char* end = std::strchr(p, '/');
    const size_t len = end != nullptr ? static_cast<size_t>(end - p) : std::strlen(p);
    if (len == 2 && p[0] == '.' && p[1] == '.') return true;
    p = end != nullptr ? end + 1 : nullptr;
  }
  return false;
}

ReaderCore::ReaderCore(const ReaderTraits& traits, const char* zipPath) : traits_(traits) {
  openZip(zipPath);
}

ReaderCore::~ReaderCore() {
  closeHandle();
}

void ReaderCore::closeHandle() {
  if (zip_ == nullptr) return;
  closeEntry();
  unzClose(zip_);
  zip_ = nullptr;
}

// --- Archive and navigation -------------------------------------------------

bool ReaderCore::openZip(const char* zipPath) {
  closeHandle();
  if (zipPath == nullptr) return false;
  zip_ = unzOpen64(zipPath);
  if (zip_ == nullptr) return false;
  std::string folder = zipPath;
  const size_t dot = folder.rfind('.');
  if (dot != std::string::npos) folder.resize(dot);
  boundedCopy(outputFolder_, folder.c_str());
  return true;
}

bool ReaderCore::closeZip() {
  if (zip_ == nullptr) return false;
  closeEntry();
  const int rc = unzClose(zip_);
  zip_ = nullptr;
  return rc == UNZ_OK;
}

bool ReaderCore::setOutputFolder(const char* folder) {
  struct stat st;
  if (folder == nullptr || lstat(folder, &st) != 0 || !S_ISDIR(st.st_mode)) return false;
  boundedCopy(outputFolder_, folder);
  return createFolder(folder);
}

unsigned long ReaderCore::getFileCount() {
  if (zip_ == nullptr) return 0;
  unz_global_info64 global;
  if (unzGetGlobalInfo64(zip_, &global) != UNZ_OK) return 0;
  return static_cast<unsigned long>(global.number_entry);
}

bool ReaderCore::gotoFirstFile(const char* extension) {
  if (zip_ == nullptr) return false;
  if (extension == nullptr || *extension == '\0') return unzGoToFirstFile(zip_) == UNZ_OK;
  if (unzGoToFirstFile(zip_) != UNZ_OK) return false;
  UZ_FileInfo info;
  if (!getFileInfo(info)) return false;
  if (extensionMatches(info.fileName, extension)) return true;
  return gotoNextFile(extension);
}

bool ReaderCore::gotoNextFile(const char* extension) {
  if (zip_ == nullptr) return false;
  if (extension == nullptr || *extension == '\0') return unzGoToNextFile(zip_) == UNZ_OK;
  while (unzGoToNextFile(zip_) == UNZ_OK) {
    UZ_FileInfo info;
    if (!getFileInfo(info)) return false;
    if (extensionMatches(info.fileName, extension)) return true;
  }
  return false;
}

bool ReaderCore::positionOn(int index) {
  if (index < 0 || zip_ == nullptr) return false;
  if (static_cast<unsigned long>(index) >= getFileCount()) return false;
  if (unzGoToFirstFile(zip_) != UNZ_OK) return false;
  for (int i = 0; i < index; ++i) {
    if (unzGoToNextFile(zip_) != UNZ_OK) return false;
  }
  return true;
}

bool ReaderCore::gotoFile(int index) {
  return positionOn(index);
}

bool ReaderCore::gotoFile(const char* name, bool matchBaseName) {
  if (zip_ == nullptr || name == nullptr) return false;
  if (unzLocateFile(zip_, name, 2) == UNZ_OK) return true;
  if (!matchBaseName || unzGoToFirstFile(zip_) != UNZ_OK) return false;
  do {
    UZ_FileInfo info;
    if (!getFileInfo(info)) return false;
    // Only names inside a folder are compared by their last component.
    const char* slash = std::strrchr(info.fileName, '/');
    if (slash != nullptr && strcasecmp(slash + 1, name) == 0) return true;
  } while (unzGoToNextFile(zip_) == UNZ_OK);
  return false;
}

bool ReaderCore::fillInfo(UZ_FileInfo& info, uint64_t* fullUncompressedSize) {
  if (zip_ == nullptr) return false;
  std::memset(&info, 0, sizeof info);
  unz_file_info64 raw;
  // One byte of each buffer stays zero so both texts are always terminated.
  if (unzGetCurrentFileInfo64(zip_, &raw, info.fileName, sizeof info.fileName - 1, nullptr, 0,
                              info.comment, sizeof info.comment - 1) != UNZ_OK) {
    std::memset(&info, 0, sizeof info);
    return false;
  }
  info.version = static_cast<uint32_t>(raw.version);
  info.versionNeeded = static_cast<uint32_t>(raw.version_needed);
  info.flag = static_cast<uint32_t>(raw.flag);
  info.compressionMethod = static_cast<uint32_t>(raw.compression_method);
  info.dosDate = static_cast<uint32_t>(raw.dosDate);
  info.crc = static_cast<uint32_t>(raw.crc);
  info.compressedSize = static_cast<uint32_t>(raw.compressed_size);
  info.uncompressedSize = static_cast<uint32_t>(raw.uncompressed_size);
  info.internalAttributes = static_cast<uint32_t>(raw.internal_fa);
  info.mode = static_cast<uint32_t>(raw.external_fa >> 16) & 0xFFFFu;
  for (char* c = info.fileName; *c != '\0'; ++c) {
    if (*c == '\\') *c = '/';
  }
  const size_t len = std::strlen(info.fileName);
  info.isDirectory = len > 0 && info.fileName[len - 1] == '/';
  if (fullUncompressedSize != nullptr) *fullUncompressedSize = raw.uncompressed_size;
  return true;
}

bool ReaderCore::getFileInfo(UZ_FileInfo& info) {
  return fillInfo(info, nullptr);
}

bool ReaderCore::getFileInfo(int index, UZ_FileInfo& info) {
  return positionOn(index) && fillInfo(info, nullptr);
}

unsigned long long ReaderCore::getUnzipSize() {
  if (unzipSize_ != 0) return unzipSize_;
  const unsigned long count = getFileCount();
  if (count == 0) return unzipSize_;
  unzGoToFirstFile(zip_);
  for (unsigned long i = 0; i < count; ++i) {
    UZ_FileInfo info;
    uint64_t size = 0;
    fillInfo(info, &size);
    unzipSize_ += size;
    if (unzGoToNextFile(zip_) != UNZ_OK) break;
  }
  return unzipSize_;
}

// --- Entry data ---------------------------------------------------------------

int ReaderCore::openEntry() {
  return entry_.open(zip_, password_);
}

int ReaderCore::readEntry(void* buffer, unsigned size) {
  return entry_.read(buffer, size);
}

int ReaderCore::closeEntry() {
  return entry_.close();
}

// --- Folders ----------------------------------------------------------------

bool ReaderCore::createFolder(const char* path) {
  if (path == nullptr || *path == '\0') return false;
  struct stat st;
  if (lstat(path, &st) == 0) return S_ISDIR(st.st_mode);

  // "a/b/" names the folder a/b: without this its own mkdir would meet the
  // folder the recursion just made.
  const size_t len = std::strlen(path);
  if (len > 1 && path[len - 1] == '/') {
    std::string trimmed(path, len - 1);
    return createFolder(trimmed.c_str());
  }

  std::string parent;
  if (!cutAtLastSlash(path, parent)) return true;
  if (!createFolder(parent.c_str())) return false;
  if (mkdir(path, 0775) == 0) return true;
  for (int attempt = 1; attempt < kAttempts; ++attempt) {
    log(kLogLevelDetail, "Failed to create directory: %s with code %s", path, errorText().c_str());
    usleep(kRetryDelayUs);
    if (mkdir(path, 0775) == 0) return true;
  }
  log(kLogLevelWarning, "Failed to create directory after %d retry attempts: %s with code %s",
      kAttempts, path, errorText().c_str());
  return false;
}

bool ReaderCore::createFilePath(const char* path) {
  std::string parent;
  if (path == nullptr || !cutAtLastSlash(path, parent)) return false;
  return createFolder(parent.c_str());
}

// --- One entry ----------------------------------------------------------------

bool ReaderCore::unzipFile(int index, const char* destFolder, bool junkPaths, unsigned long mode) {
  if (zip_ == nullptr) {
    logTagged(kLogLevelError, "NULLARG", "NULL unzip File. OpenZip not called successfully.");
    return false;
  }
  if (!positionOn(index)) return false;
  return unzipFile(destFolder, junkPaths, mode);
}

bool ReaderCore::unzipFile(const char* destFolder, bool junkPaths, unsigned long mode) {
  if (zip_ == nullptr) return false;
  const char* folder = destFolder != nullptr ? destFolder : outputFolder_;
  if (!createFolder(folder)) {
    log(kLogLevelError, "Failed to create destinationFolder '%s'.  %s", folder,
        errorText().c_str());
    return false;
  }

  UZ_FileInfo info;
  getFileInfo(info);

  char path[kPathBufferSize];
  boundedCopy(path, folder);
  const size_t folderLen = std::strlen(folder);
  if (folderLen > 0 && folder[folderLen - 1] != '/') boundedAppend(path, "/");
  const size_t prefixLen = std::strlen(path);

  const char* name = info.fileName;
  if (junkPaths) {
    const char* slash = std::strrchr(name, '/');
    if (slash != nullptr) name = slash + 1;
  }
  const std::string entryName = StringUtils::UTF8ToNative(std::string(name), nullptr);
  boundedAppend(path, entryName.c_str());

  // Checked on the path actually used too: cutting it to size can turn a
  // harmless "..x" into "..".
  if (hasParentComponent(info.fileName) || escapesDestination(path, prefixLen)) {
    log(kLogLevelError, "Refusing to extract outside the destination: %s", info.fileName);
    return false;
  }

  const uint32_t effectiveMode = mode == kKeepEntryMode ? info.mode : static_cast<uint32_t>(mode);
  if ((info.mode & kTypeMask) == kTypeLink) return recordLink(path, entryName, effectiveMode);
  return extractData(path, entryName, folder, effectiveMode, info.isDirectory);
}

bool ReaderCore::recordLink(const char* path, const std::string& entryName, uint32_t mode) {
  std::string parent;
  if (!cutAtLastSlash(path, parent) || !createFolder(parent.c_str())) {
    log(kLogLevelError, "Failed to CreateFilePath: %s", path);
    return false;
  }
  if (openEntry() != UNZ_OK) {
    log(kLogLevelError, "Failed to unzOpenCurrentFilePassword: %s", path);
    return false;
  }
  std::vector<char> chunk(kLinkChunk + 1);
  std::string target;
  int got;
  while ((got = readEntry(chunk.data(), kLinkChunk)) > 0) {
    chunk[static_cast<size_t>(got)] = '\0';
    // No link target is longer than a writer stores; reading on only checks
    // the data for errors.
    if (target.size() < kMaxLinkTarget) target.append(chunk.data());  // up to the first NUL
  }
  closeEntry();
  if (got < 0) return false;
  links_.emplace(path, DeferredLink{target, entryName, mode});
  return true;
}

bool ReaderCore::extractData(const char* entryPath, const std::string& entryName,
                             const char* destFolder, uint32_t mode, bool isDirectory) {
  char path[kPathBufferSize];
  boundedCopy(path, entryPath);
  const char* name = entryName.c_str();

  bool isFork = false;
  char companion[kPathBufferSize] = {};
  UniqueFd staging;
  ScopedUnlink stagingGuard;

  if (std::strncmp(name, kForkFolder, kForkFolderLen) == 0) {
    isFork = true;
    char rest[kPathBufferSize];
    boundedCopy(rest, name + kForkFolderLen);
    char* slash = std::strrchr(rest, '/');
    const char* base = rest;
    std::string folderPart;
    if (slash != nullptr) {
      *slash = '\0';
      folderPart = rest;
      base = slash + 1;
    }
    if (std::strlen(base) >= 3 && std::strncmp(base, "._", 2) == 0) {
      boundedCopy(companion, destFolder);
      boundedAppend(companion, "/");
      const size_t prefixLen = std::strlen(companion);
      if (!folderPart.empty()) {
        boundedAppend(companion, folderPart.c_str());
        boundedAppend(companion, "/");
      }
      boundedAppend(companion, base + 2);
      if (escapesDestination(companion, prefixLen)) {
        log(kLogLevelError, "Refusing to extract outside the destination: %s", name);
        return false;
      }
      const int existing = open(companion, O_RDONLY | O_CLOEXEC);
      if (existing >= 0) {
        close(existing);
      } else {
        UniqueFd created(open(companion, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666));
      }

      char temp[] = "/tmp/moxzip.temp.XXXXXX";
      staging.reset(mkstemp(temp));
      if (!staging.ok()) {
        closeEntry();
        log(kLogLevelError, "Failed to create temp file: %s", kForkTempTemplate);
        return false;
      }
      stagingGuard.arm(temp);
      boundedCopy(path, temp);
    }
  }

  if (!staging.ok()) {
    std::string parent;
    if (!cutAtLastSlash(path, parent) || !createFolder(parent.c_str())) {
      log(kLogLevelError, "Failed to CreateFilePath: %s. %s", path, errorText().c_str());
      return false;
    }
    if (isDirectory) applyFolderMode(path, mode);
    const ZLibCallbackAction action = progress_.report(
        isDirectory ? kZLibStateEntryDone : kZLibStateEntryStart, 0, name, path, isDirectory);
    if (action == kZLibAbort) return false;
    if (action == kZLibSkip || isDirectory) return true;
  }

  auto openOutput = [&]() -> FILE* {
    return staging.ok() ? streamOnDuplicate(staging.get()) : createOutput(path);
  };
  UniqueFile out(openOutput());
  for (int attempt = 1; !out; ++attempt) {
    if (attempt == kAttempts) {
      log(kLogLevelWarning, "Cannot open file '%s' after all retries for writing: %s", path,
          errorText().c_str());
      return false;
    }
    log(kLogLevelDetail, "Failed to open file : %s with code %s", path, errorText().c_str());
    usleep(kRetryDelayUs);
    out.reset(openOutput());
  }

  if (openEntry() != UNZ_OK) {
    log(kLogLevelError, "Failed to unzOpenCurrentFilePassword: %s", path);
    return false;
  }

  const ContentOutcome outcome = traits_.writeContent(*this, out.get(), path);
  if (!outcome.reachedData) {
    closeEntry();
    return false;
  }
  int error = outcome.error;
  // Closing checks the container's CRC of everything read.
  const int closed = closeEntry();
  if (error == 0 && closed == UNZ_CRCERROR) {
    // Content that fails its check is not left looking complete.
    error = UNZ_CRCERROR;
    if (std::fflush(out.get()) == 0) ftruncate(fileno(out.get()), 0);
  }
  if (error == 0) {
    if (std::fflush(out.get()) != 0) {
      error = -1;
    } else {
      fchmod(fileno(out.get()), mode & 0xFFFF);
    }
  }
  if (std::fclose(out.release()) != 0 && error == 0) error = -1;
  progress_.report(kZLibStateEntryDone, 0, name, path, progress_.data().isDirectory);

  if (isFork) {
    if (error == 0) {
      // An entry under "__MACOSX/" that names no companion has nothing to
      // restore: it is removed and counts as a failed restore.
      if (!staging.ok() || lseek(staging.get(), 0, SEEK_SET) != 0 ||
          appleDoubleUnpackFd(staging.get(), companion) != 0) {
        error = -1;
      }
    }
    if (!staging.ok()) unlink(path);
  }
  return error == 0;
}

// --- Whole archive ----------------------------------------------------------

void ReaderCore::makeDeferredLinks() {
  for (const auto& [linkPath, link] : links_) {
    // Whatever already sits at the path stays as it is.
    const int made = symlink(link.linkTarget.c_str(), linkPath.c_str());
    static_cast<void>(made);
    applyFolderMode(linkPath.c_str(), link.mode);
    if (progress_.report(kZLibStateEntryDone, 0, link.entryName.c_str(), linkPath.c_str(), false) ==
        kZLibAbort) {
      break;
    }
  }
  links_.clear();
}

bool ReaderCore::unzipTo(const char* destFolder, bool junkPaths, unsigned long mode) {
  if (zip_ == nullptr) return false;
  if (destFolder == nullptr || !createFolder(destFolder)) {
    log(kLogLevelError, "Folder creation failed: %s",
        destFolder != nullptr ? destFolder : "(null)");
    return false;
  }
  unz_global_info64 global;
  if (unzGetGlobalInfo64(zip_, &global) != UNZ_OK || global.number_entry == 0) {
    log(kLogLevelError, "Failed to get file count.");
    return false;
  }
  if (unzGoToFirstFile(zip_) != UNZ_OK) {
    log(kLogLevelError, "Failed to go to First File.");
    return false;
  }
  links_.clear();
  do {
    if (!unzipFile(destFolder, junkPaths, mode)) return false;
  } while (unzGoToNextFile(zip_) == UNZ_OK);
  makeDeferredLinks();
  return true;
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

}  // namespace velzip
