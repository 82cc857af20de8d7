// Arbitrary bytes into the companion parser. Whatever it accepts must build
// again and parse back to the same contents.
#include <cstdlib>
#include <cstring>

#include "platform/apple_double.h"

namespace {

bool same(const velzip::AppleDoubleContents& a, const velzip::AppleDoubleContents& b) {
  if (std::memcmp(a.finderInfo, b.finderInfo, sizeof(a.finderInfo)) != 0 ||
      a.resourceFork != b.resourceFork || a.attributes.size() != b.attributes.size()) {
    return false;
  }
  for (size_t i = 0; i < a.attributes.size(); ++i) {
    const auto& x = a.attributes[i];
    const auto& y = b.attributes[i];
    if (x.name != y.name || x.value != y.value || x.flags != y.flags) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  velzip::AppleDoubleContents contents;
  if (!velzip::appleDoubleParse(data, size, contents)) return 0;
  velzip::appleDoubleIsEmptyResourceFork(contents.resourceFork);
  std::vector<uint8_t> rebuilt;
  if (!velzip::appleDoubleBuild(contents, rebuilt)) abort();
  velzip::AppleDoubleContents again;
  if (!velzip::appleDoubleParse(rebuilt.data(), rebuilt.size(), again)) abort();
  if (!same(contents, again)) abort();
  return 0;
}
