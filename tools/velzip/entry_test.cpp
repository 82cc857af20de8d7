#include "entry_test.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "velzip/UnzipHandler.h"
#include "velzip/VelUnzipHandler.h"

namespace velzip_tool {
namespace {

constexpr auto kTickEvery = std::chrono::milliseconds(100);

// What the threads share; verdicts are each written by one thread only.
struct Shared {
  Shared(const std::vector<EntryToTest>& e, std::vector<EntryVerdict>& v)
      : entries(e), verdicts(v) {}
  const std::vector<EntryToTest>& entries;
  std::vector<EntryVerdict>& verdicts;
  std::atomic<size_t> next{0};
  std::atomic<bool> stop{false};
  std::mutex mutex;
  std::condition_variable changed;
  uint64_t doneEntries = 0, doneBytes = 0;  // under mutex
  unsigned running = 0;                     // under mutex
};

template <class Reader>
void testOne(Reader& reader, const EntryToTest& entry, EntryVerdict& verdict) {
  verdict.tested = true;
  if (!reader.gotoFile(static_cast<int>(entry.index))) {
    verdict.why = "cannot find the entry";
    return;
  }
  verdict.ok = reader.testFile(verdict.why);
}

template <class Reader>
void worker(const std::string& archive, const char* password, Shared& shared) {
  Reader reader(archive.c_str());
  reader.setUnzipPassword(password);
  for (size_t i; !shared.stop && (i = shared.next++) < shared.entries.size();) {
    testOne(reader, shared.entries[i], shared.verdicts[i]);
    std::lock_guard<std::mutex> lock(shared.mutex);
    ++shared.doneEntries;
    shared.doneBytes += shared.entries[i].bytes;
    shared.changed.notify_all();
  }
  std::lock_guard<std::mutex> lock(shared.mutex);
  --shared.running;
  shared.changed.notify_all();
}

template <class Reader>
void testOnThisThread(const std::string& archive, const char* password,
                      const std::vector<EntryToTest>& entries, std::vector<EntryVerdict>& verdicts,
                      const TestTick& tick) {
  Reader reader(archive.c_str());
  reader.setUnzipPassword(password);
  uint64_t bytes = 0;
  for (size_t i = 0; i < entries.size(); ++i) {
    testOne(reader, entries[i], verdicts[i]);
    bytes += entries[i].bytes;
    if (!tick(i + 1, bytes)) break;
  }
}

template <class Reader>
void testOnThreads(const std::string& archive, const char* password, unsigned threads,
                   Shared& shared, const TestTick& tick) {
  std::vector<std::thread> pool;
  shared.running = threads;
  for (unsigned t = 0; t < threads; ++t) {
    pool.emplace_back(worker<Reader>, std::cref(archive), password, std::ref(shared));
  }
  for (bool finished = false; !finished;) {
    uint64_t entries = 0, bytes = 0;
    {
      std::unique_lock<std::mutex> lock(shared.mutex);
      shared.changed.wait_for(lock, kTickEvery);
      entries = shared.doneEntries;
      bytes = shared.doneBytes;
      finished = shared.running == 0;
    }
    // Outside the lock: drawing the bar must not hold up the workers.
    if (!tick(entries, bytes)) shared.stop = true;
  }
  for (auto& t : pool) t.join();
}

}  // namespace

std::vector<EntryVerdict> testEntries(const std::string& archive, int format, const char* password,
                                      const std::vector<EntryToTest>& entries, unsigned threads,
                                      const TestTick& tick) {
  std::vector<EntryVerdict> verdicts(entries.size());
  if (threads > entries.size()) threads = static_cast<unsigned>(entries.size());
  if (threads <= 1) {
    if (format == 1) {
      testOnThisThread<Vel::VelUnzipHandler>(archive, password, entries, verdicts, tick);
    } else {
      testOnThisThread<UnzipHandler>(archive, password, entries, verdicts, tick);
    }
    return verdicts;
  }
  Shared shared(entries, verdicts);
  if (format == 1) {
    testOnThreads<Vel::VelUnzipHandler>(archive, password, threads, shared, tick);
  } else {
    testOnThreads<UnzipHandler>(archive, password, threads, shared, tick);
  }
  return verdicts;
}

}  // namespace velzip_tool
