// velzip: the records both archive readers share.
#ifndef VELZIP_UZ_FILEINFO_H
#define VELZIP_UZ_FILEINFO_H

#include <cstdint>
#include <string>

// One archive entry as a reader describes it. Sizes are the zip layer's,
// cut to 32 bits; getUnzipSize adds the full values. Names are UTF-8: a
// matching Info-ZIP Unicode Path field wins, and a name that is not UTF-8
// from an MS-DOS or Windows host is read as code page 437.
struct UZ_FileInfo {
  char fileName[1025];  // the name in UTF-8 (first 1024 bytes), every '\' turned into '/'
  char comment[255];    // always terminated
  uint32_t version;
  uint32_t versionNeeded;
  uint32_t flag;
  uint32_t compressionMethod;
  uint32_t dosDate;
  uint32_t crc;
  uint32_t compressedSize;
  uint32_t uncompressedSize;
  uint32_t internalAttributes;
  uint32_t mode;     // Unix st_mode from the upper half of the external attributes
  bool isDirectory;  // fileName ends in '/'
};

// What an entry is, as extraction treats it.
enum class UZ_EntryKind { kFile, kFolder, kLink, kCompanion };

// How an entry's data is encrypted. kAes is AES whose key size the entry
// does not say (its 0x9901 extra field is missing or damaged).
enum class UZ_Encryption { kNone, kZipCrypto, kAes128, kAes192, kAes256, kAes, kStrong };

// Asked by unzipTo and unzipFile about each entry, once, on the caller's
// thread, before anything of it is made or reported (with threads, while the
// extraction is planned): name is the entry's name as the callback gets it,
// kind what extraction makes of it. False leaves the entry out altogether: no
// file, folder, link or metadata and no callback. A folder entry left out is
// only that entry; the entries under its name are asked for themselves.
typedef bool (*UZ_EntryFilter)(const char* name, UZ_EntryKind kind, void* userData);

// One entry at full width, as the readers themselves see it (getEntryInfo).
struct UZ_EntryInfo {
  std::string name;  // whole, in UTF-8, every '\' turned into '/'
  UZ_EntryKind kind = UZ_EntryKind::kFile;
  uint32_t method = 0;      // zip compression method as recorded (99 for AES)
  uint32_t realMethod = 0;  // the data's own method: for AES, the one its extra field names
  std::string methodName;   // one word: "deflate", "bzip2", "aes+lzma", "method 42"
  bool encrypted = false;   // needs a password
  UZ_Encryption encryption = UZ_Encryption::kNone;
  std::string unreadable;       // why velzip cannot read it; empty when it can
  uint64_t compressedSize = 0;  // zip-level sizes, zip64 fields applied
  uint64_t uncompressedSize = 0;
  bool hasSizeText = false;  // the local extra field holds a format-1 size text
  uint64_t sizeText = 0;     // its value: the restored size in format 1
  uint32_t mode = 0;         // type and permission bits extraction applies
  int64_t modTime = 0;       // seconds since the epoch, UTC
  uint32_t crc = 0;
  std::string linkTarget;  // links, when asked for and readable
};

namespace velzip {

// A symbolic link a reader makes only after every other entry is written.
struct DeferredLink {
  std::string linkTarget;
  std::string entryName;  // what the callback is told
  uint32_t mode = 0;      // the entry's mode or the caller's override
};

}  // namespace velzip

#endif  // VELZIP_UZ_FILEINFO_H
