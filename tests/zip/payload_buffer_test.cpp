// A payload held in memory up to a cap and beyond it in an unnamed file:
// what goes in comes back in order, in exact blocks, wherever it was kept.
#include "zip/payload_buffer.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "frame/handles.h"
#include "support/probe.h"
#include "support/temp_dir.h"
#include "zip/writer_support.h"

using namespace velzip_test;
using velzip::PayloadBuffer;

namespace {

// Everything forEachBlock hands over, and the size of each block.
std::string collect(PayloadBuffer& buf, size_t block, std::vector<size_t>& sizes) {
  std::string out;
  const int rc = buf.forEachBlock(block, [&](const uint8_t* data, size_t n) {
    out.append(reinterpret_cast<const char*>(data), n);
    sizes.push_back(n);
    return 0;
  });
  EXPECT_EQ(0, rc);
  return out;
}

TEST(PayloadBuffer, GivesBackWhatWentInWhereverItWasKept) {
  TempDir tmp;
  velzip::UniqueFd folder(open(tmp.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  ASSERT_TRUE(folder.ok());
  const size_t fds = openDescriptors();
  const struct {
    size_t cap, size, piece, block;
  } cases[] = {
      {64, 0, 7, 16},      // nothing
      {64, 40, 7, 16},     // in memory
      {64, 64, 64, 16},    // exactly the cap
      {64, 65, 13, 16},    // one byte in the file
      {60, 1000, 7, 16},   // a block starts in memory and ends in the file
      {0, 100, 9, 32},     // all in the file
      {64, 5000, 999, 5},  // blocks smaller than a piece
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.cap) + " " + std::to_string(c.size));
    PayloadBuffer buf(c.cap);
    buf.setSpillFolder(folder.get());
    // A second, shorter payload in the same buffer: the first one's tail in
    // the reused file must not come back.
    for (const size_t size : {c.size, c.size / 2}) {
      const std::string data = noiseBytes(size, static_cast<unsigned>(size + c.cap));
      buf.clear();
      for (size_t at = 0; at < size; at += c.piece) {
        const size_t n = std::min(c.piece, size - at);
        ASSERT_TRUE(buf.append(reinterpret_cast<const uint8_t*>(data.data()) + at, n));
      }
      EXPECT_EQ(size, buf.size());
      EXPECT_EQ(size > c.cap, buf.spilled());
      std::vector<size_t> sizes;
      EXPECT_TRUE(collect(buf, c.block, sizes) == data);
      for (size_t i = 0; i + 1 < sizes.size(); ++i) EXPECT_EQ(c.block, sizes[i]);
      EXPECT_TRUE(sizes.empty() || (sizes.back() > 0 && sizes.back() <= c.block));
    }
    // The file has no name: the folder stays empty.
    EXPECT_TRUE(folderItems(tmp.path()).empty());
    // The first non-zero answer stops the hand-over and comes back.
    if (c.size / 2 > c.block) {
      int calls = 0;
      EXPECT_EQ(7, buf.forEachBlock(c.block,
                                    [&](const uint8_t*, size_t) { return ++calls == 2 ? 7 : 0; }));
      EXPECT_EQ(2, calls);
    }
    buf.release();
    EXPECT_EQ(0u, buf.size());
    EXPECT_EQ(fds, openDescriptors());
  }

  // Without a folder, what exceeds the cap has nowhere to go.
  PayloadBuffer nowhere(4);
  const uint8_t bytes[10] = {};
  EXPECT_TRUE(nowhere.append(bytes, 4));
  EXPECT_FALSE(nowhere.append(bytes, 1));
  EXPECT_EQ(EBADF, nowhere.error());
  EXPECT_FALSE(nowhere.append(bytes, 1));  // until it is cleared
  nowhere.clear();
  EXPECT_TRUE(nowhere.append(bytes, 4));
}

}  // namespace
