// A walk filter leaves items out of a folder walk whole: a file with its
// companion, a link, a folder with everything in it, before the callback
// hears of them, alike with and without worker threads.
#include <sys/xattr.h>

#include <algorithm>

#include "support/probe.h"
#include "support/progress_recorder.h"
#include "zip/writer_support.h"

using namespace velzip_test;

namespace {

template <class T>
class WalkFilter : public ::testing::Test {
 protected:
  TempDir tmp;
};
TYPED_TEST_SUITE(WalkFilter, Formats);

struct Asked {
  std::vector<std::string> leaveOut;  // paths below top
  std::vector<std::pair<std::string, bool>> calls;
  std::string top;

  static bool filter(const char* path, bool isFolder, void* userData) {
    auto* self = static_cast<Asked*>(userData);
    const std::string rel = std::string(path).substr(self->top.size());
    self->calls.emplace_back(rel, isFolder);
    return std::find(self->leaveOut.begin(), self->leaveOut.end(), rel) == self->leaveOut.end();
  }
  bool asked(const std::string& rel, bool isFolder) const {
    return std::find(calls.begin(), calls.end(), std::make_pair(rel, isFolder)) != calls.end();
  }
};

bool anyNameHas(const std::vector<std::string>& names, const std::string& part) {
  return std::any_of(names.begin(), names.end(),
                     [&](const std::string& n) { return n.find(part) != n.npos; });
}

}  // namespace

TYPED_TEST(WalkFilter, LeavesOutFilesWithCompanionsLinksAndWholeFolders) {
  using Handler = typename TypeParam::Handler;
  const TempDir& tmp = this->tmp;
  const std::string top = makeTree(tmp);
  const bool xattrs = setxattr((top + "/a.txt").c_str(), "user.note", "hi", 2, 0) == 0 &&
                      setxattr((top + "/ro.txt").c_str(), "user.note", "ho", 2, 0) == 0;

  std::string bytes[2];
  for (unsigned threads : {1u, 3u}) {
    SCOPED_TRACE(threads);
    const std::string archive = tmp / ("f" + std::to_string(threads) + ".zip");
    Asked asked;
    asked.top = top;
    asked.leaveOut = {"/a.txt", "/sub", "/link-dir"};
    ProgressRecorder rec;
    {
      // Names start with "top/" in both formats.
      const std::string base = tmp.path() + (TypeParam::zero ? "" : "/");
      Handler zip(archive.c_str(), base.c_str(), false);
      zip.setThreadCount(threads);
      zip.setCompanionPolicy(CompanionPolicy::kWithMetadata);
      zip.setWalkFilter(Asked::filter, &asked);
      zip.setCallback(ProgressRecorder::callback, &rec);
      ASSERT_TRUE(zip.addFolderToZip(top.c_str(), false, true));
      ASSERT_TRUE(zip.closeZip());
    }
    const auto entries = names(probe(archive));
    for (const char* gone : {"a.txt", "sub/", "inner.bin", "deeper", "link-dir"}) {
      EXPECT_FALSE(anyNameHas(entries, gone)) << gone;
    }
    for (const char* kept : {"top/ro.txt", "top/link-file", "top/with space"}) {
      EXPECT_TRUE(anyNameHas(entries, kept)) << kept;
    }
    // Format 0 gives sub-folders no entries of their own.
    EXPECT_EQ(anyNameHas(entries, "top/emptydir/"), !TypeParam::zero);
    EXPECT_EQ(anyNameHas(entries, "__MACOSX/top/._ro.txt"), xattrs);
    for (const auto& r : rec.reports) {
      EXPECT_FALSE(r.path.find("/a.txt") != r.path.npos || r.path.find("/sub") != r.path.npos)
          << "the callback heard of " << r.path;
    }
    // Asked about what the walk meets, folders as folders, nothing inside
    // a folder left out.
    EXPECT_TRUE(asked.asked("/sub", true) && asked.asked("/emptydir", true));
    EXPECT_TRUE(asked.asked("/a.txt", false) && asked.asked("/link-dir", false));
    EXPECT_FALSE(asked.asked("/sub/inner.bin", false));
    EXPECT_TRUE(asked.asked("/na\xC3\xAFve \xE2\x82\xAC/\xC3\xBCn\xC3\xAF.txt", false));
    bytes[threads > 1] = readFile(archive);
  }
  EXPECT_TRUE(bytes[0] == bytes[1]) << "threads change the archive";
}
