#include "zip/zip_writer.h"

#include <fcntl.h>
#include <libgen.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "lzma/entry_layout.h"
#include "velzip/StringUtils.h"
#include "zip/failure_text.h"
#include "zip/timestamp_extra.h"

namespace velzip {
namespace {

constexpr size_t kBlockSize = 65536;
constexpr size_t kLinkTargetSize = 65536;

}  // namespace

std::string nativeToUtf8(const char* text) {
  std::string out;
  StringUtils::NativeToUTF8(text, out, nullptr);
  return out;
}

ZipWriter::~ZipWriter() {
  close();
}

char* ZipWriter::buffer() {
  if (!buffer_) buffer_ = std::make_unique<char[]>(kBlockSize);
  return buffer_.get();
}

bool ZipWriter::fail(const std::string& message) {
  lastError_ = message;
  log(kLogLevelError, "%s", message.c_str());
  return false;
}

bool ZipWriter::failWrite() {
  if (output_.error() == 0) output_.fail(EIO);
  return fail(failureText("cannot write", archivePath_, output_.error()));
}

bool ZipWriter::open(const char* zipPath, const char* baseDir, bool append) {
  if (zip_ != nullptr) close();
  lastError_.clear();
  base_[0] = '\0';
  if (zipPath == nullptr || zipPath[0] == '\0') return fail("no archive path given");

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

  std::string why;
  if (!output_.create(path, append, why)) return fail(why);
  zip_ = zipOpen2_64(path,
                     output_.continuesExisting() ? APPEND_STATUS_CREATEAFTER : APPEND_STATUS_CREATE,
                     nullptr, output_.functions());
  if (zip_ == nullptr) {
    output_.discard();
    return fail(std::string("cannot create ") + path + ": the zip layer refused it");
  }
  archivePath_ = path;
  entries_ = 0;
  content_.payload.setSpillFolder(output_.folder());

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
  base_[0] = '\0';
  if (zip_ == nullptr) return true;
  content_.payload.release();  // its file lives in the archive's folder
  // Spoilt earlier: why was said then.
  const bool spoilt = output_.error() != 0;
  const int closed = zipClose(zip_, nullptr);
  zip_ = nullptr;
  bool ok = !spoilt;
  if (spoilt) {
    if (lastError_.empty()) failWrite();
  } else if (closed != ZIP_OK || !output_.completeEnd(entries_)) {
    ok = failWrite();
  } else if (!output_.publish()) {
    const int err = errno;
    ok = fail(failureText(output_.replacesExisting() ? "cannot replace" : "cannot create",
                          archivePath_, err));
  }
  output_.discard();
  return ok;
}

bool ZipWriter::discard() {
  base_[0] = '\0';
  if (zip_ == nullptr) return false;
  content_.payload.release();
  // The zip layer frees its state only by finishing the archive.
  output_.dropWrites();
  zipClose(zip_, nullptr);
  zip_ = nullptr;
  output_.discard();
  return true;
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

bool ZipWriter::storedNameFor(const char* path, const char* entryName, bool flatten,
                              std::string& out) {
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
  out = nativeToUtf8(name);
  return true;
}

bool ZipWriter::addFile(const char* path, const char* entryName, bool flatten) {
  if (zip_ == nullptr) return fail("no archive is open");
  if (path == nullptr) return fail("no file given");
  if (output_.error() != 0) return failWrite();
  if (!flatten && std::strncmp(path, "..\\", 3) == 0)
    return fail(std::string("cannot add ") + path + ": a name starting with ..\\ needs flatten");

  char source[kPathBufferSize];
  boundedCopy(source, path);
  prepareSourcePath(source);
  std::string storedName;
  if (!storedNameFor(path, entryName, flatten, storedName))
    return fail(std::string("cannot add ") + path + ": it is outside the base folder " + base_);

  zip_fileinfo zi;
  struct stat st;
  const bool statOk = fillZipFileInfo(source, zi, &st);
  const std::string times = statOk ? modificationTimeExtra(st.st_mtime) : std::string();
  if (statOk && S_ISLNK(st.st_mode)) return addLink(path, storedName.c_str(), zi, times);

  const char* reportedName = entryName != nullptr ? entryName : path;
  const ZLibCallbackAction action = progress_.report(kZLibStateEntryStart, 0, reportedName, source);
  if (action == kZLibAbort)
    return fail(std::string("stopped by the progress callback at ") + source);
  if (action == kZLibSkip) return true;

  // Reading a fifo or a device would block or never end, and an archive
  // that silently lacks an item is worse than none.
  if (statOk && !S_ISREG(st.st_mode)) return fail(notRegular(source, st.st_mode));
  if (AheadJob* job = takeAhead(source)) {
    Operation operation(*this);
    return addPreparedAhead(*job, storedName.c_str(), zi, times, reportedName, source);
  }
  UniqueFd fd(::open(source, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  struct stat opened;
  if (!fd.ok() || fstat(fd.get(), &opened) != 0)
    return fail(failureText("cannot read", source, errno));
  if (!S_ISREG(opened.st_mode)) return fail(notRegular(source, opened.st_mode));
  EntrySource input = EntrySource::file(fd.get(), static_cast<uint64_t>(opened.st_size));
  return addContent(storedName.c_str(), zi, times, input, reportedName, source);
}

bool ZipWriter::addContent(const char* storedName, const zip_fileinfo& zi, const std::string& times,
                           EntrySource& source, const char* reportedName, const char* sourcePath) {
  Operation operation(*this);
  EntryContent& content = content_;
  content.reset();
  if (!format_.prepareContent(source, tools_, content)) {
    return failPrepare(source, content, sourcePath, errno);
  }
  return writeContent(storedName, zi, times, content, reportedName, sourcePath);
}

bool ZipWriter::failPrepare(const EntrySource& source, const EntryContent& content,
                            const char* sourcePath, int err) {
  if (source.error() != 0) return fail(failureText("cannot read", sourcePath, source.error()));
  // A payload that cannot be staged cannot go in: the archive can never be
  // completed and is not published.
  if (const int staged = content.payload.error()) {
    output_.fail(staged);
    return fail(failureText(std::string("cannot stage the payload of ") + sourcePath + " beside",
                            archivePath_, staged));
  }
  return fail(failureText("cannot compress", sourcePath, err));
}

bool ZipWriter::writeContent(const char* storedName, const zip_fileinfo& zi,
                             const std::string& times, EntryContent& content,
                             const char* reportedName, const char* sourcePath) {
  using Kind = EntryContent::Kind;
  const bool streamedStore = content.kind == Kind::kStreamed && content.method != Z_DEFLATED;
  const EntryMode mode = content.kind == Kind::kDeflated || streamedStore ? EntryMode::kRaw
                         : content.kind == Kind::kStreamed                ? EntryMode::kDeflater
                                                                          : EntryMode::kLayer;
  CopyEnd end = CopyEnd::kWriteFailed;
  if (openEntry(storedName, zi, content.localExtra, times, content.zip64, content.method, mode) ==
      ZIP_OK) {
    end = copyIntoEntry(content);
    const bool cutShort =
        end == CopyEnd::kReadFailed || (end == CopyEnd::kStopped && content.kind != Kind::kPayload);
    const int closed = mode == EntryMode::kRaw ? closeRaw(content.sourceSize, content.crc, cutShort)
                                               : closeEntry(cutShort);
    if (closed != ZIP_OK && end != CopyEnd::kReadFailed) end = CopyEnd::kWriteFailed;
  }
  if (output_.error() != 0) end = CopyEnd::kWriteFailed;
  progress_.report(kZLibStateEntryDone, 0, reportedName, sourcePath);

  switch (end) {
    case CopyEnd::kDone:
      return true;
    case CopyEnd::kStopped:
      return fail(std::string("stopped by the progress callback at ") + sourcePath);
    case CopyEnd::kReadFailed:
      return fail(failureText("cannot read", sourcePath, content.source->error()));
    case CopyEnd::kWriteFailed:
      break;
  }
  return failWrite();
}

bool ZipWriter::reportData(size_t bytes, bool& stopped) {
  if (!stopped && progress_.report(kZLibStateEntryData, static_cast<uint32_t>(bytes), nullptr,
                                   nullptr) != kZLibContinue) {
    stopped = true;
  }
  return !stopped;
}

// Blocks of up to 64 KiB, each reported after it is written.
ZipWriter::CopyEnd ZipWriter::copyIntoEntry(EntryContent& content) {
  bool stopped = false;
  if (content.kind == EntryContent::Kind::kDeflated) return copyDeflated(content, stopped);
  // A payload is whole before its entry opens: when the callback says stop,
  // the copy still ends, without more reports, so that the entry is complete.
  const bool finishAnyway = content.kind == EntryContent::Kind::kPayload;
  // Answers: 0 go on, 1 the write failed, 2 the callback said stop.
  const auto put = [&](const uint8_t* data, size_t n) {
    if (writeEntry(data, static_cast<unsigned>(n)) != ZIP_OK || output_.error() != 0) return 1;
    return reportData(n, stopped) || finishAnyway ? 0 : 2;
  };
  // Stored as it is read: the CRC is this writer's to reckon.
  const bool tally = content.kind == EntryContent::Kind::kStreamed && !deflater_.active();

  int answer = 0;
  if (content.kind == EntryContent::Kind::kPayload) {
    answer = content.payload.forEachBlock(kBlockSize, put);
    if (answer < 0) {
      // What cannot be read back cannot be completed: the archive is spoilt.
      output_.fail(content.payload.error());
      return CopyEnd::kWriteFailed;
    }
  } else {
    auto* block = reinterpret_cast<uint8_t*>(buffer());
    while (answer == 0) {
      const ssize_t n = content.source->read(block, kBlockSize);
      if (n < 0) return CopyEnd::kReadFailed;
      if (n == 0) break;
      if (tally) {
        content.crc = static_cast<uint32_t>(crc32(content.crc, block, static_cast<uInt>(n)));
        content.sourceSize += static_cast<uint64_t>(n);
      }
      answer = put(block, static_cast<size_t>(n));
    }
  }
  if (answer == 1) return CopyEnd::kWriteFailed;
  return stopped ? CopyEnd::kStopped : CopyEnd::kDone;
}

// Deflated beforehand, the data is written in step with reports that count
// the source's 64 KiB blocks, as if it were read and deflated now. When the
// callback says stop, the rest still goes in without reports: the stream
// stays whole and the poisoned CRC tells every tool the entry is damaged.
ZipWriter::CopyEnd ZipWriter::copyDeflated(const EntryContent& content, bool& stopped) {
  const uint64_t blocks = (content.sourceSize + kBlockSize - 1) / kBlockSize;
  const uint64_t total = content.deflated.size();
  uint64_t written = 0;
  for (uint64_t b = 1; b <= std::max<uint64_t>(blocks, 1); ++b) {
    const uint64_t upTo = blocks == 0 ? total : total * b / blocks;
    while (written < upTo) {
      const unsigned n = static_cast<unsigned>(std::min<uint64_t>(upTo - written, kBlockSize));
      if (zipWriteInFileInZip(zip_, content.deflated.data() + written, n) != ZIP_OK ||
          output_.error() != 0) {
        return CopyEnd::kWriteFailed;
      }
      written += n;
    }
    if (blocks == 0) break;
    const uint64_t bytes =
        std::min<uint64_t>(kBlockSize, content.sourceSize - (b - 1) * kBlockSize);
    reportData(static_cast<size_t>(bytes), stopped);
  }
  return stopped ? CopyEnd::kStopped : CopyEnd::kDone;
}

// Raw entries take their bytes as they are and their CRC and size at the
// close: deflate data fed through deflater_ or made beforehand, and format
// 0's stored entries, whose CRC is poisoned when they are cut short.
int ZipWriter::openEntry(const char* storedName, const zip_fileinfo& zi,
                         const std::string& localExtra, const std::string& times, bool zip64,
                         int method, EntryMode mode) {
  const std::string local = format_.localTimestamp ? localExtra + times : localExtra;
  const bool deflated = method == Z_DEFLATED;
  const int level = deflated ? (tools_.level < 0 ? Z_DEFAULT_COMPRESSION : tools_.level) : 0;
  int err = zipOpenNewFileInZip4_64(
      zip_, storedName, &zi, local.empty() ? nullptr : local.data(),
      static_cast<uInt>(local.size()), times.empty() ? nullptr : times.data(),
      static_cast<uInt>(times.size()), nullptr, method, level, mode != EntryMode::kLayer ? 1 : 0,
      -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0, format_.versionMadeBy,
      format_.nameFlags ? format_.nameFlags(storedName) : 0, zip64 ? 1 : 0);
  if (err == ZIP_OK) ++entries_;
  if (err == ZIP_OK && mode == EntryMode::kDeflater && !deflater_.begin(level)) {
    zipCloseFileInZipRaw64(zip_, 0, 0);
    err = ZIP_INTERNALERROR;
  }
  return err;
}

ZipWriter::EntryMode ZipWriter::modeFor(int method) const {
  return method == Z_DEFLATED ? EntryMode::kDeflater : EntryMode::kLayer;
}

int ZipWriter::closeRaw(uint64_t size, uint32_t crc, bool cutShort) {
  return zipCloseFileInZipRaw64(zip_, size, cutShort ? crc ^ 0xFFFFFFFFu : crc);
}

int ZipWriter::writeEntry(const void* data, unsigned len) {
  return deflater_.active() ? deflater_.write(zip_, data, len)
                            : zipWriteInFileInZip(zip_, data, len);
}

int ZipWriter::closeEntry(bool cutShort) {
  return deflater_.active() ? deflater_.finish(zip_, !cutShort) : zipCloseFileInZip(zip_);
}

// The target as the caller named the link (not the resolved path), without
// a progress report.
bool ZipWriter::addLink(const char* path, const char* storedName, const zip_fileinfo& zi,
                        const std::string& times) {
  char* target = buffer();
  const ssize_t len = readlink(path, target, kLinkTargetSize);
  if (len < 0) return fail(failureText("cannot read the link", path, errno));
  if (len == 0) return fail(std::string("cannot add the link ") + path + ": its target is empty");
  // Level 0 stores, links too.
  const int method = tools_.level == 0 ? 0 : format_.method;
  if (openEntry(storedName, zi, std::string(), times, false, method, modeFor(method)) != ZIP_OK)
    return failWrite();
  const int err = writeEntry(target, static_cast<unsigned>(len));
  const int closed = closeEntry(false);
  if (err != ZIP_OK || closed != ZIP_OK || output_.error() != 0) return failWrite();
  return true;
}

// Its failures are not the caller's, as always; a failed write still spoils
// the archive.
void ZipWriter::addDirectoryEntry(const char* entryName, const char* folderPath) {
  char name[kPathBufferSize];
  boundedCopy(name, entryName);
  boundedAppend(name, "/");
  const std::string stored = nativeToUtf8(name);
  zip_fileinfo zi;
  struct stat st;
  const bool statOk = fillZipFileInfo(folderPath, zi, &st);
  const std::string times = statOk ? modificationTimeExtra(st.st_mtime) : std::string();
  if (openEntry(stored.c_str(), zi, std::string(), times, false, format_.method,
                modeFor(format_.method)) == ZIP_OK)
    closeEntry(false);
}

}  // namespace velzip
