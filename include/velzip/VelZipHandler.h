// velzip: the format-1 archive writer.
//
// Regular files become stored zip entries holding an LZMA2 payload, with the
// restored size as decimal text in the local extra field; links are stored as
// their target, folders as names ending in "/". Modes travel in the upper 16
// bits of the external attributes, modification times also as UTC seconds in
// each entry's central record. Failures return false, say why in lastError()
// and the log, and leave the archive open and usable, except a failed write
// to the archive itself: such an archive is never published. Nothing is
// written outside the archive's folder.
#ifndef VELZIP_VELZIPHANDLER_H
#define VELZIP_VELZIPHANDLER_H

#include <cstdint>
#include <memory>
#include <string>

#include "velzip/callbacks.h"
#include "velzip/export.h"

// Statistics of a folder tree, as GetFolderInfo adds them up.
struct Z_FileInfo {
  uint32_t fileCount = 0;    // items that are not folders (files, links, others)
  uint32_t folderCount = 0;  // sub-folders; the starting folder is not counted
  uint64_t totalSize = 0;    // bytes of the regular files
};

// Which files a folder walk gives an AppleDouble companion under
// "__MACOSX/": the format's own rule (format 0: every file; format 1: none),
// only files that have extended attributes, or none at all.
enum class CompanionPolicy { kFormatDefault, kWithMetadata, kNever };

// Asked by addFolderToZip about each item below the folder, on the caller's
// thread, before the item is reported, read or prepared ahead: path is the
// item's source path, isFolder whether the walk would enter it. False leaves
// the item out: a file or link with its companion, a folder with its entry
// and everything in it.
typedef bool (*Z_WalkFilter)(const char* path, bool isFolder, void* userData);

namespace velzip {
class ZipWriter;
}

namespace Vel {

class VELZIP_API VelZipHandler {
 public:
  // Opens zipPath at once when it is non-null (see openZip).
  explicit VelZipHandler(const char* zipPath = nullptr, const char* baseDir = nullptr,
                         bool append = false);
  // Finishes an open archive.
  virtual ~VelZipHandler();
  VelZipHandler(const VelZipHandler&) = delete;
  VelZipHandler& operator=(const VelZipHandler&) = delete;

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

  // Adds one file or link. Without entryName the stored name is derived from
  // path: its last component when flatten, else the part after the base folder
  // for absolute paths, else path itself (a leading ".\" dropped).
  bool addFileToZip(const char* path, const char* entryName, bool flatten);
  // Adds a folder tree depth-first in listing order; sub-folders always get
  // their own entry, the folder itself only with addRootFolder.
  bool addFolderToZip(const char* path, bool flatten, bool addRootFolder);
  // Adds path's extended attributes as the AppleDouble companion
  // "__MACOSX/<folder>/._<name>" of entryName. Links get none.
  bool addResourceForkToZip(const char* entryName, const char* path);

  // 0 (fastest) to 9 (smallest); -1, the default, keeps the level-5 settings.
  // Every level writes the same payload layout (property byte 24, at most a
  // 16 MiB dictionary), so every reader decodes it.
  void setCompressionLevel(int level);
  // Which files addFolderToZip gives a metadata companion (default: none).
  void setCompanionPolicy(CompanionPolicy policy);
  // Threads that encode the next files of addFolderToZip ahead, the
  // caller's among them (default 1).
  // The callback still runs on the caller's thread only, with the same
  // states, names and values in the same order, and the archive is the same
  // byte for byte; no thread outlives the call.
  void setThreadCount(unsigned threads);
  // Which items addFolderToZip takes (see Z_WalkFilter); null, the default,
  // takes them all.
  void setWalkFilter(Z_WalkFilter filter, void* userData);

  // Kept for the host; the writer logs through the archive sink only.
  void setLogger(void* logger);
  // A null fn keeps the current callback; userData is stored either way.
  void setCallback(ZLibCallback fn, void* userData);
  // Resolves a relative path in place against the base folder. path must
  // hold 1024 bytes.
  void prepareSourcePath(char* path);

  // path into path + ".zip".
  static bool ZipFile(const char* path);
  // Adds the counts of the tree at path to info (info is not cleared).
  static bool GetFolderInfo(const char* path, Z_FileInfo& info);
  // Folder path into path + ".zip", names relative to path's parent.
  static bool ZipFolder(const char* path, bool flatten);
  // Folder path into zipPath, names relative to path (which should end in "/").
  static bool ZipFolder(const char* path, const char* zipPath, bool flatten);
  // Appends path's content as a new gzip member to path + ".gz".
  static bool GZipFile(const std::string& path);

 private:
  std::unique_ptr<velzip::ZipWriter> writer_;
};

}  // namespace Vel

#endif  // VELZIP_VELZIPHANDLER_H
