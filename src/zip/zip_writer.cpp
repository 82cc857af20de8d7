#include "zip/zip_writer.h"

#include <dirent.h>
#include <libgen.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "lzma/entry_layout.h"
#include "platform/apple_double.h"
#include "velzip/StringUtils.h"

namespace velzip {
namespace {

constexpr size_t kBlockSize = 65536;
constexpr size_t kLinkTargetSize = 65536;
constexpr char kCompanionTemplate[] = "/tmp/ulvozip.temp.XXXXXX";

class ScopedDir {
 public:
  explicit ScopedDir(const char* path) : dir_(opendir(path)) {}
  ~ScopedDir() {
    if (dir_ != nullptr) closedir(dir_);
  }
  ScopedDir(const ScopedDir&) = delete;
  ScopedDir& operator=(const ScopedDir&) = delete;
  DIR* get() const { return dir_; }

 private:
  DIR* dir_;
};

class ScopedFile {
 public:
  explicit ScopedFile(FILE* file) : file_(file) {}
  ~ScopedFile() {
    if (file_ != nullptr) std::fclose(file_);
  }
  ScopedFile(const ScopedFile&) = delete;
  ScopedFile& operator=(const ScopedFile&) = delete;
  FILE* get() const { return file_; }

 private:
  FILE* file_;
};

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Some file systems leave the type to lstat.
bool listedAsDirectory(const dirent* entry, const char* childPath) {
  if (entry->d_type != DT_UNKNOWN) return entry->d_type == DT_DIR;
  struct stat st;
  return lstat(childPath, &st) == 0 && S_ISDIR(st.st_mode);
}

void trimTrailingSeparators(char* path) {
  size_t len = std::strlen(path);
  while (len > 1 && (path[len - 1] == '/' || path[len - 1] == '\\')) path[--len] = '\0';
}

void childPath(char (&child)[kPathBufferSize], const char* folder, const char* name) {
  boundedCopy(child, folder);
  boundedAppend(child, "/");
  boundedAppend(child, name);
}

std::string toUtf8(const char* text) {
  std::string out;
  StringUtils::NativeToUTF8(text, out, nullptr);
  return out;
}

ssize_t readSome(int fd, char* buf, size_t size) {
  for (;;) {
    const ssize_t n = ::read(fd, buf, size);
    if (n >= 0 || errno != EINTR) return n;
  }
}

}  // namespace

ZipWriter::~ZipWriter() {
  if (zip_ != nullptr) zipClose(zip_, nullptr);
}

char* ZipWriter::buffer() {
  if (!buffer_) buffer_ = std::make_unique<char[]>(kBlockSize);
  return buffer_.get();
}

bool ZipWriter::open(const char* zipPath, const char* baseDir, bool append) {
  if (zip_ != nullptr) zipClose(zip_, nullptr);
  zip_ = nullptr;
  base_[0] = '\0';
  if (zipPath == nullptr || zipPath[0] == '\0') return false;

  char path[kPathBufferSize];
  if (zipPath[0] == '/') {
    boundedCopy(path, zipPath);
  } else {
    char cwd[kPathBufferSize + 1];
    if (getcwd(cwd, sizeof cwd) != nullptr) {
      size_t len = std::strlen(cwd);
      while (len > 1 && cwd[len - 1] == '/') cwd[--len] = '\0';
    } else {
      cwd[0] = '\0';
    }
    boundedCopy(path, cwd);
    boundedAppend(path, "/");
    boundedAppend(path, zipPath);
  }

  struct stat st;
  if (append && lstat(path, &st) != 0) append = false;
  zip_ = zipOpen(path, append ? APPEND_STATUS_CREATEAFTER : APPEND_STATUS_CREATE);
  if (zip_ == nullptr) return false;

  if (baseDir == nullptr) {
    char copy[kPathBufferSize];
    boundedCopy(copy, path);
    boundedCopy(base_, dirname(copy));
  } else if (baseDir[0] != '\0') {
    boundedCopy(base_, baseDir);
  }
  return true;
}

bool ZipWriter::close() {
  bool ok = true;
  if (zip_ != nullptr) ok = zipClose(zip_, nullptr) == ZIP_OK;
  zip_ = nullptr;
  base_[0] = '\0';
  return ok;
}

void ZipWriter::prepareSourcePath(char* path) const {
  if (path == nullptr || path[0] == '/') return;
  char resolved[kPathBufferSize];
  boundedCopy(resolved, base_);
  const size_t baseLen = std::strlen(base_);
  if (baseLen > 0 && base_[baseLen - 1] != '/') boundedAppend(resolved, "/");
  boundedAppend(resolved, path);
  boundedCopy(path, resolved, kPathBufferSize);
}

// Case-insensitive, over the base folder's length: a shorter path only
// matches when it equals the base folder ignoring case.
bool ZipWriter::startsWithBase(const char* path) const {
  return strncasecmp(path, base_, std::strlen(base_)) == 0;
}

bool ZipWriter::addFile(const char* path, const char* entryName, bool flatten) {
  if (zip_ == nullptr || path == nullptr) return false;
  if (!flatten && std::strncmp(path, "..\\", 3) == 0) return false;

  char source[kPathBufferSize];
  boundedCopy(source, path);
  prepareSourcePath(source);

  char name[kPathBufferSize];
  if (entryName != nullptr) {
    boundedCopy(name, entryName);
  } else if (flatten) {
    char copy[kPathBufferSize];
    boundedCopy(copy, path);
    boundedCopy(name, basename(copy));
  } else if (path[0] == '/') {
    if (!startsWithBase(path)) return false;
    const size_t skip = std::strlen(base_) + format_.extraNameSkip;
    const size_t len = std::strlen(path);
    boundedCopy(name, path + (skip < len ? skip : len));
  } else if (path[0] == '.' && path[1] == '\\') {
    boundedCopy(name, path + 2);
  } else {
    boundedCopy(name, path);
  }
  const std::string storedName = toUtf8(name);

  zip_fileinfo zi;
  struct stat st;
  const bool statOk = fillZipFileInfo(source, zi, &st);
  if (statOk && S_ISLNK(st.st_mode)) return addLink(path, storedName.c_str(), zi);

  const char* reportedName = entryName != nullptr ? entryName : path;
  const ZLibCallbackAction action = progress_.report(kZLibStateEntryStart, 0, reportedName, source);
  if (action == kZLibAbort) return false;
  if (action == kZLibSkip) return true;

  // Reading a fifo or a device would block or never end.
  if (statOk && !S_ISREG(st.st_mode)) return false;

  Operation operation(*this);
  int err = ZIP_OK;
  {
    EntryContent content;
    if (!format_.prepareContent(source, scratch_, content)) return false;
    err = openEntry(storedName.c_str(), zi, content.localExtra, content.zip64);
    if (err == ZIP_OK) err = copyIntoEntry(content.fd);
    closeEntry();
  }

  progress_.report(kZLibStateEntryDone, 0, reportedName, source);
  return err == ZIP_OK;
}

int ZipWriter::openEntry(const char* storedName, const zip_fileinfo& zi,
                         const std::string& localExtra, bool zip64) {
  const bool deflated = format_.method == Z_DEFLATED;
  int err = zipOpenNewFileInZip4_64(
      zip_, storedName, &zi, localExtra.empty() ? nullptr : localExtra.data(),
      static_cast<uInt>(localExtra.size()), nullptr, 0, nullptr, format_.method, format_.level,
      deflated ? 1 : 0, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0,
      format_.versionMadeBy, format_.nameFlags ? format_.nameFlags(storedName) : 0, zip64 ? 1 : 0);
  if (err == ZIP_OK && deflated && !deflater_.begin(format_.level)) {
    zipCloseFileInZipRaw64(zip_, 0, 0);
    err = ZIP_INTERNALERROR;
  }
  return err;
}

int ZipWriter::writeEntry(const void* data, unsigned len) {
  return deflater_.active() ? deflater_.write(zip_, data, len)
                            : zipWriteInFileInZip(zip_, data, len);
}

int ZipWriter::closeEntry() {
  return deflater_.active() ? deflater_.finish(zip_) : zipCloseFileInZip(zip_);
}

// Payload blocks of up to 64 KiB, each reported after it is written.
int ZipWriter::copyIntoEntry(int fd) {
  char* block = buffer();
  for (;;) {
    const ssize_t n = readSome(fd, block, kBlockSize);
    if (n < 0) return ZIP_ERRNO;
    if (n == 0) return ZIP_OK;
    const int err = writeEntry(block, static_cast<unsigned>(n));
    if (progress_.report(kZLibStateEntryData, static_cast<uint32_t>(n), nullptr, nullptr) !=
        kZLibContinue) {
      return -1;
    }
    if (err != ZIP_OK) return err;
  }
}

// The target as the caller named the link (not the resolved path), without
// a progress report.
bool ZipWriter::addLink(const char* path, const char* storedName, const zip_fileinfo& zi) {
  char* target = buffer();
  const ssize_t len = readlink(path, target, kLinkTargetSize);
  if (len <= 0) return false;
  if (openEntry(storedName, zi, std::string(), false) != ZIP_OK) return false;
  const int err = writeEntry(target, static_cast<unsigned>(len));
  closeEntry();
  return err == ZIP_OK;
}

void ZipWriter::addDirectoryEntry(const char* entryName, const char* folderPath) {
  char name[kPathBufferSize];
  boundedCopy(name, entryName);
  boundedAppend(name, "/");
  const std::string stored = toUtf8(name);
  zip_fileinfo zi;
  fillZipFileInfo(folderPath, zi);
  openEntry(stored.c_str(), zi, std::string(), false);
  closeEntry();
}

bool ZipWriter::addFolder(const char* path, bool flatten, bool addRootFolder) {
  if (zip_ == nullptr || path == nullptr) return false;
  Operation operation(*this);
  log(kLogLevelInfo, "Entering to add folder %s in zip (addrootfolder = %d)", path,
      addRootFolder ? 1 : 0);

  char folder[kPathBufferSize];
  boundedCopy(folder, path);
  prepareSourcePath(folder);

  // Folder names drop one leading "/" (file names keep theirs).
  char name[kPathBufferSize] = "";
  if (!flatten) {
    if (!startsWithBase(folder)) return false;
    const size_t baseLen = std::strlen(base_);
    const size_t len = std::strlen(folder);
    const char* rest = folder + (baseLen < len ? baseLen : len);
    if (rest[0] == '/') ++rest;
    boundedCopy(name, rest);
  }
  if (addRootFolder) addDirectoryEntry(name, folder);

  trimTrailingSeparators(folder);
  ScopedDir dir(folder);
  if (dir.get() == nullptr) return false;

  bool result = false;
  while (const dirent* entry = readdir(dir.get())) {
    if (isDotOrDotDot(entry->d_name)) {
      result = true;
      continue;
    }
    char child[kPathBufferSize];
    childPath(child, folder, entry->d_name);
    if (listedAsDirectory(entry, child)) {
      log(kLogLevelDetail, "Found directory %s inside directory %s", entry->d_name, folder);
      result = addFolder(child, flatten, format_.subFolderEntries);
    } else {
      log(kLogLevelDetail, "Found file %s inside directory %s", entry->d_name, folder);
      result = addFile(child, nullptr, flatten);
      if (result && format_.companionAfterEachFile) {
        char childName[kPathBufferSize];
        boundedCopy(childName, name);
        if (name[0] != '\0') boundedAppend(childName, "/");
        boundedAppend(childName, entry->d_name);
        result = addResourceFork(childName, child);
      }
    }
    if (!result) break;
  }
  return result;
}

bool ZipWriter::addResourceFork(const char* entryName, const char* path) {
  if (entryName == nullptr || path == nullptr) return false;
  struct stat st;
  if (lstat(path, &st) == 0 && S_ISLNK(st.st_mode)) return true;

  // Metadata that cannot be packed is simply not carried.
  Operation operation(*this);
  TempFile& companion = scratch_.companion;
  if (!companion.exists() && !companion.createFromTemplate(kCompanionTemplate)) return true;
  if (!companion.rewind() || appleDoublePackFd(path, companion.fd()) < 0) return true;

  const std::string name = companionEntryName(entryName);
  return addFile(companion.path().c_str(), name.c_str(), false);
}

bool ZipWriter::folderInfo(const char* path, Z_FileInfo& info) {
  if (path == nullptr) return false;
  char folder[kPathBufferSize];
  boundedCopy(folder, path);
  trimTrailingSeparators(folder);
  ScopedDir dir(folder);
  if (dir.get() == nullptr) return false;

  bool result = true;
  while (const dirent* entry = readdir(dir.get())) {
    if (isDotOrDotDot(entry->d_name)) continue;
    char child[kPathBufferSize];
    childPath(child, folder, entry->d_name);
    if (listedAsDirectory(entry, child)) {
      ++info.folderCount;
      result = folderInfo(child, info);
    } else {
      ++info.fileCount;
      struct stat st;
      if (lstat(child, &st) == 0 && S_ISREG(st.st_mode)) {
        info.totalSize += static_cast<uint64_t>(st.st_size);
      }
    }
    if (!result) break;
  }
  return result;
}

bool zipSingleFile(const WriterFormat& format, const char* path) {
  if (path == nullptr) return false;
  const std::string zipPath = std::string(path) + ".zip";
  ZipWriter writer(format);
  if (!writer.open(zipPath.c_str(), nullptr, false)) return false;
  return writer.addFile(path, nullptr, false);
}

bool zipFolderBeside(const WriterFormat& format, const char* path, bool flatten) {
  if (path == nullptr) return false;
  const std::string zipPath = std::string(path) + ".zip";
  ZipWriter writer(format);
  if (!writer.open(zipPath.c_str(), nullptr, false)) return false;
  return writer.addFolder(path, flatten, false);
}

bool zipFolderInto(const WriterFormat& format, const char* path, const char* zipPath,
                   bool flatten) {
  if (path == nullptr || zipPath == nullptr) return false;
  ZipWriter writer(format);
  if (!writer.open(zipPath, path, false)) {
    if (format.logComponent != nullptr) {
      logArchive(kLogLevelError, format.logComponent, "", "opening zip %s failed ", zipPath);
    }
    return false;
  }
  return writer.addFolder(path, flatten, false);
}

bool gzipFile(const std::string& path) {
  const std::string gzPath = path + ".gz";
  gzFile gz = gzopen(gzPath.c_str(), "ab");
  if (gz == nullptr) return false;
  bool result = false;
  {
    ScopedFile in(std::fopen(path.c_str(), "rb"));
    if (in.get() != nullptr) {
      char block[1024];
      for (;;) {
        const size_t n = std::fread(block, 1, sizeof block, in.get());
        if (n == 0) {
          result = std::feof(in.get()) != 0;
          break;
        }
        if (gzwrite(gz, block, static_cast<unsigned>(n)) == 0) {
          result = false;
          break;
        }
        if (n < sizeof block) {
          result = std::feof(in.get()) != 0;
          break;
        }
      }
    }
  }
  gzclose(gz);
  return result;
}

}  // namespace velzip
