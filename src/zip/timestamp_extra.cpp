#include "zip/timestamp_extra.h"

#include <cstdint>
#include <limits>

namespace velzip {
namespace {

constexpr uint16_t kTag = 0x5455;
constexpr uint16_t kDataSize = 5;
constexpr uint8_t kModificationTime = 1;

void putLittleEndian(std::string& out, uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

}  // namespace

std::string modificationTimeExtra(time_t mtime) {
  if (mtime < std::numeric_limits<int32_t>::min() || mtime > std::numeric_limits<int32_t>::max())
    return {};
  std::string block;
  putLittleEndian(block, kTag, 2);
  putLittleEndian(block, kDataSize, 2);
  block.push_back(static_cast<char>(kModificationTime));
  putLittleEndian(block, static_cast<uint32_t>(static_cast<int32_t>(mtime)), 4);
  return block;
}

}  // namespace velzip
