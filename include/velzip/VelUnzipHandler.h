// velzip: the format-1 archive reader.
//
// Entries are visited in archive order. Each regular file is decoded from its
// LZMA2 payload into a new, unnamed file in its folder, and replaces what
// stood at its name only once its size and CRC-32 are right: a failure
// leaves the old file untouched. Nothing is written outside the destination:
// ".." components are refused and links on the way may not lead outside.
// "__MACOSX/.../._name" companions are unpacked onto their file. unzipTo
// makes symbolic links last, in byte order of their paths, then gives
// folders their modes and times, deepest first. Failures return false and
// log a line that names the file and the reason.
#ifndef VELZIP_VELUNZIPHANDLER_H
#define VELZIP_VELUNZIPHANDLER_H

#include <memory>
#include <string>

#include "velzip/UZ_FileInfo.h"
#include "velzip/callbacks.h"
#include "velzip/export.h"

namespace velzip {
class ReaderCore;
}

namespace Vel {

class VELZIP_API VelUnzipHandler {
 public:
  // Value of the deferred-link map, keyed by the full path of the link.
  using FileInfo = velzip::DeferredLink;

  // Opens zipPath at once (see openZip); test the result through the other calls.
  explicit VelUnzipHandler(const char* zipPath = nullptr);
  virtual ~VelUnzipHandler();
  VelUnzipHandler(const VelUnzipHandler&) = delete;
  VelUnzipHandler& operator=(const VelUnzipHandler&) = delete;

  // Closes any open archive first. The output folder becomes the archive
  // path without its last ".suffix".
  bool openZip(const char* zipPath);
  bool closeZip();

  // Kept for the host; this reader logs through the archive sink only.
  void setLogger(void* logger);
  // Kept for compatibility: companion staging files are always created
  // exclusively.
  void setFileOpenOption(bool option);
  // Borrowed, not copied: keep it alive while extracting.
  void setUnzipPassword(const char* password);
  // Restore set-user-ID and set-group-ID bits from the archive (default
  // false: only the permission bits and the sticky bit are applied).
  void setKeepSetIdBits(bool keep);
  // Threads that decode files ahead during unzipTo, the caller's among them
  // (default 1: everything on the caller's thread). The callback is still called only on the
  // caller's thread, with the same states, names and values in the same order; no thread outlives
  // the call.
  void setThreadCount(unsigned threads);
  // Which entries extraction takes (see UZ_EntryFilter); null, the default,
  // takes them all.
  void setEntryFilter(UZ_EntryFilter filter, void* userData);
  // A null fn keeps the current callback; userData is stored either way.
  void setCallback(ZLibCallback fn, void* userData);
  // Only an existing folder is accepted.
  bool setOutputFolder(const char* folder);

  unsigned long getFileCount();
  // extension without a dot, compared case-insensitively; null or "" means any.
  bool gotoFirstFile(const char* extension);
  bool gotoNextFile(const char* extension);
  bool gotoFile(int index);
  // Whole name, case-insensitively; then, with matchBaseName, the last
  // component of names inside a folder.
  bool gotoFile(const char* name, bool matchBaseName);
  bool getFileInfo(UZ_FileInfo& info);
  bool getFileInfo(int index, UZ_FileInfo& info);
  // The current entry in full: 64-bit sizes, the format-1 size text, the
  // mode and time extraction gives it, whether velzip can read it and, with
  // withLinkTarget, a link's target (read with the password if encrypted).
  bool getEntryInfo(UZ_EntryInfo& info, bool withLinkTarget = false);
  // Decodes and checks the current entry (CRC-32, and in format 1 the size
  // text) without writing anything. False with the reason in why.
  bool testFile(std::string& why);
  // Sum of the zip-level uncompressed sizes; computed once per handler.
  unsigned long long getUnzipSize();
  static long long GetUnzipSize(const char* zipPath);

  // mode 0xFFFFFFFF keeps each entry's own mode; any other value replaces it.
  // destFolder null means the output folder. Links are only recorded here.
  bool unzipFile(const char* destFolder, bool junkPaths, unsigned long mode);
  bool unzipFile(int index, const char* destFolder, bool junkPaths, unsigned long mode);
  bool createFilePath(const char* path);
  // Sets path's modification time (not following a final link) from a DOS
  // date and time as UZ_FileInfo.dosDate holds them, read as local time.
  bool setFileModTime(const char* path, unsigned long dosDate);

  // Makes path and its missing parents, mode 0775, retrying each mkdir.
  bool createFolder(const char* path);
  bool unzipTo(const char* destFolder, bool junkPaths, unsigned long mode);
  bool unzip(bool junkPaths);
  // Opens zipPath, extracts it into destFolder (null: the archive path
  // without its suffix) and leaves the handler closed.
  bool unzip(const char* zipPath, const char* destFolder, bool junkPaths, unsigned long mode);

 private:
  std::unique_ptr<velzip::ReaderCore> core_;
};

}  // namespace Vel

#endif  // VELZIP_VELUNZIPHANDLER_H
