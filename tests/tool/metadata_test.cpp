// Extended attributes through the tool: by default a companion for each
// file that has "user." attributes and none for the others, in both
// formats; --no-xattrs on either side turns them off.
#include "support/probe.h"
#include "support/xattr.h"
#include "tool/tool_run.h"

using namespace velzip_test;

namespace {

std::set<std::string> companions(const std::string& archive) {
  std::set<std::string> out;
  for (const auto& n : entryNames(archive)) {
    if (n.rfind("__MACOSX/", 0) == 0) out.insert(n);
  }
  return out;
}

}  // namespace

TEST(ToolMetadata, CompanionsOnlyForFilesWithAttributesInBothFormats) {
  TempDir t;
  makeTree(t / "tree");
  const std::string binary("\0\x01\xff value", 9);
  if (!setAttr(t / "tree/text.txt", "user.colour", "blue") ||
      !setAttr(t / "tree/nested/a/b/deep.txt", "user.binary", binary)) {
    GTEST_SKIP() << "this file system refuses user extended attributes";
  }
  const Attributes text = userAttributes(t / "tree/text.txt");
  const Attributes deep = userAttributes(t / "tree/nested/a/b/deep.txt");
  const struct {
    const char* format;
    const char* prefix;  // of the names
  } formats[] = {{"1", ""}, {"0", "tree/"}};
  for (const auto& f : formats) {
    SCOPED_TRACE(f.format);
    const std::string p = f.prefix;
    const std::string archive = t / (std::string("m") + f.format + ".zip");
    ASSERT_EQ(run({"compress", "-q", "-f", f.format, t / "tree", archive}).status, 0);
    EXPECT_EQ(companions(archive), (std::set<std::string>{"__MACOSX/" + p + "nested/a/b/._deep.txt",
                                                          "__MACOSX/" + p + "._text.txt"}))
        << "one per file with attributes";
    const std::string out = t / (std::string("out") + f.format);
    ASSERT_EQ(run({"extract", "-q", archive, out}).status, 0);
    EXPECT_EQ(userAttributes(out + "/" + p + "text.txt"), text);
    EXPECT_EQ(userAttributes(out + "/" + p + "nested/a/b/deep.txt"), deep);
    EXPECT_TRUE(userAttributes(out + "/" + p + "bin.dat").empty());
    EXPECT_FALSE(exists(out + "/__MACOSX"));
    EXPECT_EQ(describe(out + "/" + p, f.format[0] == '1'),
              describe(t / "tree/", f.format[0] == '1'));

    // Off when packing, and when unpacking an archive that has them.
    const std::string bare = t / (std::string("bare") + f.format + ".zip");
    ASSERT_EQ(run({"compress", "-q", "--no-xattrs", "-f", f.format, t / "tree", bare}).status, 0);
    EXPECT_TRUE(companions(bare).empty());
    const std::string plain = t / (std::string("plain") + f.format);
    const Result r = run({"extract", "--no-xattrs", archive, plain});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(userAttributes(plain + "/" + p + "text.txt").empty());
    EXPECT_EQ(readFile(plain + "/" + p + "text.txt"), readFile(t / "tree/text.txt"));
    EXPECT_FALSE(exists(plain + "/__MACOSX"));
  }
  // Format 0 stays an archive every zip tool reads.
  EXPECT_EQ(runQuietly("unzip -tq " + t / "m0.zip"), 0);
}
