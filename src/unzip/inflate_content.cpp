#include "unzip/inflate_content.h"

#include <memory>

namespace velzip {
namespace {

constexpr unsigned kReadChunk = 65536;

}  // namespace

ContentOutcome writeInflatedContent(ReaderCore& core, FILE* out, const char* /*path*/) {
  // On the heap: readers run on host threads with unknown stack sizes.
  const auto chunk = std::make_unique<char[]>(kReadChunk);
  for (;;) {
    const int got = core.readEntry(chunk.get(), kReadChunk);
    if (got <= 0) return {true, got};
    if (std::fwrite(chunk.get(), static_cast<size_t>(got), 1, out) != 1) return {true, -1};
    if (core.reportData(static_cast<uint32_t>(got)) != kZLibContinue) return {true, -1};
  }
}

}  // namespace velzip
