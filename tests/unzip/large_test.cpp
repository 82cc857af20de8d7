// Entries of more than 4 GiB: zip64 sizes and offsets in format 0, a size
// text past 32 bits in format 1, each restored byte-exact while memory stays
// flat (the bench measures how flat). Slow: about a minute.
#include "unzip/fixtures.h"

using namespace velzip_test;

namespace {

constexpr uint64_t kHuge = 4700000000ull;

// True when path is exactly size zero bytes.
bool allZeros(const std::string& path, uint64_t size) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  std::vector<char> buf(1 << 20);
  uint64_t total = 0;
  bool zero = true;
  for (size_t n; zero && (n = std::fread(buf.data(), 1, buf.size(), f)) > 0; total += n) {
    zero = std::all_of(buf.begin(), buf.begin() + static_cast<long>(n), [](char c) { return !c; });
  }
  std::fclose(f);
  return zero && total == size;
}

}  // namespace

TEST(LargeEntries, OverFourGiBThroughBothFormats) {
  if (!haveTool("zip") || !haveTool("xz")) GTEST_SKIP() << "zip or xz missing";
  TempDir t;
  const std::string zeros = t / "zeros";
  ASSERT_EQ(truncate((writeFile(zeros, ""), zeros).c_str(), static_cast<off_t>(kHuge)), 0);

  // Format 0 by zip: zip64 sizes in both headers.
  ASSERT_EQ(runQuietly("cd '" + t.path() + "' && zip -q -1 big.zip zeros"), 0);
  {
    UnzipHandler r((t / "big.zip").c_str());
    UZ_FileInfo info;
    ASSERT_TRUE(r.getFileInfo(0, info));
    EXPECT_EQ(info.uncompressedSize, 0xFFFFFFFFu) << "too large for the host's 32 bits";
    EXPECT_EQ(r.getUnzipSize(), kHuge);
    ASSERT_TRUE(r.unzipTo((t / "out0").c_str(), false, kKeep));
  }
  EXPECT_TRUE(allZeros(t / "out0/zeros", kHuge));
  unlink((t / "out0/zeros").c_str());

  // Format 1: the restored size lives only in the size text.
  // A fast preset: any LZMA2 stream with the format's property byte decodes.
  ASSERT_EQ(runQuietly("(xz --format=raw --lzma2=preset=0,dict=16MiB -T1 -c '" + zeros + "' > '" +
                       t / "payload" + "')"),
            0);
  ZipBuilder(t / "big1.zip")
      .raw("zeros", std::string(1, '\x18') + readFile(t / "payload"), sizeField(kHuge), 0100644);
  LogCapture logs;
  ASSERT_TRUE(extract(1, t / "big1.zip", t / "out1"))
      << (logs.lines().empty() ? "" : logs.lines().back().text);
  EXPECT_TRUE(allZeros(t / "out1/zeros", kHuge));
}
