// Whole-archive extraction with worker threads: regular files are decoded
// ahead into staged files while the caller's thread goes through the
// entries in archive order, tells the callback exactly what a single thread
// would, and publishes each file at its turn. The workers exist only for
// the length of one unzipTo.
#include <atomic>
#include <deque>
#include <memory>

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
  // Entries are planned as the window ahead reaches them, so that the
  // workers start on the first files at once.
  std::deque<Entry> entries;
  std::deque<std::unique_ptr<Job>> jobs;
  bool morePlanned = true;
  std::atomic<bool> cancelled{false};
  const char* password = password_;
  const ContentWriter writer = traits_.writeContent;
  // The caller's thread is one of the threads: it decodes files ahead too
  // while its next one is not ready.
  Workers<Job> workers(threads_ - 1, [&](Job& job, unsigned) {
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
  auto planAhead = [&] {
    while (morePlanned && entries.size() < ahead) {
      entries.emplace_back();
      Entry& e = entries.back();
      planEntry(destFolder, junkPaths, mode, e);
      morePlanned = gotoNextFile(nullptr);
      jobs.push_back(std::make_unique<Job>());
      if (e.leftOut || !e.refusal.empty() || e.type != EntryType::kFile || e.strayCompanion ||
          e.rel.empty()) {
        continue;
      }
      // A folder on the way that cannot be opened leaves the file to its
      // turn, which reports why.
      Job& job = *jobs.back();
      fillWork(e, job.work);
      const size_t slash = e.rel.rfind('/');
      job.work.dir =
          dest_.deepestExisting(slash == std::string::npos ? "" : e.rel.substr(0, slash));
      if (!job.work.dir) continue;
      job.submitted = true;
      workers.submit(job);
    }
  };

  bool ok = true;
  for (planAhead(); ok && !entries.empty(); planAhead()) {
    Job& job = *jobs.front();
    if (job.submitted) {
      workers.helpUntil(job, threads_ - 1, [](const Job&) { return true; });
      ok = extractFile(entries.front(), &job.work);
    } else {
      ok = extractPlanned(entries.front());
    }
    entries.pop_front();
    jobs.pop_front();
  }
  // Work decoded ahead of a failure or an abort is dropped unpublished.
  cancelled = true;
  return ok;
}

}  // namespace velzip
