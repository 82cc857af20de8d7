// A regular entry's stored content, prepared before its entry opens, and
// the tools a thread reuses to prepare one entry after another. The two
// archive generations differ here: format 1 encodes each file into an LZMA2
// payload; format 0 deflates a file in memory when it fits, else streams it
// through zlib while the entry is written.
#ifndef VELZIP_ZIP_ENTRY_CONTENT_H
#define VELZIP_ZIP_ENTRY_CONTENT_H

#include <cstdint>
#include <string>
#include <vector>

#include "lzma/payload_encoder.h"
#include "zip/entry_source.h"
#include "zip/payload_buffer.h"
#include "zip/whole_deflater.h"

namespace velzip {

struct ContentTools {
  int level = -1;          // the writer's compression level; -1 the format's usual
  PayloadEncoder encoder;  // format 1
  WholeDeflater deflater;  // format 0
  void release() {
    encoder.release();
    deflater.release();
  }
};

struct EntryContent {
  enum class Kind {
    kStreamed,  // source is read while the entry is written
    kPayload,   // payload holds the stored bytes (format 1)
    kDeflated,  // deflated holds the raw deflate data of sourceSize bytes with crc
  };
  Kind kind = Kind::kStreamed;
  EntrySource* source = nullptr;
  PayloadBuffer payload;
  std::vector<uint8_t> deflated;
  uint32_t crc = 0;
  uint64_t sourceSize = 0;
  int method = 0;          // zip method of the entry
  std::string localExtra;  // local extra field; empty for none
  bool zip64 = false;      // the source or the stored data reaches 4 GiB

  // Ready for the next entry; buffers are kept.
  void reset() {
    kind = Kind::kStreamed;
    source = nullptr;
    payload.clear();
    deflated.clear();
    crc = 0;
    sourceSize = 0;
    method = 0;
    localExtra.clear();
    zip64 = false;
  }
};

}  // namespace velzip

#endif  // VELZIP_ZIP_ENTRY_CONTENT_H
