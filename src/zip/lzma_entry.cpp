// Format 1: each regular file is encoded into a payload first, held in
// memory up to a cap and beyond it in an unnamed file beside the archive,
// and the payload is then stored (method 0) with the restored size as text
// in the local extra field. One buffer and one encoder serve every entry of
// an operation.
#include <algorithm>
#include <cstdint>
#include <string>

#include "lzma/entry_layout.h"
#include "lzma/lzma2_codec.h"
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

// The encoder's own estimate, doubled: measured, a large file's encode
// takes about twice what liblzma announces.
uint64_t encoderMemory(uint64_t size, int level) {
  lzma_options_lzma opt = encoderOptions(workingDictSize(size), level);
  lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &opt}, {LZMA_VLI_UNKNOWN, nullptr}};
  const uint64_t encoder = lzma_raw_encoder_memusage(filters);
  return 2 * encoder + std::min<uint64_t>(size, PayloadBuffer::kDefaultMemoryCap) + (1u << 20);
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
    encoderMemory,    // memoryFor
};

}  // namespace

const WriterFormat& lzmaWriterFormat() {
  return kLzmaFormat;
}

}  // namespace velzip
