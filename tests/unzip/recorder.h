// Records every progress report of a reader and answers with a chosen action.
#ifndef VELZIP_TESTS_UNZIP_RECORDER_H
#define VELZIP_TESTS_UNZIP_RECORDER_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "velzip/callbacks.h"

namespace velzip_test {

struct Report {
  int state;
  uint32_t bytes;
  std::string entry, path;
  bool isDirectory;
  bool hadEntry;  // entryName was non-null
};

struct Recorder {
  std::vector<Report> reports;
  std::function<int(const Report&)> answer;

  static ZLibCallbackAction callback(ZLibCBData* d) {
    auto* self = static_cast<Recorder*>(d->userData);
    Report r{d->state,
             d->bytes,
             d->entryName != nullptr ? d->entryName : "",
             d->filePath != nullptr ? d->filePath : "",
             d->isDirectory,
             d->entryName != nullptr};
    self->reports.push_back(r);
    return static_cast<ZLibCallbackAction>(self->answer ? self->answer(r) : 0);
  }
  std::string states() const {
    std::string s;
    for (const auto& r : reports) s += static_cast<char>('0' + r.state);
    return s;
  }
};

}  // namespace velzip_test

#endif  // VELZIP_TESTS_UNZIP_RECORDER_H
