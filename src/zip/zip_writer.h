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
#include <memory>
#include <string>

#include "frame/bounded.h"
#include "frame/log_emit.h"
#include "frame/progress.h"
#include "lzma/payload_encoder.h"
#include "velzip/VelZipHandler.h"
#include "zip/entry_deflater.h"
#include "zip/temp_file.h"

namespace velzip {

// What a regular file's entry stores, produced by the format before the entry
// is opened.
struct EntryContent {
  int fd = -1;             // read from its current offset to its end
  std::string localExtra;  // local extra field; empty for none
  bool zip64 = false;      // the source or the stored data reaches 4 GiB
  UniqueFd owned;          // fd, when the format opened it for this entry only
};

// Temporary files one operation (a file, a whole folder walk) reuses from
// entry to entry: making and deleting a file per entry costs far more than
// the entry itself on some file systems. Removed when the operation returns.
struct WriterScratch {
  TempFile payload;        // the format's encoded content
  TempFile companion;      // packed metadata on its way into a companion entry
  PayloadEncoder encoder;  // format 1's encoder, kept between files
};

struct WriterFormat {
  const char* logComponent;  // null: this generation never logs
  int method;                // zip method and level of every entry
  int level;
  // Characters dropped after the base folder, beyond its length, when an
  // absolute path's stored name is derived.
  size_t extraNameSkip;
  bool subFolderEntries;        // the walk gives sub-folders their own entry
  bool companionAfterEachFile;  // the walk packs every file's metadata too
  // From the resolved source path (an existing regular file, or a path lstat
  // could not see) to the stored content. False fails the add with nothing
  // written.
  bool (*prepareContent)(const char* sourcePath, WriterScratch& scratch, EntryContent& out);
  // "Version made by" of every entry. A Unix host (upper byte 3) is what
  // other zip tools need before they apply the stored modes and links.
  unsigned long versionMadeBy = 0;
  // General purpose flags for an entry's stored name; null for none.
  unsigned long (*nameFlags)(const char* storedName) = nullptr;
};

// Format 1: stored LZMA2 payloads.
const WriterFormat& lzmaWriterFormat();
// Format 0: sources deflated by the zip layer.
const WriterFormat& deflateWriterFormat();

class ZipWriter {
 public:
  explicit ZipWriter(const WriterFormat& format) : format_(format) {}
  ~ZipWriter();
  ZipWriter(const ZipWriter&) = delete;
  ZipWriter& operator=(const ZipWriter&) = delete;

  bool open(const char* zipPath, const char* baseDir, bool append);
  bool close();
  bool isOpen() const { return zip_ != nullptr; }
  const char* baseFolder() const { return base_; }

  void prepareSourcePath(char* path) const;
  bool addFile(const char* path, const char* entryName, bool flatten);
  bool addFolder(const char* path, bool flatten, bool addRootFolder);
  bool addResourceFork(const char* entryName, const char* path);

  void setCallback(ZLibCallback fn, void* userData) { progress_.set(fn, userData); }
  void setLogger(void* logger) { logger_ = logger; }
  void* logger() const { return logger_; }

  static bool folderInfo(const char* path, Z_FileInfo& info);

 private:
  template <class... Args>
  void log(int32_t level, const char* format, Args... args) const {
    if (format_.logComponent != nullptr)
      logArchive(level, format_.logComponent, "", format, args...);
  }
  bool startsWithBase(const char* path) const;
  // Counts nested operations; the outermost one removes the scratch files.
  class Operation {
   public:
    explicit Operation(ZipWriter& writer) : writer_(writer) { ++writer_.depth_; }
    ~Operation() {
      if (--writer_.depth_ == 0) {
        writer_.scratch_.payload.remove();
        writer_.scratch_.companion.remove();
        writer_.scratch_.encoder.release();
      }
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

   private:
    ZipWriter& writer_;
  };

  // Every entry goes through these three: deflated ones through deflater_.
  int openEntry(const char* storedName, const zip_fileinfo& zi, const std::string& localExtra,
                bool zip64);
  int writeEntry(const void* data, unsigned len);
  int closeEntry();
  bool addLink(const char* path, const char* storedName, const zip_fileinfo& zi);
  void addDirectoryEntry(const char* entryName, const char* folderPath);
  int copyIntoEntry(int fd);
  char* buffer();

  const WriterFormat& format_;
  zipFile zip_ = nullptr;
  char base_[kPathBufferSize] = {};
  Progress progress_;
  void* logger_ = nullptr;
  std::unique_ptr<char[]> buffer_;  // one 64 KiB block, made on first use
  WriterScratch scratch_;
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
