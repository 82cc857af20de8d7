// What the format-1 and format-0 readers share: the archive, navigation,
// entry records, extraction below a destination, companions, and the
// closing pass that makes links and gives folders their modes and times.
// The two readers differ only in how a regular entry's bytes become content
// and where their log lines go, which a ReaderTraits value supplies.
//
// Every file is written under no name in its folder and published over its
// name only once its data is complete and checked, so that a failure leaves
// whatever stood there untouched.
#ifndef VELZIP_UNZIP_READER_CORE_H
#define VELZIP_UNZIP_READER_CORE_H

#include <minizip/unzip.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "frame/log_emit.h"
#include "frame/progress.h"
#include "unzip/archive_file.h"
#include "unzip/content.h"
#include "unzip/destination.h"
#include "unzip/entry_attributes.h"
#include "unzip/entry_stream.h"
#include "unzip/file_work.h"
#include "velzip/UZ_FileInfo.h"

namespace velzip {

constexpr unsigned long kKeepEntryMode = 0xFFFFFFFFul;
constexpr size_t kOutputFolderSize = 1025;

enum class LogRouting {
  kArchive,  // kLogMessageFnPtr, module "VELZIP"
  kUtility,  // the handle from setLogger, then the utilities' sinks
};

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
  void setKeepSetIdBits(bool keep) { keepSetId_ = keep; }
  void setThreadCount(unsigned threads) { threads_ = threads == 0 ? 1 : threads; }
  void setEntryFilter(UZ_EntryFilter filter, void* userData) {
    filter_ = filter;
    filterData_ = userData;
  }
  bool setOutputFolder(const char* folder);

  unsigned long getFileCount();
  bool gotoFirstFile(const char* extension);
  bool gotoNextFile(const char* extension);
  bool gotoFile(int index);
  bool gotoFile(const char* name, bool matchBaseName);
  bool getFileInfo(UZ_FileInfo& info);
  bool getFileInfo(int index, UZ_FileInfo& info);
  unsigned long long getUnzipSize();
  bool getEntryInfo(UZ_EntryInfo& info, bool withLinkTarget);
  bool testFile(std::string& why);

  bool unzipFile(const char* destFolder, bool junkPaths, unsigned long mode);
  bool unzipFile(int index, const char* destFolder, bool junkPaths, unsigned long mode);
  bool createFilePath(const char* path);
  bool setFileModTime(const char* path, unsigned long dosDate);

  bool createFolder(const char* path);
  bool unzipTo(const char* destFolder, bool junkPaths, unsigned long mode);
  bool unzip(bool junkPaths);
  bool unzip(const char* zipPath, const char* destFolder, bool junkPaths, unsigned long mode);

  // The current entry's full record; false with a reason.
  bool currentRecord(ZipEntryRecord& rec, std::string& why) const;
  const ArchiveFile& archive() const { return archive_; }
  const char* outputFolder() const { return outputFolder_; }

 private:
  // An entry ready to be extracted.
  struct Entry {
    ZipEntryRecord rec;
    EntryType type = EntryType::kFile;
    std::string rel;              // below the destination
    std::string path;             // the destination's path joined with rel
    std::string name;             // what the callback is told
    uint32_t mode = 0;            // to apply; kNoMode for none
    bool modeGiven = false;       // the caller's override, not the entry's own
    bool strayCompanion = false;  // a file under "__MACOSX/" that names no file
    std::string refusal;          // the line that says why it cannot be extracted
    bool leftOut = false;         // by the host's entry filter
  };
  // A symbolic link made in the closing pass.
  struct PendingLink {
    DeferredLink link;
    std::string rel;
    int64_t modTime = 0;
  };
  // A folder whose mode and time wait for its contents.
  struct PendingFolder {
    std::string rel;
    uint32_t mode = 0;
    int64_t modTime = 0;
  };

  template <class... Args>
  void log(int32_t level, const char* format, Args... args) const {
    logTagged(level, "", format, args...);
  }
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
  unsigned long currentIndex() const;
  bool fillInfo(UZ_FileInfo& info, uint64_t* fullUncompressedSize);

  bool openDestination(const char* folder);
  bool planEntry(const char* folder, bool junkPaths, unsigned long mode, Entry& entry);
  bool extractPlanned(const Entry& entry);
  bool openEntryLogged(const Entry& entry, EntryStream& in);
  bool extractLink(const Entry& entry);
  bool extractFolder(const Entry& entry);
  bool extractFile(const Entry& entry, FileWork* ahead = nullptr);
  bool extractCompanion(const Entry& entry);
  void fillWork(const Entry& entry, FileWork& work) const;
  FolderFd prepareFile(const Entry& entry, std::string& leaf);
  void decodeHere(const Entry& entry, FileWork& work);
  bool finishFile(const Entry& entry, FileWork& work, const FolderFd& dir, const std::string& leaf);
  bool extractInParallel(const char* destFolder, bool junkPaths, unsigned long mode);
  bool finishPass();
  bool makeLink(const std::string& key, const PendingLink& link);
  void applyFolder(const PendingFolder& folder);

  ReaderTraits traits_;
  unzFile zip_ = nullptr;
  ArchiveFile archive_;
  unsigned long long unzipSize_ = 0;  // never cleared, not even by openZip
  Progress progress_;
  char outputFolder_[kOutputFolderSize] = {};
  const char* password_ = nullptr;
  void* logger_ = nullptr;
  bool fileOpenOption_ = false;
  bool keepSetId_ = false;
  unsigned threads_ = 1;
  UZ_EntryFilter filter_ = nullptr;
  void* filterData_ = nullptr;
  uint32_t umask_ = 022;
  Destination dest_;
  bool wholeArchive_ = false;  // inside unzipTo: folders and links wait for the end
  std::map<std::string, PendingLink> links_;
  std::vector<PendingFolder> folders_;
};

}  // namespace velzip

#endif  // VELZIP_UNZIP_READER_CORE_H
