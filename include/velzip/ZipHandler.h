// velzip: the format-0 (legacy) archive writer.
//
// Writes ordinary zip archives that any zip tool reads: every entry is
// deflated by the zip layer at its default level and carries the
// modification time as UTC seconds (extended timestamp) besides its DOS time.
// Links are stored as their target, folders as names ending in "/", modes in
// the upper 16 bits of the external attributes. The folder walk adds a
// "__MACOSX/" metadata companion after every file. An entry cut short (a read
// error, a callback that stops it) is closed with a CRC that cannot match,
// so that zip tools report it damaged. This writer never logs: lastError()
// says why a call failed.
#ifndef VELZIP_ZIPHANDLER_H
#define VELZIP_ZIPHANDLER_H

#include <memory>
#include <string>

#include "velzip/VelZipHandler.h"  // Z_FileInfo
#include "velzip/callbacks.h"
#include "velzip/export.h"

namespace velzip {
class ZipWriter;
}

class VELZIP_API ZipHandler {
 public:
  // Opens zipPath at once when it is non-null (see openZip).
  explicit ZipHandler(const char* zipPath = nullptr, const char* baseDir = nullptr,
                      bool append = false);
  // Finishes an open archive.
  virtual ~ZipHandler();
  ZipHandler(const ZipHandler&) = delete;
  ZipHandler& operator=(const ZipHandler&) = delete;

  // Closes any open archive first. A relative zipPath is taken from the
  // current directory. The archive is built in a new file in zipPath's
  // folder and appears at zipPath only when it is closed; whatever stands
  // there is untouched until then. append starts the new file with a copy
  // of the bytes already at zipPath (a missing file is simply created).
  // baseDir null: the archive's folder becomes the base folder; "" leaves
  // it empty.
  bool openZip(const char* zipPath, const char* baseDir, bool append);
  // Writes the central directory and puts the archive at its path, in place
  // of what stood there (a replaced file's permission bits are kept, and the
  // new archive reaches the disk before the old one goes). False, with the
  // old file left as it was, when the archive cannot be written. True also
  // when nothing was open. The destructor closes the same way.
  bool closeZip();
  // Abandons the open archive: nothing is written at its path. False when
  // no archive was open.
  bool discardZip();
  // Why the most recent call failed since openZip, naming the file and the
  // system's reason ("cannot read /x/src/key: Permission denied"); "" when
  // nothing failed.
  const char* lastError() const;

  // Adds one file or link, read straight from path. Without entryName the
  // stored name is path's last component when flatten, else for absolute
  // paths what follows the base folder and one more character (the
  // separator when the base folder has no trailing "/"), else path itself
  // (a leading ".\" dropped).
  bool addFileToZip(const char* path, const char* entryName, bool flatten);
  // Adds a folder tree depth-first in listing order. Only the folder itself
  // can get an entry of its own (addRootFolder); every file is followed by
  // its metadata companion.
  bool addFolderToZip(const char* path, bool flatten, bool addRootFolder);
  // Adds path's extended attributes as the AppleDouble companion
  // "__MACOSX/<folder>/._<name>" of entryName. Links get none.
  bool addResourceForkToZip(const char* entryName, const char* path);

  // 0 (stored) to 9; -1, the default, is zlib's level 6. Files up to 64 MiB
  // are deflated in memory by libdeflate, larger ones streamed through zlib:
  // entries are standard deflate either way.
  void setCompressionLevel(int level);
  // Which files addFolderToZip gives a metadata companion (default: every file).
  void setCompanionPolicy(CompanionPolicy policy);
  // Threads that deflate the next files of addFolderToZip ahead, the
  // caller's among them (default 1).
  // The callback still runs on the caller's thread only, with the same
  // states, names and values in the same order, and the archive is the same
  // byte for byte; no thread outlives the call.
  void setThreadCount(unsigned threads);
  // Which items addFolderToZip takes (see Z_WalkFilter); null, the default,
  // takes them all.
  void setWalkFilter(Z_WalkFilter filter, void* userData);

  // Kept for the host; this writer never logs.
  void setLogger(void* logger);
  // A null fn keeps the current callback; userData is stored either way.
  // State-2 reports count source bytes.
  void setCallback(ZLibCallback fn, void* userData);
  // Resolves a relative path in place against the base folder. path must
  // hold 1024 bytes.
  void prepareSourcePath(char* path);

  // path into path + ".zip", stored under its last component.
  static bool ZipFile(const char* path);
  // Adds the counts of the tree at path to info (info is not cleared).
  static bool GetFolderInfo(const char* path, Z_FileInfo& info);
  // Folder path into path + ".zip", names relative to path's parent.
  static bool ZipFolder(const char* path, bool flatten);
  // Appends path's content as a new gzip member to path + ".gz".
  static bool GZipFile(const std::string& path);

 private:
  std::unique_ptr<velzip::ZipWriter> writer_;
};

#endif  // VELZIP_ZIPHANDLER_H
