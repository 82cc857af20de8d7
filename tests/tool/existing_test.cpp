// What extract does with what already stands in DEST: refuses a folder
// that is not empty, replaces with -o, keeps with -k.
#include <sys/stat.h>

#include "support/probe.h"
#include "support/xattr.h"
#include "tool/tool_run.h"

using namespace velzip_test;

namespace {

const char kRefusal[] =
    " exists and is not empty; use -o (--overwrite) to replace what the archive holds there, or "
    "-k (--keep-existing) to keep what is there\n";

// Edits to an extracted tree, as a user would make them: a changed file
// with another mode and attribute, a removed file, a file where a link was,
// a file of the user's own.
void editTree(const std::string& root) {
  writeFile(root + "/text.txt", "edited");
  ASSERT_EQ(chmod((root + "/text.txt").c_str(), 0600), 0);
  setAttr(root + "/text.txt", "user.tag", "mine");
  ASSERT_EQ(unlink((root + "/run.sh").c_str()), 0);
  ASSERT_EQ(unlink((root + "/link-file").c_str()), 0);
  writeFile(root + "/link-file", "a file where a link was");
  writeFile(root + "/notes", "my own");
  // Format 0 has no folder entries: only format 1 brings emptydir back.
  if (exists(root + "/emptydir")) {
    ASSERT_EQ(chmod((root + "/emptydir").c_str(), 0755), 0);
  }
}

}  // namespace

// The case from the field: unpacking beside the folder it was made from.
TEST(ToolExisting, ANonEmptyDestinationIsRefusedAndLeftAsItWas) {
  TempDir t;
  makeTree(t / "proj");
  ASSERT_EQ(run({"compress", "-q", "proj", "proj.vz"}, t.path()).status, 0);
  writeFile(t / "proj/text.txt", "changed since");
  const std::string before = describe(t / "proj");
  const Result r = run({"extract", "proj.vz"}, t.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "velzip: " + t / "proj" + kRefusal);
  EXPECT_EQ(describe(t / "proj"), before);

  // An empty folder is fine; a file in DEST's place is not.
  ASSERT_EQ(mkdir((t / "empty").c_str(), 0755), 0);
  EXPECT_EQ(run({"extract", "-q", "proj.vz", "empty"}, t.path()).status, 0);
  writeFile(t / "plain", "x");
  const Result file = run({"extract", "-o", "proj.vz", "plain"}, t.path());
  EXPECT_EQ(file.status, 1);
  EXPECT_EQ(file.err,
            "velzip: cannot extract into " + t / "plain" + ": it exists and is not a folder\n");
  EXPECT_EQ(readFile(t / "plain"), "x");
  EXPECT_EQ(run({"extract", "-o", "-k", "proj.vz", "x"}, t.path()).status, 2);
}

TEST(ToolExisting, OverwriteReplacesAndKeepExistingKeeps) {
  TempDir t;
  makeTree(t / "src");
  const bool xattrs = setAttr(t / "src/text.txt", "user.tag", "archived");
  for (const char* format : {"1", "0"}) {
    SCOPED_TRACE(format);
    const std::string archive = t / (std::string("a") + format + ".zip");
    ASSERT_EQ(run({"compress", "-q", "-f", format, t / "src", archive}).status, 0);
    const std::string top = t / (std::string("o") + format);
    const std::string root = top + (format[0] == '0' ? "/src" : "");
    const std::string kept = top + "-k";
    const std::string keptRoot = kept + (format[0] == '0' ? "/src" : "");
    for (const std::string& dest : {top, kept}) {
      ASSERT_EQ(run({"extract", "-q", archive, dest}).status, 0);
    }
    editTree(root);
    editTree(keptRoot);
    const std::string edited = describe(keptRoot);

    const Result o = run({"extract", "--overwrite", archive, top});
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(readFile(root + "/notes"), "my own") << "what the archive lacks stays";
    unlink((root + "/notes").c_str());
    EXPECT_EQ(describe(root, format[0] == '1'), describe(t / "src", format[0] == '1'));
    if (xattrs) {
      EXPECT_EQ(userAttributes(root + "/text.txt").at("user.tag"), "archived");
    }

    const Result k = run({"extract", "-k", archive, kept});
    ASSERT_EQ(k.status, 0) << k.err;
    EXPECT_TRUE(contains(k.out, " already there, kept)")) << k.out;
    // Only the missing file came back; the rest kept content, mode,
    // attributes and, for the folder, its mode.
    EXPECT_EQ(readFile(keptRoot + "/run.sh"), readFile(t / "src/run.sh"));
    EXPECT_EQ(permissions(keptRoot + "/run.sh"), 0755u);
    ASSERT_EQ(unlink((keptRoot + "/run.sh").c_str()), 0);
    EXPECT_EQ(describe(keptRoot), edited);
    if (xattrs) {
      EXPECT_EQ(userAttributes(keptRoot + "/text.txt").at("user.tag"), "mine");
    }
  }
}
