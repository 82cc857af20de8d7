// What list, test and extract do before they read an archive: check the
// file, scan its entries, pick the reader's format, refuse what no
// password would make readable.
#ifndef VELZIP_TOOL_ARCHIVE_OPEN_H
#define VELZIP_TOOL_ARCHIVE_OPEN_H

#include <functional>
#include <string>

#include "archive_scan.h"
#include "display.h"
#include "options.h"

namespace velzip_tool {

// The archive named by the first operand, scanned; false (with rc set and
// the reason printed) when it is no readable zip archive.
bool openArchive(const Options& opt, Display& display, const std::string& archive,
                 bool readLinkTargets, ArchiveScan& scan, int& rc);

// -f's format, else the archive's own; warns when format 1 is forced on an
// archive that does not look like one.
int readingFormat(const Options& opt, Display& display, const ArchiveScan& scan);

// Whether a command reads the entry of this index.
using EntryChosen = std::function<bool(size_t index)>;

// Refuses (true, rc set) when a chosen entry is encrypted and no password
// was given.
bool refuseWithoutPassword(const Options& opt, Display& display, const ArchiveScan& scan,
                           const EntryChosen& chosen, int& rc);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_ARCHIVE_OPEN_H
