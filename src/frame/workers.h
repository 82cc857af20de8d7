// A few worker threads that run jobs in the order they were handed over,
// for one operation: the readers decode files ahead, the writers compress
// them ahead, while the caller's thread keeps the archive's order. The
// threads end with the object.
#ifndef VELZIP_FRAME_WORKERS_H
#define VELZIP_FRAME_WORKERS_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace velzip {

// Job needs a `bool done` that only Workers touches. run gets the job and
// the number of the worker (0 to threads - 1) running it.
template <class Job>
class Workers {
 public:
  Workers(unsigned threads, std::function<void(Job&, unsigned)> run) : run_(std::move(run)) {
    for (unsigned i = 0; i < threads; ++i) threads_.emplace_back([this, i] { loop(i); });
  }
  // Jobs not yet started are dropped; those running are expected to stop soon.
  ~Workers() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopping_ = true;
      queue_.clear();
    }
    wake_.notify_all();
    for (std::thread& t : threads_) t.join();
  }
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  void submit(Job& job) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      queue_.push_back(&job);
    }
    wake_.notify_one();
  }
  // Waits for job, running queued jobs on the calling thread meanwhile (as
  // worker number `self`): the caller works instead of sleeping. canRun
  // (called under the lock) may refuse the next queued job, e.g. one that
  // would wait for something only the caller can free.
  template <class CanRun>
  void helpUntil(const Job& job, unsigned self, CanRun canRun) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!job.done && !queue_.empty() && canRun(*queue_.front())) {
      Job* next = queue_.front();
      queue_.pop_front();
      lock.unlock();
      run_(*next, self);
      lock.lock();
      next->done = true;
    }
    done_.wait(lock, [&] { return job.done; });
  }

 private:
  void loop(unsigned worker) {
    for (;;) {
      Job* job = nullptr;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        wake_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
        if (queue_.empty()) return;
        job = queue_.front();
        queue_.pop_front();
      }
      run_(*job, worker);
      {
        std::lock_guard<std::mutex> lock(mutex_);
        job->done = true;
      }
      done_.notify_all();
    }
  }

  std::function<void(Job&, unsigned)> run_;
  std::mutex mutex_;
  std::condition_variable wake_, done_;
  std::deque<Job*> queue_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace velzip

#endif  // VELZIP_FRAME_WORKERS_H
