// The writer core both archive generations share: opening and closing,
// stored-name rules, links, directory entries, the entry copy loop with its
// progress reports, the folder walk and the metadata companions. What differs
// between the generations is a WriterFormat: how a regular file's stored
// content is produced, the zip method, one naming rule, the walk's policy,
// how entries are marked for other zip tools and whether the writer logs.
#ifndef VELZIP_ZIP_ZIP_WRITER_H
#define VELZIP_ZIP_ZIP_WRITER_H

#include <minizip/zip.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "frame/bounded.h"
#include "frame/log_emit.h"
#include "frame/progress.h"
#include "lzma/payload_encoder.h"
#include "velzip/VelZipHandler.h"
#include "zip/archive_output.h"
#include "zip/entry_content.h"
#include "zip/entry_deflater.h"
#include "zip/entry_source.h"

namespace velzip {

struct WriterFormat {
  const char* logComponent;  // null: this generation never logs
  int method;                // zip method and level of links and folders
  int level;
  // Characters dropped after the base folder, beyond its length, when an
  // absolute path's stored name is derived.
  size_t extraNameSkip;
  bool subFolderEntries;        // the walk gives sub-folders their own entry
  bool companionAfterEachFile;  // the walk packs every file's metadata too
  // The extended timestamp goes into local headers too, not only into the
  // central directory.
  bool localTimestamp;
  // From a source to the stored content, with the tools of the calling
  // thread. False fails the add with nothing written; the source's or the
  // payload's error() tells why, if either has one.
  bool (*prepareContent)(EntrySource& source, ContentTools& tools, EntryContent& out);
  // Memory that preparing a file of size bytes takes at level, beyond what
  // the writer holds anyway: what a worker reserves before it starts.
  uint64_t (*memoryFor)(uint64_t size, int level);
  // "Version made by" of every entry. A Unix host (upper byte 3) is what
  // other zip tools need before they apply the stored modes and links.
  unsigned long versionMadeBy = 0;
  // General purpose flags for an entry's stored name; null for none.
  unsigned long (*nameFlags)(const char* storedName) = nullptr;
};

// Stored names are UTF-8; native text already is, so this copies.
std::string nativeToUtf8(const char* text);

// Format 1: stored LZMA2 payloads.
const WriterFormat& lzmaWriterFormat();
// Format 0: sources deflated by the zip layer.
const WriterFormat& deflateWriterFormat();

// An archive is built in a staged file beside its path and published there
// on close; until then the path keeps what it had.
//
// An entry that cannot be completed never looks complete. A format-1
// payload is whole before its entry opens, so a callback that stops the copy
// gets a complete entry (and the call still fails). A format-0 entry cut
// short by a read error or the callback is closed with the sizes of what
// was written and a CRC that cannot match, so every zip tool reports it
// damaged. A failed write to the archive or to a payload staged beside it
// spoils the whole archive: it is then never published.
class ZipWriter {
 public:
  explicit ZipWriter(const WriterFormat& format) : format_(format) {}
  ~ZipWriter();
  ZipWriter(const ZipWriter&) = delete;
  ZipWriter& operator=(const ZipWriter&) = delete;

  bool open(const char* zipPath, const char* baseDir, bool append);
  // Finishes the archive and publishes it.
  bool close();
  // Abandons the archive; false when none was open.
  bool discard();
  bool isOpen() const { return zip_ != nullptr; }
  const char* baseFolder() const { return base_; }
  // The most recent failure since open, "" when none.
  const char* lastError() const { return lastError_.c_str(); }

  void prepareSourcePath(char* path) const;
  bool addFile(const char* path, const char* entryName, bool flatten);
  bool addFolder(const char* path, bool flatten, bool addRootFolder);
  bool addResourceFork(const char* entryName, const char* path);

  void setCallback(ZLibCallback fn, void* userData) { progress_.set(fn, userData); }
  // 0 to 9, or -1 for the format's usual level.
  void setLevel(int level) { tools_.level = level < -1 || level > 9 ? -1 : level; }
  void setCompanionPolicy(CompanionPolicy policy) { companions_ = policy; }
  void setThreadCount(unsigned threads) { threads_ = threads == 0 ? 1 : threads; }
  void setWalkFilter(Z_WalkFilter filter, void* userData) {
    filter_ = filter;
    filterData_ = userData;
  }
  void setLogger(void* logger) { logger_ = logger; }
  void* logger() const { return logger_; }

  static bool folderInfo(const char* path, Z_FileInfo& info);

 private:
  // How copying a source into its open entry ended.
  enum class CopyEnd { kDone, kStopped, kReadFailed, kWriteFailed };

  template <class... Args>
  void log(int32_t level, const char* format, Args... args) const {
    if (format_.logComponent != nullptr)
      logArchive(level, format_.logComponent, "", format, args...);
  }
  // Keeps message as the last error, logs it (format 1) and returns false.
  bool fail(const std::string& message);
  // The archive's own write error.
  bool failWrite();
  bool startsWithBase(const char* path) const;
  // Counts nested operations; the outermost one releases the scratch.
  class Operation {
   public:
    explicit Operation(ZipWriter& writer) : writer_(writer) { ++writer_.depth_; }
    ~Operation() {
      if (--writer_.depth_ == 0) {
        writer_.content_.payload.release();
        std::vector<uint8_t>().swap(writer_.content_.deflated);
        writer_.tools_.release();
      }
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

   private:
    ZipWriter& writer_;
  };

  bool storedNameFor(const char* path, const char* entryName, bool flatten, std::string& out);
  // Every entry goes through these three: deflated ones through deflater_.
  // How an entry's bytes reach the zip layer: it compresses them itself
  // (stored data that it checks), zlib's stream feeds it, or they go raw.
  enum class EntryMode { kLayer, kDeflater, kRaw };
  EntryMode modeFor(int method) const;
  int openEntry(const char* storedName, const zip_fileinfo& zi, const std::string& localExtra,
                const std::string& times, bool zip64, int method, EntryMode mode);
  int writeEntry(const void* data, unsigned len);
  int closeEntry(bool damaged);
  int closeRaw(uint64_t size, uint32_t crc, bool damaged);
  bool addLink(const char* path, const char* storedName, const zip_fileinfo& zi,
               const std::string& times);
  void addDirectoryEntry(const char* entryName, const char* folderPath);
  // A regular entry from source, between its start and end reports.
  bool addContent(const char* storedName, const zip_fileinfo& zi, const std::string& times,
                  EntrySource& source, const char* reportedName, const char* sourcePath);
  bool writeContent(const char* storedName, const zip_fileinfo& zi, const std::string& times,
                    EntryContent& content, const char* reportedName, const char* sourcePath);
  CopyEnd copyIntoEntry(EntryContent& content);
  CopyEnd copyDeflated(const EntryContent& content, bool& stopped);
  // A data report; false once the callback said stop.
  bool reportData(size_t bytes, bool& stopped);
  bool wantsCompanion(const char* path) const;

  // A step of a folder walk, run in walk order.
  using Step = std::function<bool()>;
  // Takes each step (and, for a file, its source path); false ends the walk.
  using StepSink = std::function<bool(const Step& step, const char* filePath)>;
  bool walk(const char* path, bool flatten, bool addRootFolder, const StepSink& sink);
  // The walk planned first, then run in order while workers prepare the
  // content of the files ahead.
  bool addFolderAhead(const char* path, bool flatten, bool addRootFolder);
  // The content a worker prepared for the file about to be added, if any.
  struct AheadJob;
  AheadJob* ahead_ = nullptr;
  // The job prepared for source, once; null when there is none.
  AheadJob* takeAhead(const char* source);
  bool addPreparedAhead(AheadJob& job, const char* storedName, const zip_fileinfo& zi,
                        const std::string& times, const char* reportedName, const char* sourcePath);
  // Says why content could not be prepared; false.
  bool failPrepare(const EntrySource& source, const EntryContent& content, const char* sourcePath,
                   int err);
  char* buffer();

  const WriterFormat& format_;
  zipFile zip_ = nullptr;
  ArchiveOutput output_;
  uint64_t entries_ = 0;  // opened in this archive
  std::string archivePath_;
  std::string lastError_;
  char base_[kPathBufferSize] = {};
  Progress progress_;
  void* logger_ = nullptr;
  std::unique_ptr<char[]> buffer_;  // one 64 KiB block, made on first use
  ContentTools tools_;
  EntryContent content_;
  CompanionPolicy companions_ = CompanionPolicy::kFormatDefault;
  unsigned threads_ = 1;
  Z_WalkFilter filter_ = nullptr;
  void* filterData_ = nullptr;
  EntryDeflater deflater_;
  int depth_ = 0;
};

// The one-call forms, each with its own writer and the default callback.
// path into path + ".zip".
bool zipSingleFile(const WriterFormat& format, const char* path);
// Folder path into path + ".zip", base folder = the archive's folder.
bool zipFolderBeside(const WriterFormat& format, const char* path, bool flatten);
// Folder path into zipPath, base folder = path.
bool zipFolderInto(const WriterFormat& format, const char* path, const char* zipPath, bool flatten);

// Appends path's content as one more gzip member to path + ".gz".
bool gzipFile(const std::string& path);

}  // namespace velzip

#endif  // VELZIP_ZIP_ZIP_WRITER_H
