#include "unzip/file_work.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "unzip/entry_attributes.h"
#include "unzip/entry_stream.h"
#include "unzip/zip_record.h"

namespace velzip {
namespace {

constexpr int kAttempts = 20;  // one try and 19 retries
constexpr useconds_t kRetryDelayUs = 100000;

class StagedTarget : public ContentTarget {
 public:
  StagedTarget(int fd, const DataReporter& report) : fd_(fd), report_(report) {}
  bool write(const uint8_t* data, size_t size, std::string& why) override {
    while (size > 0) {
      const ssize_t n = ::write(fd_, data, size);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        why = std::strerror(n < 0 ? errno : EIO);
        return false;
      }
      data += n;
      size -= static_cast<size_t>(n);
    }
    return true;
  }
  bool report(uint64_t bytes) override { return report_(bytes); }

 private:
  int fd_;
  const DataReporter& report_;
};

}  // namespace

void decodeFile(const ArchiveFile& archive, const char* password, ContentWriter writer,
                FileWork& work, const DataReporter& report,
                const std::function<void(int err)>& onRetry) {
  work.staged.discard();
  work.openWhy.clear();
  work.createError = work.createRetries = 0;
  work.outcome = ContentOutcome();
  work.finishWhy.clear();
  work.reports.clear();
  // Opened before anything is made: an entry velzip cannot read leaves no trace.
  EntryStream in;
  work.opened = in.open(archive, work.rec, password);
  if (!work.opened) {
    work.openWhy = in.why();
    return;
  }
  for (int attempt = 1; !work.staged.create(work.dir->get(), 0600); ++attempt) {
    const int err = errno;
    if (!isTransientError(err) || attempt == kAttempts) {
      work.createError = err;
      return;
    }
    ++work.createRetries;
    work.retryError = err;
    if (onRetry) onRetry(err);
    usleep(kRetryDelayUs);
  }
  StagedTarget target(work.staged.fd(), report);
  work.outcome = writer(in, target);
  if (!work.outcome.ok()) return;
  timespec ts[2];
  ts[0].tv_sec = 0;
  ts[0].tv_nsec = UTIME_OMIT;
  int64_t modTime = work.modTime;
  if (!work.modTimeFromCentral) extendedModTime(in.localExtra(), modTime);
  ts[1].tv_sec = static_cast<time_t>(modTime);
  ts[1].tv_nsec = 0;
  if (fchmod(work.staged.fd(), work.mode & 07777) != 0 || futimens(work.staged.fd(), ts) != 0) {
    work.finishWhy = std::strerror(errno);
  }
}

}  // namespace velzip
