// -i and -x: fnmatch globs on entry names, a folder's glob covering what it
// holds, companions going with their files, on compress and extract alike.
#include <algorithm>

#include "support/probe.h"
#include "support/xattr.h"
#include "tool/tool_run.h"

using namespace velzip_test;

namespace {

// proj/ with sources, build output, a link, an empty folder; src/a.c has an
// attribute when the file system allows.
bool makeProject(const std::string& root) {
  const std::string script =
      "mkdir -p " + root + "/src/sub " + root + "/build/obj " + root + "/empty && cd " + root +
      " && echo a >src/a.c && echo b >src/b.h && echo c >src/sub/c.c && echo x >build/x.o" +
      " && echo y >build/obj/y.o && echo t >top.o && echo r >README && ln -s src link";
  EXPECT_EQ(system(script.c_str()), 0);
  return setAttr(root + "/src/a.c", "user.tag", "blue");
}

std::set<std::string> without(std::set<std::string> all, const std::set<std::string>& gone) {
  for (const auto& g : gone) all.erase(g);
  return all;
}

std::set<std::string> namesOf(const std::string& archive) {
  const auto names = entryNames(archive);
  return std::set<std::string>(names.begin(), names.end());
}

std::vector<std::string> withArgs(std::vector<std::string> args, const std::string& extra) {
  const auto more = split(extra, false);
  args.insert(args.begin() + 1, more.begin(), more.end());
  return args;
}

const std::set<std::string> kTree = {
    "src/",       "src/a.c",       "src/b.h", "src/sub/", "src/sub/c.c", "build/", "build/x.o",
    "build/obj/", "build/obj/y.o", "empty/",  "top.o",    "README",      "link"};

}  // namespace

TEST(ToolSelect, ExtractTakesWhatTheGlobsSay) {
  TempDir t;
  const bool xattrs = makeProject(t / "proj");
  ASSERT_EQ(run({"compress", "-q", t / "proj", t / "p.vz"}).status, 0);
  const struct {
    const char* args;
    std::set<std::string> items;
  } cases[] = {
      {"", kTree},
      // A folder's glob covers what it holds; 'build/*' keeps the folder.
      {"-x build", without(kTree, {"build/", "build/x.o", "build/obj/", "build/obj/y.o"})},
      {"-x build/", without(kTree, {"build/", "build/x.o", "build/obj/", "build/obj/y.o"})},
      {"-x build/*", without(kTree, {"build/x.o", "build/obj/", "build/obj/y.o"})},
      // '*' matches '/' too.
      {"-x *.o", without(kTree, {"build/x.o", "build/obj/y.o", "top.o"})},
      {"-x link", without(kTree, {"link"})},
      {"-x empty -x README -x src",
       {"build/", "build/x.o", "build/obj/", "build/obj/y.o", "top.o", "link"}},
      // -i brings the folders on the way of what it takes.
      {"-i src/*", {"src/", "src/a.c", "src/b.h", "src/sub/", "src/sub/c.c"}},
      {"-i *.c", {"src/", "src/a.c", "src/sub/", "src/sub/c.c"}},
      // Anchored at the root: "sub" alone would name a top-level item.
      {"-i src -x *.h -x */sub", {"src/", "src/a.c"}},
      {"-x sub", kTree},
      {"-i ?EADME -i top.[o]", {"README", "top.o"}},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    const std::string out = t / ("out" + std::to_string(n++));
    const Result r = run(withArgs({"extract", t / "p.vz", out}, c.args));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(treeItems(out), c.items);
    if (c.items.count("src/a.c") != 0) {
      EXPECT_EQ(userAttributes(out + "/src/a.c").count("user.tag"), xattrs ? 1u : 0u);
    }
    const std::string counted = std::to_string(entryCount(t / "p.vz"));
    EXPECT_EQ(contains(r.out, " of " + counted + " entries"), c.items != kTree) << r.out;
  }
}

TEST(ToolSelect, ACompanionGoesWithItsFile) {
  TempDir t;
  if (!makeProject(t / "proj")) GTEST_SKIP() << "no user extended attributes here";
  ASSERT_EQ(run({"compress", "-q", "-f", "0", t / "proj", t / "p.zip"}).status, 0);
  ASSERT_TRUE(namesOf(t / "p.zip").count("__MACOSX/proj/src/._a.c"));
  // Format 0 names start with the folder's own name.
  const Result only = run({"extract", "-i", "proj/src/a.c", t / "p.zip", t / "only"});
  ASSERT_EQ(only.status, 0) << only.err;
  EXPECT_EQ(treeItems(t / "only"), (std::set<std::string>{"proj/", "proj/src/", "proj/src/a.c"}));
  EXPECT_EQ(userAttributes(t / "only/proj/src/a.c").at("user.tag"), "blue");
  // Without its file, a companion would make an empty one to hang on.
  const Result skip = run({"extract", "-x", "*/a.c", t / "p.zip", t / "skip"});
  ASSERT_EQ(skip.status, 0) << skip.err;
  EXPECT_FALSE(exists(t / "skip/proj/src/a.c"));
  EXPECT_TRUE(exists(t / "skip/proj/src/b.h"));
}

TEST(ToolSelect, CompressLeavesOutWhatTheGlobsSay) {
  TempDir t;
  const bool xattrs = makeProject(t / "proj");
  std::set<std::string> full[2];  // by format
  for (int format : {0, 1}) {
    const std::string archive = t / ("all" + std::to_string(format));
    ASSERT_EQ(run({"compress", "-q", "-f", std::to_string(format), t / "proj", archive}).status, 0);
    full[format] = namesOf(archive);
  }
  EXPECT_EQ(full[1].count("__MACOSX/src/._a.c"), xattrs ? 1u : 0u);
  const struct {
    const char* format;
    const char* args;
    std::set<std::string> gone;
  } cases[] = {
      {"1", "-x build", {"build/", "build/x.o", "build/obj/", "build/obj/y.o"}},
      {"1", "-x build/*", {"build/x.o", "build/obj/", "build/obj/y.o"}},
      {"1", "-x *.o", {"build/x.o", "build/obj/y.o", "top.o"}},
      {"1", "-x link -x empty", {"link", "empty/"}},
      {"1", "-x src/a.c", {"src/a.c", "__MACOSX/src/._a.c"}},
      {"0", "-x proj/build", {"proj/build/x.o", "proj/build/obj/y.o"}},
      {"0", "-x */a.c", {"proj/src/a.c", "__MACOSX/proj/src/._a.c"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.format) + " " + c.args);
    std::set<std::string> archives[2];
    for (const char* threads : {"1", "2"}) {
      const std::string archive = t / (std::string("x") + threads + ".zip");
      const Result r = run(
          withArgs({"compress", "-q", "-f", c.format, "-j", threads, t / "proj", archive}, c.args));
      ASSERT_EQ(r.status, 0) << r.err;
      archives[threads[0] == '2'] = namesOf(archive);
    }
    EXPECT_EQ(readFile(t / "x1.zip"), readFile(t / "x2.zip")) << "threads change the archive";
    const std::set<std::string>& before = full[c.format[0] - '0'];
    EXPECT_EQ(archives[0], without(before, c.gone));
    for (const auto& g : c.gone) {
      EXPECT_TRUE(before.count(g) || (!xattrs && g.rfind("__MACOSX/", 0) == 0))
          << g << " was never there";
    }
  }
}

TEST(ToolSelect, NothingMatchingIsAFailureThatWritesNothing) {
  TempDir t;
  makeProject(t / "proj");
  ASSERT_EQ(run({"compress", "-q", t / "proj", t / "p.vz"}).status, 0);
  const Result r = run({"extract", "-i", "*.rs", t / "p.vz", t / "out"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "velzip: no entry of " + t / "p.vz" + " matches the -i and -x globs\n");
  EXPECT_FALSE(exists(t / "out"));
  for (const char* args : {"compress -i x a b.zip", "list -x a a.zip", "gzip -i a f"}) {
    EXPECT_EQ(run(split(args, false)).status, 2) << args;
  }
}
