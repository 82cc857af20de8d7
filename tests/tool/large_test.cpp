// The tool on archives past the 16- and 32-bit limits of the zip format:
// 70,000 entries, and a file of more than 4 GiB in both formats. Slow.
#include <algorithm>

#include "tool/tool_run.h"

using namespace velzip_test;

TEST(ToolLarge, SeventyThousandEntries) {
  TempDir t;
  const std::string src = t / "many";
  constexpr int kFolders = 70, kPerFolder = 1000;
  for (int d = 0; d < kFolders; ++d) {
    const std::string folder = src + "/d" + std::to_string(d);
    fs::create_directories(folder);
    for (int f = 0; f < kPerFolder; ++f) writeFile(folder + "/" + std::to_string(f), "x");
  }
  // Format 1 here; the writers' own tests take format 0 past 65,535 entries.
  for (const char* format : {"1"}) {
    SCOPED_TRACE(format);
    const std::string archive = t / (std::string("many") + format + ".zip");
    const std::string out = t / (std::string("out") + format);
    const Result c = run({"-q", "compress", "-f", format, src, archive});
    ASSERT_EQ(c.status, 0) << c.err;
    // Format 1 adds an entry per folder; files without attributes get no
    // companion.
    const unsigned long entries =
        format[0] == '0' ? 1ul * kFolders * kPerFolder : kFolders * (kPerFolder + 1ul);
    EXPECT_EQ(entryCount(archive), entries);
    const Result list = run({"list", archive});
    ASSERT_EQ(list.status, 0) << list.err;
    EXPECT_TRUE(contains(list.out, std::to_string(entries) + " entries")) << lastLine(list.out);
    const Result x = run({"-q", "extract", archive, out});
    ASSERT_EQ(x.status, 0) << x.err;
    const std::string root = out + (format[0] == '0' ? "/many" : "");
    size_t files = 0;
    for (const auto& e : fs::recursive_directory_iterator(root)) files += e.is_regular_file();
    EXPECT_EQ(files, static_cast<size_t>(kFolders * kPerFolder));
    fs::remove_all(out);
  }
}

TEST(ToolLarge, AFileOverFourGiBInBothFormats) {
  TempDir t;
  constexpr uint64_t kHuge = 4700000000ull;
  fs::create_directories(t / "big");
  writeFile(t / "big/zeros", "");
  ASSERT_EQ(truncate((t / "big/zeros").c_str(), static_cast<off_t>(kHuge)), 0);
  for (const char* format : {"1", "0"}) {
    SCOPED_TRACE(format);
    const std::string archive = t / (std::string("big") + format + ".zip");
    // The fastest level: what matters here is the size, not the ratio.
    const Result c = run({"-q", "compress", "-1", "-f", format, t / "big", archive});
    ASSERT_EQ(c.status, 0) << c.err;
    const Result list = run({"list", archive});
    EXPECT_TRUE(contains(list.out, std::string("format ") + format)) << list.out;
    EXPECT_TRUE(contains(list.out, std::to_string(kHuge))) << list.out;
    const std::string out = t / (std::string("out") + format);
    const Result x = run({"-q", "extract", archive, out});
    ASSERT_EQ(x.status, 0) << x.err;
    const std::string restored = out + (format[0] == '0' ? "/big/zeros" : "/zeros");
    FILE* f = std::fopen(restored.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    std::vector<char> buf(1 << 20);
    uint64_t total = 0;
    bool zero = true;
    for (size_t n; zero && (n = std::fread(buf.data(), 1, buf.size(), f)) > 0; total += n) {
      zero =
          std::all_of(buf.begin(), buf.begin() + static_cast<long>(n), [](char c) { return !c; });
    }
    std::fclose(f);
    EXPECT_TRUE(zero && total == kHuge) << total;
    fs::remove_all(out);
    unlink(archive.c_str());
  }
}
