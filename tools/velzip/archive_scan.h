// What the tool learns about an archive before it hands the archive to the
// library: every entry's kind, sizes, restored size and, on request, link
// target, all as the library's readers describe them.
#ifndef VELZIP_TOOL_ARCHIVE_SCAN_H
#define VELZIP_TOOL_ARCHIVE_SCAN_H

#include <cstdint>
#include <string>
#include <vector>

namespace velzip_tool {

enum class EntryKind { kFile, kFolder, kLink, kMetadata };

struct ScannedEntry {
  std::string name;  // as stored, '\' turned into '/'
  EntryKind kind = EntryKind::kFile;
  unsigned long method = 0;
  std::string methodName;      // "deflate", "aes+bzip2", ...
  std::string encryptionName;  // "none", "zipcrypto", "aes-256", "strong", ...
  uint64_t packedSize = 0;
  uint64_t zipSize = 0;  // the zip layer's uncompressed size
  uint32_t mode = 0;     // the mode extraction gives it
  bool encrypted = false;
  std::string unreadable;  // why the library cannot read it; empty when it can
  int64_t modTime = 0;
  uint32_t crc = 0;
  bool hasSizeText = false;
  uint64_t sizeText = 0;          // restored size, when the extra field holds one
  std::string linkTarget;         // links, when asked for and readable
  bool linkTargetHidden = false;  // encrypted, and no password to read it
};

struct ArchiveScan {
  std::vector<ScannedEntry> entries;
  // 1 when every file entry is stored with a size text, else 0.
  int format = 0;

  // The restored size of an entry as the given format reads it.
  static uint64_t restoredSize(const ScannedEntry& e, int format);
  uint64_t contentBytes(int format) const;  // files and metadata companions
  size_t encryptedCount() const;
  // Entries the library cannot read whatever the password.
  std::vector<const ScannedEntry*> unreadableEntries() const;
  bool isEncrypted(const std::string& name) const;
};

// False (with a reason) when path cannot be read as a zip archive.
bool scanArchive(const std::string& path, bool readLinkTargets, ArchiveScan& out,
                 std::string& reason);

const char* kindName(EntryKind kind);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_ARCHIVE_SCAN_H
