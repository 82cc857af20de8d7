// Writes a few well-formed companions as the fuzzer's starting corpus.
#include <string>
#include <vector>

#include "platform/apple_double.h"
#include "save_seed.h"
#include "support/apple_double_bytes.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::string dir = argv[1];
  std::vector<uint8_t> bytes;
  bool ok = save(dir + "/mac-shaped", velzip_test::macShapedCompanion());

  velzip::AppleDoubleContents c;
  ok = velzip::appleDoubleBuild(c, bytes) && save(dir + "/empty", bytes) && ok;
  c.finderInfo[0] = 'T';
  for (size_t len = 1; len <= 6; ++len) {
    c.attributes.push_back({std::string(len, static_cast<char>('a' + len)),
                            std::vector<uint8_t>(len * 5, static_cast<uint8_t>(len)),
                            static_cast<uint16_t>(len)});
  }
  c.resourceFork = velzip_test::emptyResourceMap();
  ok = velzip::appleDoubleBuild(c, bytes) && save(dir + "/attributes", bytes) && ok;
  return ok ? 0 : 1;
}
