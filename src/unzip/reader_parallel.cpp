// Whole-archive extraction with worker threads: regular files are decoded
// ahead into staged files while the caller's thread goes through the
// entries in archive order, tells the callback exactly what a single thread
// would, and publishes each file at its turn. The workers exist only for
// the length of one unzipTo.
#include <atomic>
#include <memory>
#include <vector>

#include "frame/workers.h"
#include "unzip/reader_core.h"

namespace velzip {
namespace {

constexpr size_t kAheadPerThread = 4;

// An entry of the archive, planned in order, its file decoded ahead.
struct Job {
  bool submitted = false;
  bool done = false;
  FileWork work;
};

}  // namespace

bool ReaderCore::extractInParallel(const char* destFolder, bool junkPaths, unsigned long mode) {
  std::vector<Entry> entries;
  do {
    entries.emplace_back();
    planEntry(destFolder, junkPaths, mode, entries.back());
  } while (gotoNextFile(nullptr));

  std::vector<std::unique_ptr<Job>> jobs(entries.size());
  std::atomic<bool> cancelled{false};
  const char* password = password_;
  const ContentWriter writer = traits_.writeContent;
  Workers<Job> workers(threads_, [&](Job& job, unsigned) {
    const DataReporter hold = [&](uint64_t bytes) {
      job.work.reports.push_back(bytes);
      return !cancelled.load(std::memory_order_relaxed);
    };
    decodeFile(archive_, password, writer, job.work, hold, nullptr);
  });

  // A file ahead is staged in the deepest of its folders that exists now:
  // folders are made only at the file's turn, as on one thread, and a
  // rename within one file system may cross folders.
  const size_t ahead = threads_ * kAheadPerThread;
  size_t next = 0;
  auto submitUpTo = [&](size_t end) {
    for (; next < entries.size() && next < end; ++next) {
      const Entry& e = entries[next];
      jobs[next] = std::make_unique<Job>();
      if (e.leftOut || !e.refusal.empty() || e.type != EntryType::kFile || e.strayCompanion ||
          e.rel.empty()) {
        continue;
      }
      Job& job = *jobs[next];
      job.submitted = true;
      fillWork(e, job.work);
      const size_t slash = e.rel.rfind('/');
      job.work.dir =
          dest_.deepestExisting(slash == std::string::npos ? "" : e.rel.substr(0, slash));
      if (job.work.dir) workers.submit(job);
    }
  };

  bool ok = true;
  for (size_t i = 0; ok && i < entries.size(); ++i) {
    submitUpTo(i + ahead);
    Job& job = *jobs[i];
    if (job.submitted) {
      workers.waitFor(job);
      ok = extractFile(entries[i], &job.work);
    } else {
      ok = extractPlanned(entries[i]);
    }
    jobs[i].reset();
  }
  // Work decoded ahead of a failure or an abort is dropped unpublished.
  cancelled = true;
  return ok;
}

}  // namespace velzip
