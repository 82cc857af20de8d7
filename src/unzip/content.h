// How a regular entry's bytes become a file's content. This is where the two
// archive generations differ: format 0 takes the entry's bytes as they are,
// format 1 decodes them as an LZMA2 payload whose restored size is the text
// of the local extra field.
#ifndef VELZIP_UNZIP_CONTENT_H
#define VELZIP_UNZIP_CONTENT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "unzip/entry_stream.h"

namespace velzip {

// Where a content writer puts what it produces, and whom it tells.
class ContentTarget {
 public:
  virtual ~ContentTarget() = default;
  // Takes all size bytes; false with why set.
  virtual bool write(const uint8_t* data, size_t size, std::string& why) = 0;
  // One progress report of bytes produced; false when the callback said stop.
  virtual bool report(uint64_t bytes) = 0;
};

struct ContentOutcome {
  enum class Result {
    kOk,
    kNoSizeText,  // format 1 without its size text: nothing was read
    kNotStarted,  // failed before any data was handled
    kFailed,      // the data is damaged, or writing failed
    kAborted,     // the callback asked to stop
  };
  Result result = Result::kOk;
  std::string why;

  bool ok() const { return result == Result::kOk; }
  // The entry got as far as its data: its final report is due.
  bool reachedData() const {
    return result != Result::kNoSizeText && result != Result::kNotStarted;
  }
  static ContentOutcome failed(Result result, std::string why) { return {result, std::move(why)}; }
};

// Reads in (an open entry) to its checked end and writes the content to out.
using ContentWriter = ContentOutcome (*)(EntryStream& in, ContentTarget& out);

// Format 0: the entry's bytes, in chunks of up to 64 KiB.
ContentOutcome copyContent(EntryStream& in, ContentTarget& out);
// Format 1: the payload decoded in pieces; one report per 64 KiB of payload.
ContentOutcome decodeLzmaContent(EntryStream& in, ContentTarget& out);

// The restored size a format-1 local extra field announces: decimal digits up
// to the first NUL (or the field's end), nothing else, below 2^64. False for
// anything else, including an empty field.
bool parseSizeText(const std::string& extra, uint64_t& size);

}  // namespace velzip

#endif  // VELZIP_UNZIP_CONTENT_H
