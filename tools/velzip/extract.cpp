// velzip extract: an archive into a folder, through the reader of its
// format, refusing up front what would fail or overwrite unasked.
#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "archive_open.h"
#include "commands.h"
#include "entry_test.h"
#include "extract_plan.h"
#include "interrupt.h"
#include "name_text.h"
#include "paths.h"
#include "velzip/UnzipHandler.h"
#include "velzip/VelUnzipHandler.h"

namespace velzip_tool {
namespace {

constexpr unsigned long kKeepEntryModes = 0xFFFFFFFFul;

using Clock = std::chrono::steady_clock;

struct ExtractJob {
  Display* display = nullptr;
  uint64_t bytes = 0, entries = 0;
  bool aborted = false;
  std::string lastEntry;  // the last one the callback heard of
};

ZLibCallbackAction onExtract(ZLibCBData* d) {
  auto* job = static_cast<ExtractJob*>(d->userData);
  switch (d->state) {
    case kZLibStateEntryStart:
      if (d->entryName != nullptr) job->lastEntry = d->entryName;
      break;
    case kZLibStateEntryData:
      job->bytes += d->bytes;
      break;
    case kZLibStateEntryDone:
      // Once per entry: folders at their start, files and companions when
      // written, links in the closing pass.
      ++job->entries;
      if (d->entryName != nullptr) {
        job->lastEntry = d->entryName;
        job->display->detail("  extracting: " + printable(d->entryName));
      }
      break;
    default:
      break;
  }
  job->display->progress(job->bytes, job->entries);
  if (gInterrupted != 0) {
    job->aborted = true;
    return kZLibAbort;
  }
  return kZLibContinue;
}

template <class Reader>
bool extractWith(const std::string& archive, const std::string& dest, const Options& opt,
                 ExtractPlan& plan, ExtractJob& job) {
  Reader reader(nullptr);
  reader.setCallback(onExtract, &job);
  if (opt.has(kOptPassword)) reader.setUnzipPassword(opt.password.c_str());
  reader.setKeepSetIdBits(opt.keepSetId);
  reader.setThreadCount(opt.threads);
  if (plan.filters) reader.setEntryFilter(ExtractPlan::filter, &plan);
  return reader.unzip(archive.c_str(), dest.c_str(), false, kKeepEntryModes);
}

// The entry whose data failed an extraction, and why: the library's own
// check of the last entry the callback heard of and of the links after it,
// which give no signal. "" when they all pass (the failure was in writing,
// not reading).
std::string failedEntry(const std::string& archive, const Options& opt, int format,
                        const ArchiveScan& scan, const ExtractPlan& plan, const ExtractJob& job,
                        std::string& why) {
  size_t from = 0;
  for (size_t i = 0; i < scan.entries.size() && !job.lastEntry.empty(); ++i) {
    if (scan.entries[i].name == job.lastEntry) {
      from = i;
      break;
    }
  }
  std::vector<EntryToTest> suspects;
  for (size_t i = from; i < scan.entries.size(); ++i) {
    if (i > from && scan.entries[i].kind != EntryKind::kLink) break;
    if (plan.takes[i]) suspects.push_back({i, 0});
  }
  const char* password = opt.has(kOptPassword) ? opt.password.c_str() : nullptr;
  const auto verdicts =
      testEntries(archive, format, password, suspects, 1, [](uint64_t, uint64_t) { return true; });
  for (size_t i = 0; i < verdicts.size(); ++i) {
    if (verdicts[i].tested && !verdicts[i].ok) {
      why = verdicts[i].why;
      return scan.entries[suspects[i].index].name;
    }
  }
  return std::string();
}

std::string failureReason(const std::string& archive, const Options& opt, int format,
                          const ArchiveScan& scan, const ExtractPlan& plan, const ExtractJob& job) {
  std::string why;
  const std::string name = failedEntry(archive, opt, format, scan, plan, job, why);
  if (name.empty()) {
    return job.lastEntry.empty() ? std::string()
                                 : " (stopped at or after " + printable(job.lastEntry) + ")";
  }
  std::string reason = ": " + printable(name) + ": " + why;
  if (scan.isEncrypted(name) && why != "wrong password") reason += " (is the password right?)";
  return reason;
}

// Refused before anything is written: no password makes these readable.
bool refuseUnreadable(const Options& opt, Display& display, const ArchiveScan& scan,
                      const ExtractPlan& plan, int& rc) {
  std::vector<const ScannedEntry*> unreadable;
  for (size_t i = 0; i < scan.entries.size(); ++i) {
    if (plan.takes[i] && !scan.entries[i].unreadable.empty()) {
      unreadable.push_back(&scan.entries[i]);
    }
  }
  if (unreadable.empty()) return false;
  std::string reason = "cannot extract " + opt.operands[0] + ": " + printable(unreadable[0]->name) +
                       ": " + unreadable[0]->unreadable;
  if (unreadable.size() > 1) {
    reason +=
        " (and " + std::to_string(unreadable.size() - 1) + " more entries velzip cannot read)";
  }
  rc = fail(display, reason);
  return true;
}

// DEST: ARCHIVE without its suffix, beside it, unless given.
bool destinationOf(const Options& opt, const std::string& archive, std::string& dest) {
  if (opt.operands.size() > 1) {
    dest = absolutePath(opt.operands[1]);
    return true;
  }
  const std::string base = lastComponent(archive);
  const size_t dot = base.rfind('.');
  if (dot == std::string::npos || dot == 0) return false;
  dest = parentOf(archive) + (parentOf(archive) == "/" ? "" : "/") + base.substr(0, dot);
  return true;
}

// A DEST that holds anything is only written into with -o or -k.
bool checkDestination(const Options& opt, Display& display, const std::string& dest, int& rc) {
  struct stat st;
  if (stat(dest.c_str(), &st) != 0) {
    if (errno == ENOENT) return true;
    rc = fail(display, "cannot extract into " + dest + ": " + errnoText());
    return false;
  }
  if (!S_ISDIR(st.st_mode)) {
    rc = fail(display, "cannot extract into " + dest + ": it exists and is not a folder");
    return false;
  }
  if (opt.overwrite || opt.keepExisting) return true;
  FolderReader dir(opendir(dest.c_str()));
  if (!dir) {
    rc = fail(display, "cannot extract into " + dest + ": " + errnoText());
    return false;
  }
  for (const dirent* item; (item = readdir(dir.get())) != nullptr;) {
    const std::string name = item->d_name;
    if (name == "." || name == "..") continue;
    rc = fail(display, dest +
                           " exists and is not empty; use -o (--overwrite) to replace what the "
                           "archive holds there, or -k (--keep-existing) to keep what is there");
    return false;
  }
  return true;
}

uint64_t takenBytes(const ArchiveScan& scan, const ExtractPlan& plan, int format) {
  uint64_t total = 0;
  for (size_t i = 0; i < scan.entries.size(); ++i) {
    const ScannedEntry& e = scan.entries[i];
    if (plan.takes[i] && (e.kind == EntryKind::kFile || e.kind == EntryKind::kMetadata)) {
      total += ArchiveScan::restoredSize(e, format);
    }
  }
  return total;
}

std::string entriesText(const ArchiveScan& scan, const ExtractPlan& plan) {
  std::string text = std::to_string(plan.taken);
  if (plan.taken != scan.entries.size()) text += " of " + std::to_string(scan.entries.size());
  text += " entries";
  if (plan.kept > 0) text += " (" + std::to_string(plan.kept) + " already there, kept)";
  return text;
}

}  // namespace

int runExtract(const Options& opt, Display& display) {
  const std::string archive = absolutePath(opt.operands[0]);
  std::string dest;
  if (!destinationOf(opt, archive, dest)) {
    return usage(opt.operands[0] + " has no suffix to strip; name the destination folder");
  }
  int rc = kExitOk;
  ArchiveScan scan;
  if (!openArchive(opt, display, archive, false, scan, rc)) return rc;
  if (scan.entries.empty()) return fail(display, opt.operands[0] + " holds no entries");
  if (!checkDestination(opt, display, dest, rc)) return rc;

  const Selection selection(opt.includes, opt.excludes);
  ExtractPlan plan = planExtraction(scan, selection, opt.noXattrs, opt.keepExisting, dest);
  if (plan.matched == 0) {
    return fail(display, "no entry of " + opt.operands[0] + " matches the -i and -x globs");
  }
  if (refuseUnreadable(opt, display, scan, plan, rc)) return rc;
  const auto taken = [&](size_t index) { return plan.takes[index]; };
  // Refused before anything is written rather than at the first such entry.
  if (refuseWithoutPassword(opt, display, scan, taken, rc)) return rc;
  const int format = readingFormat(opt, display, scan);

  installInterruptHandler();
  ExtractJob job;
  job.display = &display;
  const auto start = Clock::now();
  display.begin("extract", takenBytes(scan, plan, format), plan.taken);
  const bool ok = format == 1 ? extractWith<Vel::VelUnzipHandler>(archive, dest, opt, plan, job)
                              : extractWith<UnzipHandler>(archive, dest, opt, plan, job);
  display.end();
  const double elapsed = secondsSince(start);

  // A Ctrl-C during the closing link pass still yields success from the
  // reader: the count of finished entries tells.
  if (job.aborted && (!ok || job.entries < plan.taken)) {
    return fail(display, "interrupted: " + std::to_string(job.entries) + " of " +
                             std::to_string(plan.taken) + " entries extracted into " + dest);
  }
  if (!ok) {
    return fail(display, "could not extract " + opt.operands[0] + " into " + dest +
                             failureReason(archive, opt, format, scan, plan, job));
  }
  display.out("extracted " + opt.operands[0] + " (format " + std::to_string(format) + ") into " +
              dest + ": " + entriesText(scan, plan) + ", " +
              humanBytes(takenBytes(scan, plan, format)) + ", " + seconds(elapsed));
  return kExitOk;
}

}  // namespace velzip_tool
