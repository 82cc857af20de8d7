// velzip extract and list on archives that used to come out wrong: over an
// earlier result, with set-id bits, with a size text past 64 bits.
#include "support/zip_craft.h"
#include "tool/tool_run.h"

using namespace velzip_test;

TEST(ToolExtract, OverAnEarlierResultAndWithItsReasonsOnFailure) {
  TempDir t;
  makeTree(t / "src");
  for (const char* format : {"0", "1"}) {
    SCOPED_TRACE(format);
    const std::string archive = t / (std::string("a") + format + ".zip");
    const std::string out = t / (std::string("out") + format);
    ASSERT_EQ(run({"compress", "-f", format, t / "src", archive}).status, 0);
    ASSERT_EQ(run({"extract", archive, out}).status, 0);
    const std::string tree = out + (format[0] == '0' ? "/src" : "");
    // Edits an installer would undo by extracting again.
    writeFile(tree + "/text.txt", "edited");
    ASSERT_EQ(unlink((tree + "/link-file").c_str()), 0);
    writeFile(tree + "/link-file", "a file where a link was");
    const Result again = run({"extract", "-o", archive, out});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(describe(tree, format[0] == '1'), describe(t / "src", format[0] == '1'));
  }

  // A damaged entry: the tool says which and why, and the old file stays.
  const std::string bad = t / "bad.zip";
  CraftEntry entry = deflatedEntry("text.txt", "new content");
  entry.crc ^= 0x10;
  writeFile(bad, craftZip({entry}));
  const std::string dest = t / "out0/src";
  const Result r = run({"extract", "-o", bad, dest});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, dest + "/text.txt: CRC-32 mismatch")) << r.err;
  EXPECT_EQ(readFile(dest + "/text.txt"), readFile(t / "src/text.txt"));
}

TEST(ToolExtract, SetIdBitsOnlyWithKeepSetid) {
  TempDir t;
  CraftEntry tool = storedEntry("tool", "#!/bin/sh\n");
  tool.external = 0106755u << 16;
  writeFile(t / "id.zip", craftZip({tool}));
  ASSERT_EQ(run({"extract", t / "id.zip", t / "plain"}).status, 0);
  ASSERT_EQ(run({"extract", "--keep-setid", t / "id.zip", t / "kept"}).status, 0);
  struct stat st;
  ASSERT_EQ(lstat((t / "plain/tool").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0755u);
  ASSERT_EQ(lstat((t / "kept/tool").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 06755u);
  EXPECT_EQ(run({"list", "--keep-setid", t / "id.zip"}).status, 2);
}

TEST(ToolExtract, SizeTextsPastSixtyFourBitsAreNotWrapped) {
  TempDir t;
  CraftEntry huge = storedEntry("huge", std::string("\x18\x00", 2));
  huge.localExtra = std::string("99999999999999999999") + '\0';
  CraftEntry fine = storedEntry("fine", std::string("\x18\x00", 2));
  fine.localExtra = std::string("0") + '\0';
  writeFile(t / "n.zip", craftZip({fine, huge}));
  const Result list = run({"list", t / "n.zip"});
  EXPECT_EQ(list.status, 0);
  EXPECT_FALSE(contains(list.out, "3875820019684212735")) << "2^64 wrapped: " << list.out;
  EXPECT_TRUE(contains(list.out, "format 0")) << "not a valid size text, so not format 1";
  const Result x = run({"extract", "-f", "1", t / "n.zip", t / "out"});
  EXPECT_EQ(x.status, 1);
  EXPECT_TRUE(contains(x.err, "huge: the size text is not a number")) << x.err;
  EXPECT_FALSE(exists(t / "out/huge"));
}
