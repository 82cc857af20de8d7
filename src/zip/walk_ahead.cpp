// A folder walk with worker threads: the walk is planned first, then its
// steps run in order on the caller's thread, exactly as one thread would run
// them, while workers prepare the content of the files ahead (format 1's
// payloads, format 0's deflated bytes). Each file's content is made the same
// way whoever makes it, so the archive is the same byte for byte.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "frame/workers.h"
#include "zip/failure_text.h"
#include "zip/zip_writer.h"

namespace velzip {
namespace {

constexpr size_t kAheadPerThread = 32;
constexpr uint64_t kMiB = uint64_t{1} << 20;
// What one thread may hold, and what each further one may add.
constexpr uint64_t kFirstThreadBudget = 180 * kMiB;
constexpr uint64_t kFurtherThreadBudget = 100 * kMiB;
// A worker's encoder that grew past this is freed after its file.
constexpr uint64_t kKeepToolsBelow = 32 * kMiB;

// Memory the jobs hold, granted in job order: the job the caller's thread
// waits for is never kept waiting by jobs behind it.
class MemoryBudget {
 public:
  explicit MemoryBudget(uint64_t total) : free_(total) {}
  // False when cancelled while waiting. A job larger than the whole budget
  // goes alone.
  bool acquire(uint64_t ticket, uint64_t bytes, const std::atomic<bool>& cancelled) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] {
      return cancelled.load() || (ticket == next_ && (bytes <= free_ || held_ == 0));
    });
    if (cancelled.load()) return false;
    grant(bytes);
    return true;
  }
  // acquire without the wait: false unless ticket's turn has come and its
  // bytes are free now.
  bool tryAcquire(uint64_t ticket, uint64_t bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (ticket != next_ || (bytes > free_ && held_ != 0)) return false;
    grant(bytes);
    return true;
  }
  void release(uint64_t bytes, uint64_t total) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      held_ -= bytes;
      free_ = held_ >= total ? 0 : total - held_;
    }
    changed_.notify_all();
  }
  // The lock orders the waiter's check of cancelled before this notice.
  void wake() {
    { std::lock_guard<std::mutex> lock(mutex_); }
    changed_.notify_all();
  }

 private:
  // Under the lock: the next ticket's bytes are taken.
  void grant(uint64_t bytes) {
    ++next_;
    free_ -= std::min(bytes, free_);
    held_ += bytes;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  uint64_t next_ = 0;
  uint64_t free_;
  uint64_t held_ = 0;
};

}  // namespace

struct ZipWriter::AheadJob {
  std::string path;  // the source as addFile resolves it
  uint64_t ticket = 0;
  uint64_t cost = 0;  // memory reserved while the job's content lives
  bool granted = false;
  bool done = false;
  // What the worker found.
  UniqueFd fd;
  int openError = 0;
  mode_t type = 0;
  std::unique_ptr<EntrySource> source;
  EntryContent content;
  bool prepared = false;
  int prepareError = 0;
};

bool ZipWriter::addFolderAhead(const char* path, bool flatten, bool addRootFolder) {
  std::vector<Step> steps;
  std::vector<std::string> files;
  walk(path, flatten, addRootFolder, [&](const Step& step, const char* file) {
    steps.push_back(step);
    files.emplace_back(file != nullptr ? file : "");
    return true;
  });

  const uint64_t total = kFirstThreadBudget + kFurtherThreadBudget * (threads_ - 1);
  MemoryBudget budget(total);
  std::atomic<bool> cancelled{false};
  std::vector<std::unique_ptr<ContentTools>> tools(threads_);
  for (auto& t : tools) {
    t = std::make_unique<ContentTools>();
    t->level = tools_.level;
  }
  std::vector<std::unique_ptr<AheadJob>> jobs(steps.size());
  const int spillFolder = output_.folder();
  const auto prepare = [&](AheadJob& job, unsigned worker) {
    if (!job.granted && !budget.acquire(job.ticket, job.cost, cancelled)) return;
    job.granted = true;
    job.fd.reset(::open(job.path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    struct stat st;
    if (!job.fd.ok() || fstat(job.fd.get(), &st) != 0) {
      job.openError = errno;
      return;
    }
    job.type = st.st_mode & S_IFMT;
    if (!S_ISREG(st.st_mode)) return;
    job.source = std::make_unique<EntrySource>(
        EntrySource::file(job.fd.get(), static_cast<uint64_t>(st.st_size)));
    job.source->cancelWhen(&cancelled);
    job.content.payload.setSpillFolder(spillFolder);
    ContentTools& mine = *tools[worker];
    job.prepared = format_.prepareContent(*job.source, mine, job.content);
    if (!job.prepared) job.prepareError = errno;
    // Content held in memory or a spill file no longer needs its source:
    // files waiting their turn hold no descriptor.
    if (job.content.kind != EntryContent::Kind::kStreamed) job.fd.reset();
    if (job.cost > kKeepToolsBelow) mine.release();
  };

  bool ok = true;
  {
    // The caller's thread is one of the threads: while its next file is not
    // ready it prepares others, but only those whose memory is free now, as
    // it alone gives memory back.
    Workers<AheadJob> workers(threads_ - 1, prepare);
    const auto canPrepareHere = [&](AheadJob& job) {
      return job.granted = budget.tryAcquire(job.ticket, job.cost);
    };
    // Memory held by a job goes back once its step has run.
    const auto finish = [&](size_t i) {
      if (jobs[i] && jobs[i]->granted) budget.release(jobs[i]->cost, total);
      jobs[i].reset();
    };
    const size_t window = threads_ * kAheadPerThread;
    size_t next = 0, ticket = 0, inFlight = 0;
    for (size_t i = 0; i < steps.size(); ++i) {
      for (; next < steps.size() && inFlight < window; ++next) {
        struct stat st;
        if (files[next].empty() || lstat(files[next].c_str(), &st) != 0 || !S_ISREG(st.st_mode))
          continue;
        auto job = std::make_unique<AheadJob>();
        job->path = files[next];
        job->ticket = ticket++;
        job->cost = format_.memoryFor(static_cast<uint64_t>(st.st_size), tools_.level);
        workers.submit(*job);
        jobs[next] = std::move(job);
        ++inFlight;
      }
      if (jobs[i]) {
        workers.helpUntil(*jobs[i], threads_ - 1, canPrepareHere);
        --inFlight;
        ahead_ = jobs[i].get();
      }
      ok = steps[i]();
      ahead_ = nullptr;
      finish(i);
      if (!ok) break;
    }
    // Content prepared ahead of a failure or an abort is dropped.
    cancelled = true;
    budget.wake();
  }
  return ok;
}

ZipWriter::AheadJob* ZipWriter::takeAhead(const char* source) {
  AheadJob* job = ahead_;
  if (job == nullptr || job->path != source) return nullptr;
  ahead_ = nullptr;
  return job;
}

// Called by addFile once the file's start was reported and its type checked.
bool ZipWriter::addPreparedAhead(AheadJob& job, const char* storedName, const zip_fileinfo& zi,
                                 const std::string& times, const char* reportedName,
                                 const char* sourcePath) {
  if (job.openError != 0) return fail(failureText("cannot read", sourcePath, job.openError));
  if (!S_ISREG(job.type)) return fail(notRegular(sourcePath, job.type));
  if (!job.prepared) return failPrepare(*job.source, job.content, sourcePath, job.prepareError);
  return writeContent(storedName, zi, times, job.content, reportedName, sourcePath);
}

}  // namespace velzip
