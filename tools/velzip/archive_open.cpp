#include "archive_open.h"

#include <sys/stat.h>

#include "paths.h"

namespace velzip_tool {

bool openArchive(const Options& opt, Display& display, const std::string& archive,
                 bool readLinkTargets, ArchiveScan& scan, int& rc) {
  struct stat st;
  if (stat(archive.c_str(), &st) != 0) {
    rc = fail(display, "cannot read " + opt.operands[0] + ": " + errnoText());
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    rc = fail(display, "cannot read " + opt.operands[0] + ": not a regular file");
    return false;
  }
  std::string reason;
  if (!scanArchive(archive, readLinkTargets, scan, reason)) {
    rc = fail(display, reason);
    return false;
  }
  return true;
}

int readingFormat(const Options& opt, Display& display, const ArchiveScan& scan) {
  const int format = opt.format == "0" ? 0 : opt.format == "1" ? 1 : scan.format;
  if (format == 1 && scan.format == 0) {
    display.err("velzip: warning: " + opt.operands[0] +
                " has entries that are not stored LZMA2 payloads; reading it as format 1 anyway");
  }
  return format;
}

bool refuseWithoutPassword(const Options& opt, Display& display, const ArchiveScan& scan,
                           const EntryChosen& chosen, int& rc) {
  if (opt.has(kOptPassword)) return false;
  size_t encrypted = 0;
  for (size_t i = 0; i < scan.entries.size(); ++i) {
    encrypted += scan.entries[i].encrypted && chosen(i) ? 1 : 0;
  }
  if (encrypted == 0) return false;
  rc = fail(display, opt.operands[0] + " has " + std::to_string(encrypted) +
                         " encrypted entries; give the password with -p PASSWORD");
  return true;
}

}  // namespace velzip_tool
