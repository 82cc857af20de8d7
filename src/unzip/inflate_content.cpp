#include <algorithm>
#include <memory>

#include "unzip/content.h"

namespace velzip {
namespace {

constexpr size_t kChunk = 65536;

}  // namespace

ContentOutcome copyContent(EntryStream& in, ContentTarget& out) {
  // On the heap: readers run on host threads with unknown stack sizes. No
  // larger than the entry: most are small.
  const size_t size = static_cast<size_t>(std::min<uint64_t>(kChunk, in.size() + 1));
  const auto chunk = std::make_unique<uint8_t[]>(size);
  using Result = ContentOutcome::Result;
  for (;;) {
    const ssize_t got = in.read(chunk.get(), size);
    if (got == 0) return {};
    if (got < 0) return ContentOutcome::failed(Result::kFailed, in.why());
    std::string why;
    if (!out.write(chunk.get(), static_cast<size_t>(got), why)) {
      return ContentOutcome::failed(Result::kFailed, why);
    }
    if (!out.report(static_cast<uint64_t>(got)))
      return ContentOutcome::failed(Result::kAborted, "");
  }
}

}  // namespace velzip
