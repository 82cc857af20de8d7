// Format 0's fast path: a file that fits in memory is read whole and
// deflated in one call by libdeflate, several times faster than zlib's
// streaming deflate at the same level. Larger files stream through zlib.
#ifndef VELZIP_ZIP_WHOLE_DEFLATER_H
#define VELZIP_ZIP_WHOLE_DEFLATER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zip/entry_source.h"

struct libdeflate_compressor;

namespace velzip {

class WholeDeflater {
 public:
  // The largest file deflated in memory: its bytes and its deflated bytes
  // are held at once.
  static constexpr uint64_t kMaxSize = uint64_t{64} << 20;

  WholeDeflater() = default;
  ~WholeDeflater();
  WholeDeflater(const WholeDeflater&) = delete;
  WholeDeflater& operator=(const WholeDeflater&) = delete;

  // Reads source to its end and deflates it at level (1 to 9, zlib's scale)
  // into out, with its CRC-32 and size. False on a read error (source says
  // why) or when the file grew past twice kMaxSize while being read.
  bool deflate(EntrySource& source, int level, std::vector<uint8_t>& out, uint32_t& crc,
               uint64_t& size);
  void release();

 private:
  libdeflate_compressor* compressor_ = nullptr;
  int level_ = 0;
  std::vector<uint8_t> input_;
};

}  // namespace velzip

#endif  // VELZIP_ZIP_WHOLE_DEFLATER_H
