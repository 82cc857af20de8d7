// What the tool learns about an archive before it hands the archive to the
// library: every entry's kind and sizes, the text in its local extra field
// and, on request, link targets. Read through the zip layer velzip exposes,
// because the reader classes do not surface extra fields or 64-bit sizes.
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
  uint64_t packedSize = 0;
  uint64_t zipSize = 0;    // the zip layer's uncompressed size
  uint32_t mode = 0;       // upper half of the external attributes
  bool encrypted = false;  // general-purpose flag bit 0
  bool hasSizeText = false;
  uint64_t sizeText = 0;   // restored size, when the extra field holds one
  std::string linkTarget;  // links, when asked for; "(encrypted)" when it cannot be read
};

struct ArchiveScan {
  std::vector<ScannedEntry> entries;
  // 1 when every file entry is stored with a size text, else 0.
  int format = 0;

  // The restored size of an entry as the given format reads it.
  static uint64_t restoredSize(const ScannedEntry& e, int format);
  uint64_t contentBytes(int format) const;  // files and metadata companions
  size_t encryptedCount() const;
  bool isEncrypted(const std::string& name) const;
};

// False (with a reason) when path cannot be read as a zip archive.
bool scanArchive(const std::string& path, bool readLinkTargets, ArchiveScan& out,
                 std::string& reason);

const char* kindName(EntryKind kind);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_ARCHIVE_SCAN_H
