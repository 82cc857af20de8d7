// Records every progress report made through a ZLibCallback and answers
// each with a chosen action.
#ifndef VELZIP_TESTS_SUPPORT_PROGRESS_RECORDER_H
#define VELZIP_TESTS_SUPPORT_PROGRESS_RECORDER_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "velzip/callbacks.h"

namespace velzip_test {

struct ProgressReport {
  int state;
  uint32_t bytes;
  std::string entry, path;
  bool isDirectory, hadEntry;  // hadEntry: entryName was not null
};

struct ProgressRecorder {
  std::vector<ProgressReport> reports;
  std::function<int(const ProgressReport&)> answer;  // none: continue

  static ZLibCallbackAction callback(ZLibCBData* d) {
    auto* self = static_cast<ProgressRecorder*>(d->userData);
    self->reports.push_back({d->state, d->bytes, d->entryName ? d->entryName : "",
                             d->filePath ? d->filePath : "", d->isDirectory,
                             d->entryName != nullptr});
    return static_cast<ZLibCallbackAction>(self->answer ? self->answer(self->reports.back()) : 0);
  }
  // The states in order, a run of data reports written once: "3123".
  std::string states() const {
    std::string s;
    for (const auto& r : reports)
      if (r.state != kZLibStateEntryData || s.empty() || s.back() != '2') s += char('0' + r.state);
    return s;
  }
  // Data bytes reported per entry, by the start report before them.
  std::map<std::string, uint64_t> dataBytes() const {
    std::map<std::string, uint64_t> bytes;
    std::string current;
    for (const auto& r : reports) {
      if (r.state == kZLibStateEntryStart) current = r.entry;
      if (r.state == kZLibStateEntryData) bytes[current] += r.bytes;
    }
    return bytes;
  }
};

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_PROGRESS_RECORDER_H
