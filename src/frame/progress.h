// The progress record and callback every writer and reader embeds.
#ifndef VELZIP_FRAME_PROGRESS_H
#define VELZIP_FRAME_PROGRESS_H

#include <cstdint>

#include "velzip/callbacks.h"

namespace velzip {

// Answers kZLibContinue to everything; a fresh writer or reader holds it.
ZLibCallbackAction defaultCallback(ZLibCBData* data);

class Progress {
 public:
  // A null fn keeps the current callback; userData is stored either way.
  void set(ZLibCallback fn, void* userData) {
    if (fn != nullptr) fn_ = fn;
    data_.userData = userData;
  }

  // Fills the record and calls the callback. The names are cleared again
  // after the call: they point into the caller's buffers.
  ZLibCallbackAction report(int32_t state, uint32_t bytes, const char* entryName,
                            const char* filePath, bool isDirectory = false) {
    data_.state = state;
    data_.bytes = bytes;
    data_.entryName = entryName;
    data_.filePath = filePath;
    data_.isDirectory = isDirectory;
    ZLibCallbackAction action = fn_(&data_);
    data_.entryName = nullptr;
    data_.filePath = nullptr;
    return action;
  }

  const ZLibCBData& data() const { return data_; }

 private:
  ZLibCBData data_{};
  ZLibCallback fn_ = defaultCallback;
};

}  // namespace velzip

#endif  // VELZIP_FRAME_PROGRESS_H
