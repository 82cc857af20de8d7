#include "unzip/lzma_content.h"

#include <sys/mman.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "frame/handles.h"
#include "velzip/StringUtils.h"
#include "velzip/VelLzmaHelper.h"

namespace velzip {
namespace {

constexpr unsigned long kSlack = 65536;
constexpr unsigned kReadChunk = 65536;
constexpr size_t kHugePage = 2u << 20;

// The buffer an entry is decoded into. Large ones are mapped on huge-page
// boundaries: a fresh buffer is written once from end to end, and faulting
// it in 4 KiB pages costs about a tenth of the decoding time.
class DecodeBuffer {
 public:
  explicit DecodeBuffer(unsigned long size) {
    if (size < 2 * kHugePage) {
      heap_.reset(static_cast<char*>(std::malloc(size)));
      data_ = heap_.get();
      return;
    }
    if (size > SIZE_MAX - kHugePage) return;
    mappedSize_ = size + kHugePage;
    void* map =
        mmap(nullptr, mappedSize_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (map == MAP_FAILED) return;
    mapped_ = static_cast<char*>(map);
    const uintptr_t aligned =
        (reinterpret_cast<uintptr_t>(mapped_) + kHugePage - 1) & ~(uintptr_t{kHugePage} - 1);
    data_ = reinterpret_cast<char*>(aligned);
    madvise(data_, size, MADV_HUGEPAGE);  // only a hint
  }
  ~DecodeBuffer() {
    if (mapped_ != nullptr) munmap(mapped_, mappedSize_);
  }
  DecodeBuffer(const DecodeBuffer&) = delete;
  DecodeBuffer& operator=(const DecodeBuffer&) = delete;

  char* get() const { return data_; }

 private:
  UniqueBuffer heap_;
  char* mapped_ = nullptr;
  size_t mappedSize_ = 0;
  char* data_ = nullptr;
};

}  // namespace

ContentOutcome writeLzmaContent(ReaderCore& core, FILE* out, const char* path) {
  unzFile zip = core.zip();
  const int extraLen = unzGetLocalExtrafield(zip, nullptr, 0);
  if (extraLen < 1) {
    core.log(kLogLevelError, "Failed to get extra local size for file %s", path);
    return {false, 0};
  }
  std::vector<char> extra(static_cast<size_t>(extraLen) + 1, '\0');
  unzGetLocalExtrafield(zip, extra.data(), static_cast<unsigned>(extraLen));
  extra[static_cast<size_t>(extraLen)] = '\0';
  const long long size = StringUtils::UTF8ToLong(std::string(extra.data()), nullptr);

  // The size comes from the archive: one that cannot be allocated fails the
  // entry like any other bad payload.
  if (size < 0 || static_cast<unsigned long long>(size) > ULONG_MAX - kSlack) return {false, 0};
  const unsigned long capacity = static_cast<unsigned long>(size) + kSlack;
  DecodeBuffer buffer(capacity);
  if (buffer.get() == nullptr) return {false, 0};

  char props = 0;
  if (core.readEntry(&props, 1) != 1) return {false, 0};
  Vel::VelLzmaHelper decoder;
  if (!decoder.initDecoder(&props, buffer.get(), capacity)) return {false, 0};

  std::vector<char> chunk(kReadChunk);
  unsigned long produced = 0;
  unsigned long reported = 0;
  int error = 0;
  for (;;) {
    const int got = core.readEntry(chunk.data(), kReadChunk);
    if (got == 0) {
      // A stream cut short decodes without complaint; only the size tells.
      if (produced != static_cast<unsigned long>(size)) {
        error = kDecodeError;
      } else if (produced > 0 && std::fwrite(buffer.get(), produced, 1, out) != 1) {
        error = -1;
      }
      break;
    }
    if (got < 0) {
      error = got;
      break;
    }
    if (decoder.decodeLZMA2(chunk.data(), static_cast<unsigned long>(got), capacity, produced) !=
        0) {
      error = kDecodeError;
      break;
    }
    const unsigned long grown = produced - reported;
    reported = produced;
    if (core.reportData(grown > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(grown)) !=
        kZLibContinue) {
      error = -1;
      break;
    }
  }
  decoder.exitDecoder();
  return {true, error};
}

}  // namespace velzip
