// What an entry is and what it restores, from its record: kind, name, mode
// and modification time, read the same way for both archive generations and
// for archives other tools made.
#ifndef VELZIP_UNZIP_ENTRY_ATTRIBUTES_H
#define VELZIP_UNZIP_ENTRY_ATTRIBUTES_H

#include <cstdint>
#include <string>

#include "unzip/zip_record.h"
#include "velzip/UZ_FileInfo.h"

namespace velzip {

enum class EntryType { kFile, kFolder, kLink, kCompanion };

// The entry's name as extraction uses it: whole, in UTF-8 (a matching
// Unicode Path field wins; names from MS-DOS and Windows hosts that are not
// UTF-8 are read as code page 437), every '\' turned into '/'.
std::string entryName(const ZipEntryRecord& rec);

// Link by the mode's type bits, folder by a trailing '/' or the MS-DOS
// folder attribute, then a "__MACOSX/.../._name" companion, else a file.
EntryType entryType(const ZipEntryRecord& rec, const std::string& name);
// The same, as hosts see it.
UZ_EntryKind publicKind(EntryType type);

// The mode to restore, type bits included. An entry keeps its own
// permission bits when it has any and either comes from a Unix-like host or
// carries a Unix file type; others get 0644 (folders 0755) less the umask.
// Set-user-ID and set-group-ID bits survive only with keepSetId.
uint32_t entryMode(const ZipEntryRecord& rec, EntryType type, bool keepSetId, uint32_t umask);

// The process umask, read without changing it where /proc allows.
uint32_t currentUmask();

// The modification time: the extended-timestamp field of the central
// record, else that of the local header (localExtra; empty when not read),
// else the DOS date and time as local time.
int64_t entryModTime(const ZipEntryRecord& rec, const std::string& localExtra);

}  // namespace velzip

#endif  // VELZIP_UNZIP_ENTRY_ATTRIBUTES_H
