// -0 ... -9 trade time for size; -j N changes neither the archive nor
// what comes out of it.
#include "support/probe.h"
#include "tool/tool_run.h"

using namespace velzip_test;

namespace {

// Text with long repeats at a distance: what higher levels find.
void makeCompressible(const std::string& root) {
  makeTree(root);
  std::string text;
  for (int i = 0; i < 4000; ++i) {
    text += "line " + std::to_string(i * 7919 % 1000) + " of a text with repeats\n";
  }
  for (int i = 0; i < 6; ++i) writeFile(root + "/doc" + std::to_string(i) + ".txt", text + text);
}

std::string compressed(const TempDir& t, const std::string& name,
                       const std::vector<std::string>& options) {
  std::vector<std::string> args{"compress", "-q"};
  args.insert(args.end(), options.begin(), options.end());
  args.push_back(t / "tree");
  args.push_back(t / name);
  const Result r = run(args);
  EXPECT_EQ(r.status, 0) << r.err;
  return readFile(t / name);
}

}  // namespace

TEST(ToolLevels, NineIsSmallerThanZeroAndTheDefaultsAreSixAndFive) {
  TempDir t;
  makeCompressible(t / "tree");
  const struct {
    const char* format;
    const char* usual;  // the level the default equals
  } formats[] = {{"0", "-6"}, {"1", "-5"}};
  for (const auto& f : formats) {
    SCOPED_TRACE(f.format);
    const std::string fastest = compressed(t, "l0", {"-f", f.format, "-0"});
    const std::string smallest = compressed(t, "l9", {"-f", f.format, "-9"});
    EXPECT_LT(smallest.size(), fastest.size());
    EXPECT_EQ(compressed(t, "usual", {"-f", f.format}),
              compressed(t, "given", {"-f", f.format, f.usual}));
    for (const char* level : {"0", "9"}) {
      const std::string out = t / (std::string("out") + f.format + level);
      ASSERT_EQ(run({"extract", "-q", t / (std::string("l") + level), out}).status, 0);
      const std::string root = out + (f.format[0] == '0' ? "/tree" : "");
      EXPECT_EQ(describe(root, false), describe(t / "tree", false)) << level;
    }
  }
  // Format 0 at -0 stores file contents and link targets, as any zip tool sees.
  ASSERT_EQ(symlink("text.txt", (t / "tree/link").c_str()), 0);
  compressed(t, "stored.zip", {"-f", "0", "-0"});
  for (const char* file : {"text.txt", "doc0.txt", "link"}) {
    EXPECT_EQ(
        runQuietly("unzip -v " + t / "stored.zip" + " | grep -q 'Stored.*tree/" + file + "$'"), 0)
        << file;
  }
  EXPECT_EQ(runQuietly("unzip -tq " + t / "stored.zip"), 0);
}

TEST(ToolThreads, OneAndTwoThreadsGiveTheSameArchiveAndTree) {
  TempDir t;
  makeCompressible(t / "tree");
  for (const char* format : {"0", "1"}) {
    SCOPED_TRACE(format);
    const std::string one = compressed(t, "one", {"-f", format, "-j", "1"});
    EXPECT_TRUE(one == compressed(t, "two", {"-f", format, "-j", "2"}));
    EXPECT_TRUE(one == compressed(t, "three", {"-f", format, "--threads=3"}));
    std::string trees[2];
    for (const char* threads : {"1", "2"}) {
      const std::string out = t / (std::string("x") + format + threads);
      const Result r = run({"extract", "-j", threads, t / "one", out});
      ASSERT_EQ(r.status, 0) << r.err;
      trees[threads[0] == '2'] = describe(out);
      const Result tested = run({"test", "-j", threads, t / "one"});
      EXPECT_EQ(tested.status, 0) << tested.err;
    }
    EXPECT_EQ(trees[0], trees[1]);
  }
}

TEST(ToolLevels, UsageErrors) {
  for (const char* args :
       {"extract -9 a.zip", "list -1 a.zip", "compress -j 0 a b.zip", "compress -j many a b.zip",
        "compress -j", "extract --threads=-2 a.zip", "compress -j 99999 a b.zip", "gzip -j 2 f"}) {
    const Result r = run(split(args, false));
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_TRUE(contains(r.err, "Try 'velzip --help'")) << args << ": " << r.err;
  }
}
