// Which entries extract takes: -i and -x globs, --no-xattrs, and -k's
// files already in DEST, decided for every entry before anything is
// written, then handed to the reader as its entry filter.
//
// A file or link is taken when the globs take it. A companion follows the
// file it describes. A folder entry is taken when the globs take it, or
// (with -i) when it holds an entry they take, so that its mode and time
// come back too; -x on a folder leaves out all it holds. With -k an entry
// whose name already stands in DEST is left out, and so is the companion
// of such a file: what is there keeps its content, mode, time and
// attributes.
#ifndef VELZIP_TOOL_EXTRACT_PLAN_H
#define VELZIP_TOOL_EXTRACT_PLAN_H

#include <string>
#include <unordered_map>
#include <vector>

#include "archive_scan.h"
#include "select.h"
#include "velzip/UZ_FileInfo.h"

namespace velzip_tool {

struct ExtractPlan {
  std::vector<bool> takes;  // by entry index
  size_t matched = 0;       // entries the globs and --no-xattrs take
  size_t kept = 0;          // of those, left out by -k
  size_t taken = 0;         // what the reader will extract
  bool filters = false;     // false: every entry goes, no filter needed

  // For the reader: by name, as its filter is asked. A name the scan did
  // not see is taken.
  static bool filter(const char* name, UZ_EntryKind kind, void* plan);

 private:
  friend ExtractPlan planExtraction(const ArchiveScan&, const Selection&, bool, bool,
                                    const std::string&);
  std::unordered_map<std::string, bool> byName_;
};

ExtractPlan planExtraction(const ArchiveScan& scan, const Selection& selection, bool noXattrs,
                           bool keepExisting, const std::string& dest);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_EXTRACT_PLAN_H
