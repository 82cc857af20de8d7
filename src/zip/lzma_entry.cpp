// Format 1: each regular file is encoded into a payload first, held in
// memory up to a cap and beyond it in an unnamed file beside the archive,
// and the payload is then stored (method 0) with the restored size as text
// in the local extra field. One buffer and one encoder serve every entry of
// an operation.
#include <cstdint>
#include <string>

#include "lzma/entry_layout.h"
#include "zip/zip_writer.h"

namespace velzip {
namespace {

constexpr uint64_t kZip64Threshold = 0xFFFFFFFFu;

bool encodePayload(EntrySource& source, ContentTools& tools, EntryContent& out) {
  PayloadBuffer& payload = out.payload;
  payload.clear();
  uint64_t size = 0;
  const bool encoded = tools.encoder.encode(
      source.size(), [&](uint8_t* buf, size_t n) { return source.read(buf, n); },
      [&](const uint8_t* buf, size_t n) { return payload.append(buf, n); }, &size, tools.level);
  if (!encoded) return false;
  // The size of what was encoded, so that text and payload always agree.
  out.kind = EntryContent::Kind::kPayload;
  out.method = 0;
  out.localExtra = sizeExtraField(size);
  out.zip64 = size >= kZip64Threshold || payload.size() >= kZip64Threshold;
  return true;
}

constexpr WriterFormat kLzmaFormat = {
    "VelzipHandler",  // logComponent
    0,                // method: stored
    0,                // level
    0,                // extraNameSkip: names keep the separator after the base
    true,             // subFolderEntries
    false,            // companionAfterEachFile: only on request
    false,            // localTimestamp: readers expect the size text alone there
    encodePayload,    // prepareContent
};

}  // namespace

const WriterFormat& lzmaWriterFormat() {
  return kLzmaFormat;
}

}  // namespace velzip
