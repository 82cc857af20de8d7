// The archive, navigation and entry records. Extraction is in reader_extract.cpp.
#include "unzip/reader_core.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "frame/bounded.h"
#include "velzip/StringUtils.h"

namespace velzip {
namespace {

constexpr int kAttempts = 20;  // one try and 19 retries
constexpr useconds_t kRetryDelayUs = 100000;
// An end record that says 0xFFFF entries may be a count that overflowed:
// the zip layer then walks to the end of the directory, and so do we.
constexpr unsigned long kUnknownCount = 0xFFFF;

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

bool extensionMatches(const char* name, const char* extension) {
  const char* dot = std::strrchr(name, '.');
  return dot != nullptr && strcasecmp(dot + 1, extension) == 0;
}

// The zip convention for a value that does not fit 32 bits.
uint32_t cut32(uint64_t value) {
  return value > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(value);
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
  if (zip_ != nullptr) unzClose(zip_);
  zip_ = nullptr;
  archive_.close();
  dest_.close();
}

// --- Archive and navigation -------------------------------------------------

bool ReaderCore::openZip(const char* zipPath) {
  closeHandle();
  if (zipPath == nullptr || !archive_.open(zipPath)) return false;
  // The zip layer walks the directory through the archive file's own reads.
  zip_ = unzOpen2_64(zipPath, archive_.zipFunctions());
  if (zip_ == nullptr) {
    archive_.close();
    return false;
  }
  umask_ = currentUmask();
  std::string folder = zipPath;
  const size_t dot = folder.rfind('.');
  if (dot != std::string::npos) folder.resize(dot);
  boundedCopy(outputFolder_, folder.c_str());
  return true;
}

bool ReaderCore::closeZip() {
  if (zip_ == nullptr) return false;
  const int rc = unzClose(zip_);
  zip_ = nullptr;
  archive_.close();
  dest_.close();
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

unsigned long ReaderCore::currentIndex() const {
  unz64_file_pos pos;
  if (unzGetFilePos64(zip_, &pos) != UNZ_OK) return 0;
  return static_cast<unsigned long>(pos.num_of_file);
}

// The zip layer walks past the count an end record gives when that count is
// 0; navigation never goes where getFileCount() says nothing is.
bool ReaderCore::gotoFirstFile(const char* extension) {
  if (zip_ == nullptr || getFileCount() == 0) return false;
  if (unzGoToFirstFile(zip_) != UNZ_OK) return false;
  if (extension == nullptr || *extension == '\0') return true;
  UZ_FileInfo info;
  if (!getFileInfo(info)) return false;
  if (extensionMatches(info.fileName, extension)) return true;
  return gotoNextFile(extension);
}

bool ReaderCore::gotoNextFile(const char* extension) {
  if (zip_ == nullptr) return false;
  const unsigned long count = getFileCount();
  for (;;) {
    if (count != kUnknownCount && currentIndex() + 1 >= count) return false;
    if (unzGoToNextFile(zip_) != UNZ_OK) return false;
    if (extension == nullptr || *extension == '\0') return true;
    UZ_FileInfo info;
    if (!getFileInfo(info)) return false;
    if (extensionMatches(info.fileName, extension)) return true;
  }
}

bool ReaderCore::positionOn(int index) {
  if (index < 0 || zip_ == nullptr) return false;
  const auto target = static_cast<unsigned long>(index);
  if (target >= getFileCount()) return false;
  // Forward from where the walk stands: visiting every entry in turn by
  // index then reads each central record once, not from the start each time.
  unz64_file_pos pos;
  unsigned long at = 0;
  if (unzGetFilePos64(zip_, &pos) == UNZ_OK && pos.num_of_file <= target) {
    at = static_cast<unsigned long>(pos.num_of_file);
  } else if (unzGoToFirstFile(zip_) != UNZ_OK) {
    return false;
  }
  for (; at < target; ++at) {
    if (unzGoToNextFile(zip_) != UNZ_OK) return false;
  }
  return true;
}

bool ReaderCore::gotoFile(int index) {
  return positionOn(index);
}

bool ReaderCore::gotoFile(const char* name, bool matchBaseName) {
  if (zip_ == nullptr || name == nullptr || getFileCount() == 0) return false;
  if (unzLocateFile(zip_, name, 2) == UNZ_OK) return true;
  // The zip layer compares the stored bytes; a name converted from another
  // code page, or given by a Unicode Path field, is found by what it reads as.
  for (const bool wholeName : {true, false}) {
    if (!wholeName && !matchBaseName) break;
    if (!gotoFirstFile(nullptr)) return false;
    do {
      UZ_FileInfo info;
      if (!getFileInfo(info)) return false;
      // Only names inside a folder are compared by their last component.
      const char* slash = std::strrchr(info.fileName, '/');
      const char* compared = wholeName ? info.fileName : slash != nullptr ? slash + 1 : nullptr;
      if (compared != nullptr && strcasecmp(compared, name) == 0) return true;
    } while (gotoNextFile(nullptr));
  }
  return false;
}

bool ReaderCore::currentRecord(ZipEntryRecord& rec, std::string& why) const {
  const uint64_t offset = zip_ != nullptr ? unzGetOffset64(zip_) : 0;
  if (offset == 0) {
    why = "no current entry";
    return false;
  }
  return archive_.readCentral(offset, rec, why);
}

bool ReaderCore::fillInfo(UZ_FileInfo& info, uint64_t* fullUncompressedSize) {
  if (zip_ == nullptr) return false;
  std::memset(&info, 0, sizeof info);
  ZipEntryRecord rec;
  std::string why;
  if (!currentRecord(rec, why)) return false;
  const std::string name = entryName(rec);
  // One byte of each buffer stays zero so both texts are always terminated.
  name.copy(info.fileName, sizeof info.fileName - 1);
  rec.comment.copy(info.comment, sizeof info.comment - 1);
  info.version = rec.versionMadeBy;
  info.versionNeeded = rec.versionNeeded;
  info.flag = rec.flag;
  info.compressionMethod = rec.method;
  info.dosDate = rec.dosDate;
  info.crc = rec.crc;
  info.compressedSize = cut32(rec.compressedSize);
  info.uncompressedSize = cut32(rec.uncompressedSize);
  info.internalAttributes = rec.internalAttributes;
  info.mode = rec.externalAttributes >> 16;
  info.isDirectory = entryType(rec, name) == EntryType::kFolder;
  if (fullUncompressedSize != nullptr) *fullUncompressedSize = rec.uncompressedSize;
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
  if (count == 0 || unzGoToFirstFile(zip_) != UNZ_OK) return unzipSize_;
  for (unsigned long i = 0; i < count; ++i) {
    UZ_FileInfo info;
    uint64_t size = 0;
    fillInfo(info, &size);
    unzipSize_ += size;
    if (unzGoToNextFile(zip_) != UNZ_OK) break;
  }
  return unzipSize_;
}

// --- Folders ----------------------------------------------------------------

bool ReaderCore::createFolder(const char* path) {
  if (path == nullptr || *path == '\0') return false;
  struct stat st;
  if (lstat(path, &st) == 0) {
    if (S_ISDIR(st.st_mode)) return true;
    errno = ENOTDIR;
    return false;
  }

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
  // Only errors that can pass are worth the wait of another attempt.
  int attempt = 1;
  for (;; ++attempt) {
    if (mkdir(path, 0775) == 0) return true;
    if (errno == EEXIST && lstat(path, &st) == 0) return S_ISDIR(st.st_mode);
    if (!isTransientError(errno) || attempt == kAttempts) break;
    log(kLogLevelDetail, "Failed to create directory: %s with code %s", path, errorText().c_str());
    usleep(kRetryDelayUs);
  }
  log(kLogLevelWarning, "Failed to create directory after %d retry attempts: %s with code %s",
      attempt, path, errorText().c_str());
  return false;
}

bool ReaderCore::createFilePath(const char* path) {
  std::string parent;
  if (path == nullptr || !cutAtLastSlash(path, parent)) return false;
  return createFolder(parent.c_str());
}

}  // namespace velzip
