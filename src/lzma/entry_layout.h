// How format-1 entries are laid out: the zip file information record both
// writers fill from lstat, the size text in the local extra field, the
// companion naming, and how a reader tells the kinds of entry apart.
#ifndef VELZIP_LZMA_ENTRY_LAYOUT_H
#define VELZIP_LZMA_ENTRY_LAYOUT_H

#include <minizip/zip.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace velzip {

enum class EntryKind { kLink, kDirectory, kCompanion, kRegular };

constexpr uint32_t kModeTypeMask = 0xF000;
constexpr uint32_t kModeTypeLink = 0xA000;
constexpr uint32_t kModeTypeDirectory = 0x4000;
constexpr char kCompanionFolder[] = "__MACOSX/";

// Fills zi from lstat(path): local time of st_mtime, dosDate 0, internal 0,
// external = st_mode << 16. On lstat failure zi is all zero and false is
// returned. st (optional) receives the lstat result.
bool fillZipFileInfo(const char* path, zip_fileinfo& zi, struct stat* st = nullptr);

// The Unix mode a zip entry carries in the upper half of its external attributes.
inline uint32_t entryMode(unsigned long externalAttributes) {
  return static_cast<uint32_t>(externalAttributes >> 16) & 0xFFFFu;
}

// Link by its mode's type bits, then folder by a trailing "/", then a
// "__MACOSX/.../._name" companion, else a regular file.
EntryKind classifyEntry(const char* name, unsigned long externalAttributes);

// "__MACOSX/" + folder part (with its "/") + "._" + last component.
std::string companionEntryName(const std::string& entryName);

// For a companion entry name, the name of the file it describes
// ("__MACOSX/" and "._" dropped). Empty when name is not a companion.
std::string companionTargetName(const std::string& name);

// The local extra field of a regular entry: decimal digits and one NUL.
std::string sizeExtraField(unsigned long long size);

// Reads the restored size from a local extra field of len bytes: the text up
// to the first NUL (or len), read as atoll does. False when len < 1.
bool parseSizeExtraField(const char* data, size_t len, long long& size);

}  // namespace velzip

#endif  // VELZIP_LZMA_ENTRY_LAYOUT_H
