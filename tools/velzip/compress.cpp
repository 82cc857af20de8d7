// velzip compress: a folder into a new archive, published only when whole.
#include <sys/stat.h>

#include <cstring>
#include <fstream>

#include "commands.h"
#include "interrupt.h"
#include "name_text.h"
#include "paths.h"
#include "select.h"
#include "source_tree.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/VelZipHandler.h"
#include "velzip/ZipHandler.h"

namespace velzip_tool {
namespace {

using Clock = std::chrono::steady_clock;

struct CompressJob {
  Display* display = nullptr;
  std::string folder;  // absolute, no trailing slash
  int format = 1;
  uint64_t bytes = 0, entries = 0;
  uint64_t currentSize = 0, currentCounted = 0;
  bool currentIsCompanion = false;
  bool aborted = false;
};

// What -x leaves out of the walk, by the name each item will have.
struct WalkChoice {
  const Selection* selection = nullptr;
  std::string folder;      // absolute, no trailing slash
  std::string namePrefix;  // format 0 names start with the folder's own name

  bool takes(const std::string& path) const {
    return !selection->excluded(namePrefix + pathBelow(folder, path));
  }
  static bool filter(const char* path, bool /*isFolder*/, void* self) {
    return static_cast<const WalkChoice*>(self)->takes(path);
  }
};

ZLibCallbackAction onCompress(ZLibCBData* d) {
  auto* job = static_cast<CompressJob*>(d->userData);
  switch (d->state) {
    case kZLibStateEntryStart:
      // The folder walk names its own items by absolute path; companions
      // carry their relative "__MACOSX/" name instead.
      job->currentIsCompanion = d->entryName != nullptr && d->entryName[0] != '/';
      job->currentCounted = 0;
      job->currentSize = 0;
      if (!job->currentIsCompanion && d->filePath != nullptr) {
        job->currentSize = fileSize(d->filePath);
      }
      break;
    case kZLibStateEntryData:
      // Format 0 reports source bytes; format 1 reports payload bytes, which
      // say nothing about how much of the tree is done.
      if (job->format == 0 && !job->currentIsCompanion) {
        const uint64_t room = job->currentSize - job->currentCounted;
        const uint64_t add = d->bytes < room ? d->bytes : room;
        job->currentCounted += add;
        job->bytes += add;
      }
      break;
    case kZLibStateEntryDone:
      if (job->currentIsCompanion) {
        job->display->detail("  adding: " + printable(d->entryName ? d->entryName : ""));
      } else {
        job->bytes += job->currentSize - job->currentCounted;
        ++job->entries;
        job->display->detail("  adding: " +
                             printable(pathBelow(job->folder, d->filePath ? d->filePath : "")));
      }
      break;
    default:
      break;
  }
  job->display->progress(job->bytes, job->entries);
  if (gInterrupted != 0 && d->state != kZLibStateEntryDone) {
    job->aborted = true;
    return kZLibAbort;
  }
  return kZLibContinue;
}

// The archive the library's one-call ZipFolder makes (given the same
// settings), but through a writer object so that progress, Ctrl-C and the
// settings reach it, and published only when everything went in: else the
// writer drops it and ARCHIVE keeps what it had. why: the writer's reason
// when it failed.
template <class Writer>
bool compressWith(Writer& writer, const Options& opt, const std::string& archive,
                  const std::string& base, const std::string& folderArg, WalkChoice* choice,
                  CompressJob& job, std::string& why) {
  writer.setCallback(onCompress, &job);
  writer.setCompressionLevel(opt.level);
  writer.setThreadCount(opt.threads);
  writer.setCompanionPolicy(opt.noXattrs ? CompanionPolicy::kNever
                                         : CompanionPolicy::kWithMetadata);
  if (choice != nullptr) writer.setWalkFilter(WalkChoice::filter, choice);
  if (!writer.openZip(archive.c_str(), base.c_str(), false)) {
    why = writer.lastError();
    return false;
  }
  const bool added = writer.addFolderToZip(folderArg.c_str(), false, false);
  if (added && !job.aborted && writer.closeZip()) return true;
  why = writer.lastError();
  writer.discardZip();
  return false;
}

// What the first bytes say: a zip archive starts with a local header, or an
// empty one with its end record.
enum class Content { kZip, kOther, kUnreadable };

Content archiveContent(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  char head[4] = {};
  if (!in.is_open() || (!in.read(head, sizeof head) && !in.eof())) return Content::kUnreadable;
  const bool zip = in.gcount() == 4 &&
                   (std::memcmp(head, "PK\3\4", 4) == 0 || std::memcmp(head, "PK\5\6", 4) == 0);
  return zip ? Content::kZip : Content::kOther;
}

std::string percentOf(uint64_t part, uint64_t whole) {
  if (whole == 0) return "-";
  char buf[16];
  std::snprintf(buf, sizeof buf, "%.0f%%", 100.0 * static_cast<double>(part) / whole);
  return buf;
}

unsigned long countEntries(const std::string& archive) {
  Vel::VelUnzipHandler reader(archive.c_str());
  return reader.getFileCount();
}

// FOLDER must be a folder, and ARCHIVE's folder must exist outside it.
bool checkSource(const Options& opt, Display& display, const std::string& folder,
                 const std::string& archive, int& rc) {
  struct stat st;
  if (stat(folder.c_str(), &st) != 0) {
    rc = fail(display, "cannot compress " + opt.operands[0] + ": " + errnoText());
    return false;
  }
  if (!S_ISDIR(st.st_mode)) {
    rc = fail(display, "cannot compress " + opt.operands[0] + ": not a folder");
    return false;
  }
  const std::string archiveDir = realPath(parentOf(archive));
  if (archiveDir.empty()) {
    rc = fail(display,
              "cannot create " + opt.operands[1] + ": " + parentOf(archive) + ": " + errnoText());
    return false;
  }
  const std::string folderReal = realPath(folder);
  if (!folderReal.empty() && isInside(archiveDir, folderReal)) {
    rc = fail(display, "the archive " + opt.operands[1] + " would be inside the folder it packs");
    return false;
  }
  return true;
}

// An existing ARCHIVE is replaced only by a zip archive, unless --force.
bool checkReplaced(const Options& opt, Display& display, const std::string& archive,
                   bool& replacing, int& rc) {
  struct stat existing;
  replacing = stat(archive.c_str(), &existing) == 0;
  if (replacing && !S_ISREG(existing.st_mode)) {
    rc = fail(display, "cannot replace " + opt.operands[1] + ": it is " +
                           (S_ISDIR(existing.st_mode) ? "a folder" : "not a regular file"));
    return false;
  }
  if (!replacing || opt.force) return true;
  const Content content = archiveContent(archive);
  if (content == Content::kUnreadable) {
    rc = fail(display, "cannot tell whether " + opt.operands[1] +
                           " is a zip archive: " + errnoText() + "; use --force to replace it");
    return false;
  }
  if (content == Content::kOther) {
    rc = fail(display,
              opt.operands[1] + " exists and is not a zip archive; use --force to replace it");
    return false;
  }
  return true;
}

}  // namespace

int runCompress(const Options& opt, Display& display) {
  const int format = opt.format == "0" ? 0 : 1;
  const std::string folder = absolutePath(opt.operands[0]);
  const std::string archive = absolutePath(opt.operands[1]);
  int rc = kExitOk;
  bool replacing = false;
  if (!checkSource(opt, display, folder, archive, rc) ||
      !checkReplaced(opt, display, archive, replacing, rc)) {
    return rc;
  }

  const Selection selection({}, opt.excludes);
  WalkChoice choice;
  choice.selection = &selection;
  choice.folder = folder;
  // Format 1 names are relative to FOLDER, format 0 names start with its name.
  choice.namePrefix = format == 0 ? lastComponent(folder) + "/" : std::string();
  WalkChoice* filter = selection.empty() ? nullptr : &choice;
  const TreeTotals totals = countTree(folder, [&](const std::string& path, bool) {
    return filter == nullptr || filter->takes(path);
  });

  installInterruptHandler();
  // Failures are reported below, once, from the writer's own words.
  muteLibraryErrors();
  CompressJob job;
  job.display = &display;
  job.folder = folder;
  job.format = format;
  const auto start = Clock::now();
  display.begin("compress", totals.bytes, totals.files);
  bool ok = false;
  std::string why;
  if (format == 1) {
    // Base folder with a trailing "/": names relative to the folder itself.
    Vel::VelZipHandler writer;
    ok = compressWith(writer, opt, archive, folder + "/", folder + "/", filter, job, why);
  } else {
    // Base folder = the folder's parent, as for an archive beside it.
    ZipHandler writer;
    ok = compressWith(writer, opt, archive, parentOf(folder), folder, filter, job, why);
  }
  display.end();
  const double elapsed = secondsSince(start);

  if (!ok) {
    const std::string kept =
        opt.operands[1] + (replacing ? " is left as it was" : " was not written");
    if (job.aborted) return fail(display, "interrupted; " + kept);
    why = asGiven(asGiven(why, archive, opt.operands[1]), folder,
                  withoutTrailingSlashes(opt.operands[0]));
    return fail(display,
                (why.empty() ? "could not compress " + opt.operands[0] : why) + "; " + kept);
  }
  const uint64_t archiveSize = fileSize(archive);
  display.out("compressed " + opt.operands[0] + " into " + opt.operands[1] + " (format " +
              std::to_string(format) + "): " + std::to_string(countEntries(archive)) +
              " entries, " + humanBytes(totals.bytes) + " in, " + humanBytes(archiveSize) +
              " archive (" + percentOf(archiveSize, totals.bytes) + "), " + seconds(elapsed));
  return kExitOk;
}

}  // namespace velzip_tool
