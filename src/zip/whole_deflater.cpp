#include "zip/whole_deflater.h"

#include <libdeflate.h>

#include <algorithm>
#include <cerrno>

namespace velzip {

WholeDeflater::~WholeDeflater() {
  release();
}

void WholeDeflater::release() {
  if (compressor_ != nullptr) libdeflate_free_compressor(compressor_);
  compressor_ = nullptr;
  std::vector<uint8_t>().swap(input_);
}

bool WholeDeflater::deflate(EntrySource& source, int level, std::vector<uint8_t>& out,
                            uint32_t& crc, uint64_t& size) {
  // One byte more than announced tells a file that grew.
  size_t have = 0;
  input_.resize(static_cast<size_t>(std::min<uint64_t>(source.size(), kMaxSize)) + 1);
  for (;;) {
    if (have == input_.size()) {
      if (input_.size() > 2 * kMaxSize) {
        errno = EFBIG;
        return false;
      }
      input_.resize(input_.size() * 2);
    }
    const ssize_t n = source.read(input_.data() + have, input_.size() - have);
    if (n < 0) return false;
    if (n == 0) break;
    have += static_cast<size_t>(n);
  }
  if (compressor_ == nullptr || level != level_) {
    if (compressor_ != nullptr) libdeflate_free_compressor(compressor_);
    compressor_ = libdeflate_alloc_compressor(level);
    level_ = level;
    if (compressor_ == nullptr) {
      errno = ENOMEM;
      return false;
    }
  }
  out.resize(libdeflate_deflate_compress_bound(compressor_, have));
  const size_t made =
      libdeflate_deflate_compress(compressor_, input_.data(), have, out.data(), out.size());
  out.resize(made);
  crc = libdeflate_crc32(0, input_.data(), have);
  size = have;
  return made > 0 || have == 0;
}

}  // namespace velzip
