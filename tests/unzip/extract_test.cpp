#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/apple_double.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "unzip/archive_builder.h"
#include "unzip/recorder.h"
#include "velzip/VelUnzipHandler.h"

using namespace velzip_test;

namespace {

constexpr unsigned long kKeep = 0xFFFFFFFFul;

unsigned permissions(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0xFFFFu;
}

unsigned newFolderMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0775u & ~mask;
}

std::string linkTarget(const std::string& path) {
  char buf[4096];
  const ssize_t n = readlink(path.c_str(), buf, sizeof buf);
  return n < 0 ? "<none>" : std::string(buf, static_cast<size_t>(n));
}

std::string companionWith(const std::string& name, const std::string& value) {
  velzip::AppleDoubleContents contents;
  contents.attributes.push_back({name, std::vector<uint8_t>(value.begin(), value.end()), 0});
  std::vector<uint8_t> bytes;
  EXPECT_TRUE(velzip::appleDoubleBuild(contents, bytes));
  return std::string(bytes.begin(), bytes.end());
}

}  // namespace

TEST(VelUnzipExtract, RestoresFilesFoldersModesAndReportsProgress) {
  TempDir t;
  const std::string zip = t / "tree.zip";
  const std::string big = sampleBytes(300000, 3);
  ArchiveBuilder(zip)
      .dir("top/", 040750)
      .file("top/big.bin", big, 0100600)
      .file("top/empty", "", 0100644)
      .file("exec", "#!/bin/sh\n", 0100755);

  Vel::VelUnzipHandler r(zip.c_str());
  Recorder rec;
  r.setCallback(Recorder::callback, &rec);
  const std::string out = t / "out";
  ASSERT_TRUE(r.unzipTo(out.c_str(), false, kKeep));
  EXPECT_EQ(readFile(out + "/top/big.bin"), big);
  EXPECT_EQ(readFile(out + "/top/empty"), "");
  EXPECT_TRUE(exists(out + "/top/empty"));
  EXPECT_EQ(permissions(out + "/top"), 0750u);
  EXPECT_EQ(permissions(out + "/top/big.bin"), 0600u);
  EXPECT_EQ(permissions(out + "/top/empty"), 0644u);
  EXPECT_EQ(permissions(out + "/exec"), 0755u);

  ASSERT_GE(rec.reports.size(), 8u);
  const Report& dir = rec.reports[0];
  EXPECT_EQ(dir.state, 3);
  EXPECT_TRUE(dir.isDirectory);
  EXPECT_EQ(dir.entry, "top/");
  EXPECT_EQ(dir.path, out + "/top/");
  EXPECT_EQ(rec.reports[1].state, 1);
  EXPECT_FALSE(rec.reports[1].isDirectory);
  EXPECT_EQ(rec.reports[1].path, out + "/top/big.bin");
  uint64_t decoded = 0;
  size_t i = 2;
  for (; rec.reports[i].state == 2; ++i) {
    EXPECT_FALSE(rec.reports[i].hadEntry) << "names are cleared in the data phase";
    decoded += rec.reports[i].bytes;
  }
  EXPECT_GE(i, 3u);
  EXPECT_EQ(decoded, big.size());
  EXPECT_EQ(rec.reports[i].state, 3);
  EXPECT_EQ(rec.reports[i].entry, "top/big.bin");
  EXPECT_EQ(rec.states().substr(i + 1), "123123") << "empty file still reads its payload";

  // An override replaces every mode; 0 reaches files but not folders.
  ASSERT_TRUE(r.unzip(zip.c_str(), (t / "zero").c_str(), false, 0));
  EXPECT_EQ(permissions(t / "zero/top/big.bin"), 0u);
  EXPECT_EQ(permissions(t / "zero/top"), newFolderMode());
  ASSERT_TRUE(r.unzip(zip.c_str(), (t / "o640").c_str(), false, 0640));
  EXPECT_EQ(permissions(t / "o640/top"), 0640u);
  EXPECT_EQ(permissions(t / "o640/exec"), 0640u);
}

TEST(VelUnzipExtract, CallbackAnswersAtEachPoint) {
  TempDir t;
  const std::string zip = t / "cb.zip";
  ArchiveBuilder(zip).dir("d/").file("d/f1", sampleBytes(200000, 1), 0100600).file("f2", "two");
  auto run = [&](const std::string& dest, std::function<int(const Report&)> answer,
                 Recorder* rec = nullptr) {
    Recorder local;
    Recorder& use = rec != nullptr ? *rec : local;
    use.answer = std::move(answer);
    Vel::VelUnzipHandler r(zip.c_str());
    r.setCallback(Recorder::callback, &use);
    return r.unzipTo((t / dest).c_str(), false, kKeep);
  };
  auto at = [](int state, const std::string& entry, int value) {
    return [=](const Report& r) { return r.state == state && r.entry == entry ? value : 0; };
  };

  EXPECT_TRUE(run("skip", at(1, "d/f1", 2)));
  EXPECT_FALSE(exists(t / "skip/d/f1"));
  EXPECT_EQ(readFile(t / "skip/f2"), "two") << "later entries still come";

  EXPECT_FALSE(run("abort", at(1, "d/f1", 1)));
  EXPECT_FALSE(exists(t / "abort/d/f1"));
  EXPECT_FALSE(exists(t / "abort/f2"));

  EXPECT_FALSE(run("dirabort", at(3, "d/", 1)));
  EXPECT_FALSE(exists(t / "dirabort/f2"));
  EXPECT_TRUE(run("dirskip", at(3, "d/", 2)));
  EXPECT_TRUE(exists(t / "dirskip/d/f1"));

  EXPECT_TRUE(run("seven", at(1, "d/f1", 7))) << "unknown answers at the start continue";
  EXPECT_EQ(readFile(t / "seven/d/f1").size(), 200000u);

  for (int stop : {1, 2, 7}) {
    Recorder rec;
    const std::string dest = "data" + std::to_string(stop);
    EXPECT_FALSE(run(
        dest, [stop](const Report& r) { return r.state == 2 ? stop : 0; }, &rec));
    EXPECT_EQ(readFile(t / (dest + "/d/f1")), "") << "nothing is written before the end";
    EXPECT_NE(permissions(t / (dest + "/d/f1")), 0600u) << "no mode after a failure";
    EXPECT_EQ(rec.states(), "3123") << "the final report still comes";
    EXPECT_FALSE(rec.reports.back().isDirectory) << "as the file's start report set it";
  }
}

TEST(VelUnzipExtract, JunkPathsFlattensAndTheLastWins) {
  TempDir t;
  const std::string zip = t / "junk.zip";
  ArchiveBuilder(zip).dir("a/b/").file("a/x", "first").file("b/x", "second").link("c/l", "x");
  Vel::VelUnzipHandler r(zip.c_str());
  const std::string out = t / "out";
  ASSERT_TRUE(r.unzipTo(out.c_str(), true, kKeep));
  EXPECT_EQ(readFile(out + "/x"), "second");
  EXPECT_FALSE(exists(out + "/a"));
  EXPECT_EQ(linkTarget(out + "/l"), "x");
}

TEST(VelUnzipExtract, LinksAreMadeLastInPathOrder) {
  TempDir t;
  const std::string zip = t / "links.zip";
  writeFile(t / "outside", "keep");
  chmod((t / "outside").c_str(), 0600);
  ArchiveBuilder(zip)
      .link("z/b_link", "target")
      .link("z/a_link", "/abs/target")
      .dir("d/")
      .link("z/out", t / "outside")
      .link("z/taken", "x")
      .file("z/target", "data");
  ASSERT_EQ(mkdir((t / "out").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((t / "out/z").c_str(), 0755), 0);
  writeFile(t / "out/z/taken", "regular");

  Vel::VelUnzipHandler r(zip.c_str());
  const std::string out = t / "out";
  ASSERT_TRUE(r.unzipFile(out.c_str(), false, kKeep));
  EXPECT_FALSE(exists(out + "/z/b_link")) << "only recorded";

  Recorder rec;
  r.setCallback(Recorder::callback, &rec);
  ASSERT_TRUE(r.unzipTo(out.c_str(), false, 0777));
  EXPECT_EQ(linkTarget(out + "/z/b_link"), "target");
  EXPECT_EQ(linkTarget(out + "/z/a_link"), "/abs/target");
  EXPECT_EQ(readFile(out + "/z/taken"), "regular") << "an existing path stays";
  EXPECT_EQ(permissions(t / "outside"), 0600u) << "a link's mode never reaches its target";
  EXPECT_EQ(readFile(out + "/z/target"), "data");

  std::vector<std::string> order;
  for (const auto& rep : rec.reports) {
    if (rep.path.find("/z/") == std::string::npos || rep.entry == "z/target") continue;
    EXPECT_EQ(rep.state, 3);
    EXPECT_FALSE(rep.isDirectory);
    order.push_back(rep.entry);
  }
  EXPECT_EQ(order, (std::vector<std::string>{"z/a_link", "z/b_link", "z/out", "z/taken"}));

  // An abort during the pass leaves later links unmade, yet succeeds.
  Recorder stop;
  stop.answer = [](const Report& rep) { return rep.entry == "z/b_link" ? 1 : 0; };
  Vel::VelUnzipHandler again(zip.c_str());
  again.setCallback(Recorder::callback, &stop);
  ASSERT_TRUE(again.unzipTo((t / "stop").c_str(), false, kKeep));
  EXPECT_TRUE(exists(t / "stop/z/b_link"));
  EXPECT_FALSE(exists(t / "stop/z/out"));
}

TEST(VelUnzipExtract, CompanionsLandOnTheirFileAndLeaveNoStaging) {
  TempDir t;
  writeFile(t / "probe", "");
  if (setxattr((t / "probe").c_str(), "user.probe", "1", 1, 0) != 0) {
    GTEST_SKIP() << "no user extended attributes under /tmp";
  }
  const std::string zip = t / "fork.zip";
  ArchiveBuilder(zip)
      .dir("dir/")
      .file("__MACOSX/dir/._Icon", companionWith("greeting", "hello"))
      .dir("__MACOSX/keep/");
  Vel::VelUnzipHandler r(zip.c_str());
  Recorder rec;
  r.setCallback(Recorder::callback, &rec);
  const std::string out = t / "out";
  ASSERT_TRUE(r.unzipTo(out.c_str(), false, kKeep));
  EXPECT_EQ(readFile(out + "/dir/Icon"), "") << "made empty when missing";
  char value[16] = {};
  EXPECT_EQ(getxattr((out + "/dir/Icon").c_str(), "user.greeting", value, sizeof value), 5);
  EXPECT_STREQ(value, "hello");
  EXPECT_TRUE(exists(out + "/__MACOSX/keep"));
  EXPECT_FALSE(exists(out + "/__MACOSX/dir"));

  ASSERT_EQ(rec.states().substr(0, 1), "3");
  ASSERT_GE(rec.reports.size(), 4u);
  EXPECT_EQ(rec.reports[1].state, 2) << "no start report for a companion";
  const Report& done = rec.reports[rec.reports.size() - 2];
  EXPECT_EQ(done.state, 3);
  EXPECT_EQ(done.entry, "__MACOSX/dir/._Icon");
  EXPECT_EQ(done.path.rfind("/tmp/moxzip.temp.", 0), 0u);
  EXPECT_FALSE(exists(done.path));
  EXPECT_TRUE(done.isDirectory) << "kept from the folder entry before";

  // Bad companion bytes, and a "__MACOSX/" file naming no companion, fail and
  // leave nothing staged.
  for (const char* name : {"__MACOSX/._bad", "__MACOSX/plain"}) {
    const std::string bad = t / "bad.zip";
    ArchiveBuilder(bad).file(name, "not a companion");
    Vel::VelUnzipHandler b(bad.c_str());
    Recorder brec;
    b.setCallback(Recorder::callback, &brec);
    EXPECT_FALSE(b.unzipTo((t / "bad").c_str(), false, kKeep)) << name;
    ASSERT_FALSE(brec.reports.empty());
    EXPECT_FALSE(exists(brec.reports.back().path)) << name;
  }
  EXPECT_EQ(readFile(t / "bad/bad"), "") << "target made, left untouched";
  EXPECT_TRUE(exists(t / "bad/__MACOSX"));
}

TEST(VelUnzipExtract, SingleEntriesPasswordsAndFolders) {
  TempDir t;
  const std::string zip = t / "one.zip";
  ArchiveBuilder(zip).file("a", "A").file("sub/b", "B");
  Vel::VelUnzipHandler r(zip.c_str());
  r.setUnzipPassword("secret");  // plain entries open all the same
  const std::string out = t / "out";
  ASSERT_TRUE(r.unzipFile(1, out.c_str(), false, kKeep));
  EXPECT_EQ(readFile(out + "/sub/b"), "B");
  EXPECT_FALSE(exists(out + "/a"));
  EXPECT_FALSE(r.unzipFile(2, out.c_str(), false, kKeep));
  EXPECT_FALSE(r.unzipFile(-1, out.c_str(), false, kKeep));
  EXPECT_TRUE(r.setFileModTime((out + "/a").c_str(), 0));

  EXPECT_TRUE(r.createFolder((t / "x/y/z/").c_str()));
  EXPECT_TRUE(exists(t / "x/y/z"));
  EXPECT_EQ(permissions(t / "x/y"), newFolderMode());
  EXPECT_TRUE(r.createFilePath((t / "p/q/file").c_str()));
  EXPECT_TRUE(exists(t / "p/q"));
  EXPECT_FALSE(r.createFilePath("nofolder"));

  LogCapture logs;
  EXPECT_TRUE(r.createFolder("velzip-relative-never-made")) << "no '/': nothing to do";
  EXPECT_FALSE(exists("velzip-relative-never-made"));
  EXPECT_FALSE(r.createFolder((out + "/sub/b").c_str())) << "a file is no folder";
  EXPECT_FALSE(r.createFolder(""));
  EXPECT_FALSE(r.createFolder(nullptr));
  EXPECT_TRUE(logs.lines().empty());

  Vel::VelUnzipHandler closed(nullptr);
  EXPECT_FALSE(closed.unzipFile(out.c_str(), false, kKeep));
  EXPECT_TRUE(logs.lines().empty()) << "the name form stays quiet";
  EXPECT_FALSE(closed.unzipFile(0, out.c_str(), false, kKeep));
  ASSERT_EQ(logs.lines().size(), 1u);
  const LogLine& line = logs.lines()[0];
  EXPECT_EQ(line.level, 50);
  EXPECT_EQ(line.module, "VELZIP");
  EXPECT_EQ(line.component, "VelUnzipHandler");
  EXPECT_EQ(line.tag1, "");
  EXPECT_EQ(line.tag2, "NULLARG");
  EXPECT_EQ(line.text, "NULL unzip File. OpenZip not called successfully.");
  EXPECT_FALSE(closed.unzipTo(out.c_str(), false, kKeep));
  EXPECT_FALSE(closed.unzip(false));
}
