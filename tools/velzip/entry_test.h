// Decoding and checking entries without writing anything, through the
// reader of the archive's format, on one thread or several.
#ifndef VELZIP_TOOL_ENTRY_TEST_H
#define VELZIP_TOOL_ENTRY_TEST_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace velzip_tool {

struct EntryToTest {
  size_t index = 0;    // in archive order
  uint64_t bytes = 0;  // what it restores, for progress
};

struct EntryVerdict {
  bool tested = false;  // false when stopped before its turn
  bool ok = false;
  std::string why;
};

// Called on the caller's thread as entries finish, with the counts so far;
// false stops the remaining ones.
using TestTick = std::function<bool(uint64_t entries, uint64_t bytes)>;

// A verdict per entry of `entries`, in the same order. With threads > 1
// each thread has a reader of its own.
std::vector<EntryVerdict> testEntries(const std::string& archive, int format, const char* password,
                                      const std::vector<EntryToTest>& entries, unsigned threads,
                                      const TestTick& tick);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_ENTRY_TEST_H
