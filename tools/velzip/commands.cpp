#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "archive_scan.h"
#include "cli.h"
#include "velzip/UnzipHandler.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/VelZipHandler.h"
#include "velzip/ZipHandler.h"

namespace velzip_tool {

volatile std::sig_atomic_t gInterrupted = 0;

namespace {

constexpr unsigned long kKeepEntryModes = 0xFFFFFFFFul;

using Clock = std::chrono::steady_clock;

extern "C" void onInterrupt(int) {
  gInterrupted = 1;
}

double since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string errnoText() {
  return std::strerror(errno);
}

std::string realPath(const std::string& path) {
  char buf[PATH_MAX];
  return realpath(path.c_str(), buf) != nullptr ? std::string(buf) : std::string();
}

bool isInside(const std::string& path, const std::string& folder) {
  if (folder == "/") return true;
  return path == folder || path.compare(0, folder.size() + 1, folder + "/") == 0;
}

uint64_t fileSize(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

unsigned long countEntries(const std::string& archive) {
  Vel::VelUnzipHandler reader(archive.c_str());
  return reader.getFileCount();
}

std::string percentOf(uint64_t part, uint64_t whole) {
  if (whole == 0) return "-";
  char buf[16];
  std::snprintf(buf, sizeof buf, "%.0f%%", 100.0 * static_cast<double>(part) / whole);
  return buf;
}

// --- compress -------------------------------------------------------------

struct CompressJob {
  Display* display = nullptr;
  std::string folder;  // absolute, no trailing slash
  int format = 1;
  uint64_t bytes = 0, entries = 0;
  uint64_t currentSize = 0, currentCounted = 0;
  bool currentIsCompanion = false;
  bool aborted = false;
};

std::string relativeTo(const std::string& folder, const char* path) {
  const std::string p = path != nullptr ? path : "";
  if (p.compare(0, folder.size() + 1, folder + "/") == 0) return p.substr(folder.size() + 1);
  return p;
}

ZLibCallbackAction onCompress(ZLibCBData* d) {
  auto* job = static_cast<CompressJob*>(d->userData);
  switch (d->state) {
    case kZLibStateEntryStart:
      // The folder walk names its own items by absolute path; companions
      // made for format 0 carry their relative "__MACOSX/" name instead.
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
        job->display->detail(std::string("  adding: ") + (d->entryName ? d->entryName : ""));
      } else {
        job->bytes += job->currentSize - job->currentCounted;
        ++job->entries;
        job->display->detail("  adding: " + relativeTo(job->folder, d->filePath));
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

// The same archive the library's one-call ZipFolder makes, but through a
// writer object so that progress and Ctrl-C reach us, and published only
// when everything went in: else the writer drops it and ARCHIVE keeps what it
// had. why: the writer's reason when it failed.
template <class Writer>
bool compressWith(Writer& writer, const std::string& archive, const std::string& base,
                  const std::string& folderArg, CompressJob& job, std::string& why) {
  writer.setCallback(onCompress, &job);
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

// The writer names absolute paths; show them as the user gave them.
std::string asGiven(std::string text, const std::string& absolute, const std::string& given) {
  for (size_t at = text.find(absolute); at != std::string::npos;
       at = text.find(absolute, at + given.size())) {
    text.replace(at, absolute.size(), given);
  }
  return text;
}

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

void installInterruptHandler() {
  struct sigaction sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sa_handler = onInterrupt;
  sigemptyset(&sa.sa_mask);
  // A second Ctrl-C kills at once, for the impatient.
  sa.sa_flags = SA_RESTART | SA_RESETHAND;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
}

std::string absolutePath(const std::string& path) {
  std::string joined = path;
  if (path.empty() || path[0] != '/') {
    char cwd[PATH_MAX];
    joined = (getcwd(cwd, sizeof cwd) != nullptr ? std::string(cwd) : std::string()) + "/" + path;
  }
  std::string out;
  size_t i = 0;
  while (i < joined.size()) {
    size_t j = joined.find('/', i);
    if (j == std::string::npos) j = joined.size();
    const std::string part = joined.substr(i, j - i);
    if (!part.empty() && part != ".") out += "/" + part;
    i = j + 1;
  }
  return out.empty() ? "/" : out;
}

std::string parentOf(const std::string& absPath) {
  const size_t slash = absPath.rfind('/');
  if (slash == std::string::npos || slash == 0) return "/";
  return absPath.substr(0, slash);
}

int runCompress(const Options& opt, Display& display) {
  const int format = opt.format == "0" ? 0 : 1;
  const std::string folder = absolutePath(opt.operands[0]);
  const std::string archive = absolutePath(opt.operands[1]);

  struct stat st;
  if (stat(folder.c_str(), &st) != 0) {
    return fail(display, "cannot compress " + opt.operands[0] + ": " + errnoText());
  }
  if (!S_ISDIR(st.st_mode))
    return fail(display, "cannot compress " + opt.operands[0] + ": not a folder");
  const std::string archiveDir = realPath(parentOf(archive));
  if (archiveDir.empty()) {
    return fail(display,
                "cannot create " + opt.operands[1] + ": " + parentOf(archive) + ": " + errnoText());
  }
  const std::string folderReal = realPath(folder);
  if (!folderReal.empty() && isInside(archiveDir, folderReal)) {
    return fail(display, "the archive " + opt.operands[1] + " would be inside the folder it packs");
  }

  struct stat existing;
  const bool replacing = stat(archive.c_str(), &existing) == 0;
  if (replacing && !S_ISREG(existing.st_mode)) {
    return fail(display, "cannot replace " + opt.operands[1] + ": it is " +
                             (S_ISDIR(existing.st_mode) ? "a folder" : "not a regular file"));
  }
  if (replacing && !opt.force) {
    const Content content = archiveContent(archive);
    if (content == Content::kUnreadable) {
      return fail(display, "cannot tell whether " + opt.operands[1] +
                               " is a zip archive: " + errnoText() + "; use --force to replace it");
    }
    if (content == Content::kOther) {
      return fail(display,
                  opt.operands[1] + " exists and is not a zip archive; use --force to replace it");
    }
  }

  Z_FileInfo info;
  Vel::VelZipHandler::GetFolderInfo(folder.c_str(), info);
  installInterruptHandler();
  // Failures are reported below, once, from the writer's own words.
  muteLibraryErrors();

  CompressJob job;
  job.display = &display;
  job.folder = folder;
  job.format = format;
  const auto start = Clock::now();
  display.begin("compress", info.totalSize, info.fileCount);
  bool ok = false;
  std::string why;
  if (format == 1) {
    // Base folder with a trailing "/": names relative to the folder itself.
    Vel::VelZipHandler writer;
    ok = compressWith(writer, archive, folder + "/", folder + "/", job, why);
  } else {
    // Base folder = the folder's parent, as for an archive beside it.
    ZipHandler writer;
    ok = compressWith(writer, archive, parentOf(folder), folder, job, why);
  }
  display.end();
  const double elapsed = since(start);

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
              " entries, " + humanBytes(info.totalSize) + " in, " + humanBytes(archiveSize) +
              " archive (" + percentOf(archiveSize, info.totalSize) + "), " + seconds(elapsed));
  return kExitOk;
}

// --- extract --------------------------------------------------------------

namespace {

struct ExtractJob {
  Display* display = nullptr;
  uint64_t bytes = 0, entries = 0;
  bool aborted = false;
  bool inEntry = false;  // lastEntry started and not finished
  std::string lastEntry;
};

ZLibCallbackAction onExtract(ZLibCBData* d) {
  auto* job = static_cast<ExtractJob*>(d->userData);
  switch (d->state) {
    case kZLibStateEntryStart:
      if (d->entryName != nullptr) job->lastEntry = d->entryName;
      job->inEntry = true;
      break;
    case kZLibStateEntryData:
      job->bytes += d->bytes;
      break;
    case kZLibStateEntryDone:
      // Once per entry: folders at their start, files and companions when
      // written, links in the closing pass.
      ++job->entries;
      job->inEntry = false;
      if (d->entryName != nullptr) {
        job->lastEntry = d->entryName;
        job->display->detail(std::string("  extracting: ") + d->entryName);
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
                 ExtractJob& job) {
  Reader reader(nullptr);
  reader.setCallback(onExtract, &job);
  if (opt.passwordGiven) reader.setUnzipPassword(opt.password.c_str());
  reader.setKeepSetIdBits(opt.keepSetId);
  return reader.unzip(archive.c_str(), dest.c_str(), false, kKeepEntryModes);
}

// The entry whose data failed an extraction, and why: the library's own
// check of the last entry the callback heard of and of the links after it,
// which give no signal. False when they all pass (the failure was in
// writing, not reading).
template <class Reader>
bool findFailedEntry(const std::string& archive, const Options& opt, const ArchiveScan& scan,
                     size_t from, std::string& name, std::string& why) {
  Reader reader(archive.c_str());
  if (opt.passwordGiven) reader.setUnzipPassword(opt.password.c_str());
  for (size_t i = from; i < scan.entries.size(); ++i) {
    if (i > from && scan.entries[i].kind != EntryKind::kLink) break;
    if (!reader.gotoFile(static_cast<int>(i)) || reader.testFile(why)) continue;
    name = scan.entries[i].name;
    return true;
  }
  return false;
}

// The last entry the callback heard of: a file is told it is done even
// when it failed.
size_t firstSuspect(const ArchiveScan& scan, const ExtractJob& job) {
  for (size_t i = 0; i < scan.entries.size() && !job.lastEntry.empty(); ++i) {
    if (scan.entries[i].name == job.lastEntry) return i;
  }
  return 0;
}

std::string failureReason(const std::string& archive, const Options& opt, int format,
                          const ArchiveScan& scan, const ExtractJob& job) {
  std::string name, why;
  const size_t from = firstSuspect(scan, job);
  const bool found =
      format == 1 ? findFailedEntry<Vel::VelUnzipHandler>(archive, opt, scan, from, name, why)
                  : findFailedEntry<UnzipHandler>(archive, opt, scan, from, name, why);
  if (!found) {
    return job.lastEntry.empty() ? std::string() : " (stopped at or after " + job.lastEntry + ")";
  }
  std::string reason = ": " + name + ": " + why;
  if (scan.isEncrypted(name) && why != "wrong password") reason += " (is the password right?)";
  return reason;
}

// Refused before anything is written: no password makes these readable.
bool refuseUnreadable(const Options& opt, Display& display, const ArchiveScan& scan, int& rc) {
  const auto unreadable = scan.unreadableEntries();
  if (unreadable.empty()) return false;
  std::string reason = "cannot extract " + opt.operands[0] + ": " + unreadable[0]->name + ": " +
                       unreadable[0]->unreadable;
  if (unreadable.size() > 1) {
    reason +=
        " (and " + std::to_string(unreadable.size() - 1) + " more entries velzip cannot read)";
  }
  rc = fail(display, reason);
  return true;
}

bool checkArchiveFile(const Options& opt, Display& display, const std::string& archive, int& rc) {
  struct stat st;
  if (stat(archive.c_str(), &st) != 0) {
    rc = fail(display, "cannot read " + opt.operands[0] + ": " + errnoText());
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    rc = fail(display, "cannot read " + opt.operands[0] + ": not a regular file");
    return false;
  }
  return true;
}

}  // namespace

int runExtract(const Options& opt, Display& display) {
  const std::string archive = absolutePath(opt.operands[0]);
  std::string dest;
  if (opt.operands.size() > 1) {
    dest = absolutePath(opt.operands[1]);
  } else {
    const std::string base = archive.substr(archive.rfind('/') + 1);
    const size_t dot = base.rfind('.');
    if (dot == std::string::npos || dot == 0) {
      std::fprintf(stderr,
                   "velzip: %s has no suffix to strip; name the destination folder\n"
                   "Try 'velzip --help' for more information.\n",
                   opt.operands[0].c_str());
      return kExitUsage;
    }
    dest = parentOf(archive) + (parentOf(archive) == "/" ? "" : "/") + base.substr(0, dot);
  }
  int rc = kExitOk;
  if (!checkArchiveFile(opt, display, archive, rc)) return rc;

  installInterruptHandler();
  ArchiveScan scan;
  std::string reason;
  if (!scanArchive(archive, false, scan, reason)) return fail(display, reason);
  if (scan.entries.empty()) return fail(display, opt.operands[0] + " holds no entries");
  if (refuseUnreadable(opt, display, scan, rc)) return rc;
  // Refused before anything is written rather than at the first such entry.
  if (!opt.passwordGiven && scan.encryptedCount() > 0) {
    return fail(display, opt.operands[0] + " has " + std::to_string(scan.encryptedCount()) +
                             " encrypted entries; give the password with -p PASSWORD");
  }
  const int format = opt.format == "0" ? 0 : opt.format == "1" ? 1 : scan.format;
  if (format == 1 && scan.format == 0) {
    display.err("velzip: warning: " + opt.operands[0] +
                " has entries that are not stored LZMA2 payloads; extracting as format 1 anyway");
  }

  // The reader's own total counts format-1 payload bytes, not restored ones.
  const uint64_t totalBytes =
      format == 1 ? scan.contentBytes(1)
                  : static_cast<uint64_t>(Vel::VelUnzipHandler::GetUnzipSize(archive.c_str()));
  ExtractJob job;
  job.display = &display;
  const auto start = Clock::now();
  display.begin("extract", totalBytes, scan.entries.size());
  bool ok = false;
  if (format == 1) {
    ok = extractWith<Vel::VelUnzipHandler>(archive, dest, opt, job);
  } else {
    ok = extractWith<UnzipHandler>(archive, dest, opt, job);
  }
  display.end();
  const double elapsed = since(start);

  // A Ctrl-C during the closing link pass still yields success from the
  // reader: the count of finished entries tells.
  if (job.aborted && (!ok || job.entries < scan.entries.size())) {
    return fail(display, "interrupted: " + std::to_string(job.entries) + " of " +
                             std::to_string(scan.entries.size()) + " entries extracted into " +
                             dest);
  }
  if (!ok) {
    return fail(display, "could not extract " + opt.operands[0] + " into " + dest +
                             failureReason(archive, opt, format, scan, job));
  }
  display.out("extracted " + opt.operands[0] + " (format " + std::to_string(format) + ") into " +
              dest + ": " + std::to_string(scan.entries.size()) + " entries, " +
              humanBytes(scan.contentBytes(format)) + ", " + seconds(elapsed));
  return kExitOk;
}

// --- list -----------------------------------------------------------------

namespace {

std::string modeString(uint32_t mode) {
  char s[11] = "----------";
  switch (mode & 0xF000) {
    case 0x4000:
      s[0] = 'd';
      break;
    case 0xA000:
      s[0] = 'l';
      break;
    case 0x1000:
      s[0] = 'p';
      break;
    case 0x2000:
      s[0] = 'c';
      break;
    case 0x6000:
      s[0] = 'b';
      break;
    case 0xC000:
      s[0] = 's';
      break;
    default:
      break;
  }
  static const char kRwx[] = "rwxrwxrwx";
  for (int i = 0; i < 9; ++i) {
    if (mode & (0400u >> i)) s[1 + i] = kRwx[i];
  }
  if (mode & 04000) s[3] = (mode & 0100) ? 's' : 'S';
  if (mode & 02000) s[6] = (mode & 0010) ? 's' : 'S';
  if (mode & 01000) s[9] = (mode & 0001) ? 't' : 'T';
  return s;
}

}  // namespace

int runList(const Options& opt, Display& display) {
  const std::string archive = absolutePath(opt.operands[0]);
  int rc = kExitOk;
  if (!checkArchiveFile(opt, display, archive, rc)) return rc;
  ArchiveScan scan;
  std::string reason;
  if (!scanArchive(archive, true, scan, reason)) return fail(display, reason);

  // The listing is the command's output: -q does not hide it.
  std::printf("%s: format %d\n", opt.operands[0].c_str(), scan.format);
  std::printf("%12s %12s  %-13s %-10s  %-10s  %-5s  %s\n", "Size", "Packed", "Method", "Encryption",
              "Mode", "Kind", "Name");
  uint64_t size = 0, packed = 0;
  for (const auto& e : scan.entries) {
    const uint64_t restored = ArchiveScan::restoredSize(e, scan.format);
    size += restored;
    packed += e.packedSize;
    std::string name = e.name;
    if (e.kind == EntryKind::kLink) name += " -> " + e.linkTarget;
    const std::string kind = std::string(kindName(e.kind)) + (e.encrypted ? "*" : "");
    std::printf("%12" PRIu64 " %12" PRIu64 "  %-13s %-10s  %-10s  %-5s  %s\n", restored,
                e.packedSize, e.methodName.c_str(), e.encryptionName.c_str(),
                modeString(e.mode).c_str(), kind.c_str(), name.c_str());
  }
  std::printf("%12" PRIu64 " %12" PRIu64 "  %zu entries\n", size, packed, scan.entries.size());
  if (const size_t n = scan.encryptedCount()) {
    std::printf("* %zu encrypted (extract with -p PASSWORD)\n", n);
  }
  for (const ScannedEntry* e : scan.unreadableEntries()) {
    std::printf("cannot read %s: %s\n", e->name.c_str(), e->unreadable.c_str());
  }
  return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

// --- gzip -----------------------------------------------------------------

int runGzip(const Options& opt, Display& display) {
  const std::string& file = opt.operands[0];
  struct stat st;
  if (stat(file.c_str(), &st) != 0)
    return fail(display, "cannot gzip " + file + ": " + errnoText());
  if (!S_ISREG(st.st_mode)) return fail(display, "cannot gzip " + file + ": not a regular file");
  const std::string gz = file + ".gz";
  const bool appended = access(gz.c_str(), F_OK) == 0;
  const auto start = Clock::now();
  if (!Vel::VelZipHandler::GZipFile(file)) {
    return fail(display,
                "could not gzip " + file + " into " + gz + " (it may hold a partial member)");
  }
  display.out((appended ? "appended " : "gzipped ") + file +
              (appended ? " as a new member to " : " into ") + gz + ": " +
              humanBytes(static_cast<uint64_t>(st.st_size)) + " in, " + humanBytes(fileSize(gz)) +
              " now, " + seconds(since(start)));
  return kExitOk;
}

}  // namespace velzip_tool
