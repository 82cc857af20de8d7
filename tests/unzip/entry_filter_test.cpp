// An entry filter leaves entries out of an extraction altogether: no file,
// folder, link or metadata and no callback, alike with and without worker
// threads.
#include <sys/xattr.h>

#include <algorithm>

#include "platform/apple_double.h"
#include "unzip/fixtures.h"

using namespace velzip_test;

namespace {

struct Asked {
  std::vector<std::string> leaveOut;
  std::vector<std::pair<std::string, UZ_EntryKind>> calls;

  static bool filter(const char* name, UZ_EntryKind kind, void* userData) {
    auto* self = static_cast<Asked*>(userData);
    self->calls.emplace_back(name, kind);
    return std::find(self->leaveOut.begin(), self->leaveOut.end(), name) == self->leaveOut.end();
  }
};

std::string companionBytes() {
  velzip::AppleDoubleContents contents;
  contents.attributes.push_back({"note", {'o', 'k'}, 0});
  std::vector<uint8_t> fork;
  EXPECT_TRUE(velzip::appleDoubleBuild(contents, fork));
  return std::string(fork.begin(), fork.end());
}

}  // namespace

TEST(EntryFilter, LeavesOutEveryKindOfEntryWithoutACallback) {
  TempDir t;
  writeFile(t / "probe", "");
  const bool xattrs = setxattr((t / "probe").c_str(), "user.p", "1", 1, 0) == 0;
  for (int format : {0, 1}) {
    SCOPED_TRACE(format);
    const std::string zip = t / ("e" + std::to_string(format));
    {
      ZipBuilder b(zip, format);
      b.add({{"kept/", "", 040700},
             {"gone/", "", 040700},
             {"kept/a", "a"},
             {"kept/b", "b"},
             {"__MACOSX/kept/._a", companionBytes()},
             {"__MACOSX/kept/._b", companionBytes()},
             {"kept/link", "a", 0120777},
             {"kept/link2", "b", 0120777},
             {"../outside", "x"}});
    }
    std::string trees[2];
    for (unsigned threads : {1u, 3u}) {
      SCOPED_TRACE(threads);
      const std::string out = zip + "." + std::to_string(threads);
      Asked asked;
      // A refused name can be left out too.
      asked.leaveOut = {"gone/", "kept/b", "__MACOSX/kept/._b", "kept/link2", "../outside"};
      Recorder rec;
      const bool ok = withReader(format, zip, [&](auto& r) {
        r.setThreadCount(threads);
        r.setEntryFilter(Asked::filter, &asked);
        r.setCallback(Recorder::callback, &rec);
        return r.unzipTo(out.c_str(), false, kKeep);
      });
      EXPECT_TRUE(ok);
      EXPECT_EQ(asked.calls.size(), 9u) << "asked once per entry";
      EXPECT_EQ(asked.calls[0].second, UZ_EntryKind::kFolder);
      EXPECT_EQ(asked.calls[4].second, UZ_EntryKind::kCompanion);
      EXPECT_EQ(asked.calls[6].second, UZ_EntryKind::kLink);
      for (const Report& r : rec.reports) {
        EXPECT_TRUE(std::find(asked.leaveOut.begin(), asked.leaveOut.end(), r.entry) ==
                    asked.leaveOut.end())
            << "the callback heard of " << r.entry;
      }
      EXPECT_FALSE(exists(out + "/gone") || exists(out + "/kept/b") || exists(out + "/kept/link2"));
      EXPECT_EQ(readFile(out + "/kept/a"), "a");
      EXPECT_EQ(linkTarget(out + "/kept/link"), "a");
      EXPECT_EQ(permissions(out + "/kept"), 0700u);
      char note[4] = {};
      if (xattrs) getxattr((out + "/kept/a").c_str(), "user.note", note, sizeof note);
      EXPECT_STREQ(note, xattrs ? "ok" : "");
      trees[threads > 1] = treeListing(out);
    }
    EXPECT_EQ(trees[0], trees[1]);
  }
}
