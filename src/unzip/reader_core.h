// What the format-1 and format-0 readers share: the archive handle,
// navigation, entry records, folder creation with retries, companions,
// deferred links and path safety. The two readers differ only in how a
// regular entry's bytes are produced and where their log lines go, which a
// ReaderTraits value supplies.
#ifndef VELZIP_UNZIP_READER_CORE_H
#define VELZIP_UNZIP_READER_CORE_H

#include <minizip/unzip.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

#include "frame/bounded.h"
#include "frame/log_emit.h"
#include "frame/progress.h"
#include "unzip/entry_reader.h"
#include "velzip/UZ_FileInfo.h"

namespace velzip {

class ReaderCore;

constexpr unsigned long kKeepEntryMode = 0xFFFFFFFFul;
constexpr size_t kOutputFolderSize = 1025;

enum class LogRouting {
  kArchive,  // kLogMessageFnPtr, module "VELZIP"
  kUtility,  // the handle from setLogger, then the utilities' sinks
};

// How writing a regular entry ended. reachedData false means it failed
// before any data was handled: no mode, no final callback.
struct ContentOutcome {
  bool reachedData;
  int error;  // 0, -1 (write failure or abort), -103 (decode error) or the zip layer's code
};

// Writes the current entry, already opened, to out: reads through
// core.readEntry() and reports each chunk through core.reportData().
using ContentWriter = ContentOutcome (*)(ReaderCore& core, FILE* out, const char* path);

struct ReaderTraits {
  const char* component;
  LogRouting routing;
  ContentWriter writeContent;
};

// True when path has a ".." component ('/' separated).
bool hasParentComponent(const char* path);

class ReaderCore {
 public:
  ReaderCore(const ReaderTraits& traits, const char* zipPath);
  ~ReaderCore();
  ReaderCore(const ReaderCore&) = delete;
  ReaderCore& operator=(const ReaderCore&) = delete;

  bool openZip(const char* zipPath);
  bool closeZip();

  void setLogger(void* logger) { logger_ = logger; }
  void setFileOpenOption(bool option) { fileOpenOption_ = option; }
  void setUnzipPassword(const char* password) { password_ = password; }
  void setCallback(ZLibCallback fn, void* userData) { progress_.set(fn, userData); }
  bool setOutputFolder(const char* folder);

  unsigned long getFileCount();
  bool gotoFirstFile(const char* extension);
  bool gotoNextFile(const char* extension);
  bool gotoFile(int index);
  bool gotoFile(const char* name, bool matchBaseName);
  bool getFileInfo(UZ_FileInfo& info);
  bool getFileInfo(int index, UZ_FileInfo& info);
  unsigned long long getUnzipSize();

  bool unzipFile(const char* destFolder, bool junkPaths, unsigned long mode);
  bool unzipFile(int index, const char* destFolder, bool junkPaths, unsigned long mode);
  bool createFilePath(const char* path);

  bool createFolder(const char* path);
  bool unzipTo(const char* destFolder, bool junkPaths, unsigned long mode);
  bool unzip(bool junkPaths);
  bool unzip(const char* zipPath, const char* destFolder, bool junkPaths, unsigned long mode);

  // The current entry's data; every reader path goes through these three,
  // so that how entries are opened (passwords) lives in one place. An open
  // entry is always closed through closeEntry before the archive handle.
  int openEntry();
  int readEntry(void* buffer, unsigned size);  // like unzReadCurrentFile
  int closeEntry();

  // For content writers.
  unzFile zip() const { return zip_; }
  // A state-2 report; isDirectory keeps whatever the entry's start set.
  ZLibCallbackAction reportData(uint32_t bytes) {
    return progress_.report(kZLibStateEntryData, bytes, nullptr, nullptr,
                            progress_.data().isDirectory);
  }
  template <class... Args>
  void log(int32_t level, const char* format, Args... args) const {
    logTagged(level, "", format, args...);
  }

  const char* outputFolder() const { return outputFolder_; }
  const std::map<std::string, DeferredLink>& deferredLinks() const { return links_; }

 private:
  template <class... Args>
  void logTagged(int32_t level, const char* tag2, const char* format, Args... args) const {
    if (traits_.routing == LogRouting::kArchive) {
      logArchive(level, traits_.component, tag2, format, args...);
    } else {
      logUtility(logger_, level, traits_.component, format, args...);
    }
  }

  void closeHandle();
  bool positionOn(int index);
  bool fillInfo(UZ_FileInfo& info, uint64_t* fullUncompressedSize);
  bool recordLink(const char* path, const std::string& entryName, uint32_t mode);
  bool extractData(const char* entryPath, const std::string& entryName, const char* destFolder,
                   uint32_t mode, bool isDirectory);
  void makeDeferredLinks();

  ReaderTraits traits_;
  unzFile zip_ = nullptr;
  unsigned long long unzipSize_ = 0;  // never cleared, not even by openZip
  Progress progress_;
  char outputFolder_[kOutputFolderSize] = {};
  const char* password_ = nullptr;
  void* logger_ = nullptr;
  bool fileOpenOption_ = false;
  std::map<std::string, DeferredLink> links_;
  EntryReader entry_;
};

}  // namespace velzip

#endif  // VELZIP_UNZIP_READER_CORE_H
