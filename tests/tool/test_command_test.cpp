// velzip test: every entry decoded and checked through the reader of the
// archive's format, each bad one named, nothing written anywhere.
#include "support/probe.h"
#include "support/zip_craft.h"
#include "tool/tool_run.h"

using namespace velzip_test;

namespace {

// The bad-entry lines: every stderr line but the last.
std::vector<std::string> badLines(const Result& r) {
  auto lines = split(r.err, true);
  if (!lines.empty()) lines.pop_back();
  return lines;
}

}  // namespace

TEST(ToolTest, GoodArchivesPassAndADamagedEntryIsNamed) {
  TempDir t;
  makeTree(t / "tree");
  for (const char* format : {"1", "0"}) {
    const std::string good = t / (std::string("good") + format + ".zip");
    ASSERT_EQ(run({"compress", "-q", "-f", format, t / "tree", good}).status, 0);
    const std::string name = format[0] == '1' ? "text.txt" : "tree/text.txt";
    const std::string bad = t / (std::string("bad") + format + ".zip");
    fs::copy_file(good, bad);
    // The middle of the entry's data, which a checker must read to the end.
    flipByte(bad, static_cast<long long>(storedDataAt(bad, entryIndex(bad, name)) + 500), 0x20);
    const std::string entries = std::to_string(entryCount(good));
    const std::set<std::string> before = folderItems(t.path());
    for (const char* threads : {"1", "2"}) {
      SCOPED_TRACE(std::string("format ") + format + ", -j " + threads);
      const Result ok = run({"test", "-j", threads, good});
      EXPECT_EQ(ok.status, 0) << ok.err;
      EXPECT_TRUE(ok.err.empty()) << ok.err;
      EXPECT_EQ(ok.out.rfind(
                    "tested " + good + " (format " + format + "): " + entries + " entries OK, ", 0),
                0u)
          << ok.out;

      const Result r = run({"test", "-j", threads, bad});
      EXPECT_EQ(r.status, 1);
      EXPECT_TRUE(r.out.empty()) << r.out;
      const auto lines = badLines(r);
      ASSERT_EQ(lines.size(), 1u) << r.err;
      EXPECT_EQ(lines[0].rfind("velzip: " + bad + ": " + name + ": ", 0), 0u) << lines[0];
      EXPECT_EQ(lastLine(r.err),
                "velzip: " + bad + ": 1 of " + entries + " entries failed the test");
    }
    EXPECT_EQ(folderItems(t.path()), before) << "test writes nothing";
  }
  // -v names every good entry too; -q hides the summary, not the verdicts.
  const Result verbose = run({"-v", "test", t / "good1.zip"});
  EXPECT_TRUE(contains(verbose.out, "  testing: nested/a/b/deep.txt  OK\n")) << verbose.out;
  const Result quiet = run({"-q", "test", t / "bad1.zip"});
  EXPECT_TRUE(quiet.status == 1 && quiet.out.empty() && badLines(quiet).size() == 1) << quiet.err;
}

TEST(ToolTest, EntriesVelzipCannotReadAndPasswords) {
  TempDir t;
  CraftEntry ppmd = storedEntry("p.txt", "p");
  ppmd.method = 98;
  writeFile(t / "methods.zip", craftZip({storedEntry("fine.txt", "fine"), ppmd}));
  const Result r = run({"test", t / "methods.zip"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "velzip: " + t / "methods.zip" +
                       ": p.txt: unsupported compression method 98 (ppmd)\n"
                       "velzip: " +
                       t / "methods.zip" + ": 1 of 2 entries failed the test\n");

  makeTree(t / "tree");
  ASSERT_EQ(runQuietly("cd " + t.path() + " && zip -qry -P secret enc.zip tree"), 0);
  const Result none = run({"test", t / "enc.zip"});
  EXPECT_EQ(none.status, 1);
  EXPECT_TRUE(contains(none.err, "encrypted entries; give the password with -p")) << none.err;
  const Result right = run({"test", "-p", "secret", t / "enc.zip"});
  EXPECT_EQ(right.status, 0) << right.err;
  // A wrong password fails every encrypted entry but the folders, which
  // hold no data (and, rarely, an entry whose one-byte check passes).
  const Result wrong = run({"test", "-j", "1", "-p", "wrong", t / "enc.zip"});
  EXPECT_EQ(wrong.status, 1);
  EXPECT_GE(badLines(wrong).size(), 5u) << wrong.err;
  EXPECT_TRUE(contains(wrong.err, ": tree/bin.dat: ")) << wrong.err;
}

TEST(ToolTest, UsageErrors) {
  for (const char* args : {"test", "test a.zip b.zip", "test -o a.zip", "test -x '*' a.zip",
                           "test -j 0 a.zip", "test -f 2 a.zip", "test --json a.zip"}) {
    const Result r = run(split(args, false));
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_TRUE(contains(r.err, "Try 'velzip --help'")) << r.err;
  }
}
