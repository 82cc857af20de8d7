// Both readers over archives of their format: content, modes, progress,
// callback answers, links, companions, navigation and log routing.
#include <sys/xattr.h>

#include "platform/apple_double.h"
#include "unzip/fixtures.h"

using namespace velzip_test;

TEST(Readers, RestoreTreeAndHonourCallbackAnswers) {
  TempDir t;
  const std::string big = sampleBytes(200000, 7), noise = noiseBytes(70000, 2);
  const struct {
    int state;
    const char* entry;  // "" for data reports
    int answer;         // 0 continues
    bool ok, made;      // made: dir/big restored
    const char* states;
  } cases[] = {{0, "", 0, true, true, "31231233"},     {1, "dir/big", 2, true, false, "311233"},
               {1, "dir/big", 1, false, false, "31"},  {3, "dir/", 1, false, false, "3"},
               {3, "dir/", 2, true, true, "31231233"}, {1, "dir/big", 7, true, true, "31231233"},
               {2, "", 1, false, false, "3123"},       {2, "", 2, false, false, "3123"},
               {2, "", 7, false, false, "3123"}};
  for (int format : {0, 1}) {
    const std::string zip = t / std::to_string(format), out = zip + ".out";
    ZipBuilder(zip, format)
        .add({{"dir/", "", 040750},
              {"dir/big", big, 0100640},
              {"noise", noise, 0100755},
              {"link", "dir/big", 0120777}});
    int n = 0;
    for (const auto& c : cases) {
      const std::string dest = out + "." + std::to_string(n++);
      SCOPED_TRACE(dest);
      Recorder rec;
      rec.answer = [&](const Report& r) {
        return r.state == c.state && r.entry == c.entry ? c.answer : 0;
      };
      EXPECT_EQ(extract(format, zip, dest, &rec), c.ok);
      EXPECT_EQ(rec.states(), c.states);
      EXPECT_EQ(exists(dest + "/noise"), c.ok) << "later entries only after success";
      if (c.made) {  // answers that change nothing
        EXPECT_TRUE(readFile(dest + "/dir/big") == big && readFile(dest + "/noise") == noise);
        EXPECT_EQ(linkTarget(dest + "/link"), "dir/big");
        EXPECT_EQ(permissions(dest + "/dir"), 0750u);
        EXPECT_EQ(permissions(dest + "/dir/big"), 0640u);
        EXPECT_EQ(permissions(dest + "/noise"), 0755u);
        EXPECT_TRUE(rec.reports[0].isDirectory && !rec.reports[1].isDirectory);
        EXPECT_EQ(rec.reports[0].entry + " " + rec.reports[0].path, "dir/ " + dest + "/dir/");
        EXPECT_EQ(rec.reports[1].path, dest + "/dir/big");
        EXPECT_FALSE(rec.reports[2].hadEntry) << "names are cleared in the data phase";
        EXPECT_EQ(rec.dataBytes()["dir/big"] + rec.dataBytes()["noise"], big.size() + noise.size());
      } else {  // nothing half-written, however far the entry got
        EXPECT_FALSE(exists(dest + "/dir/big"));
      }
    }
    // Overrides replace every mode (0 reaches files only); a destination may end in '/'.
    ASSERT_TRUE(extract(format, zip, out + "0", nullptr, nullptr, false, 0));
    EXPECT_EQ(permissions(out + "0/dir/big"), 0u);
    EXPECT_EQ(permissions(out + "0/dir"), umasked(0775));
    ASSERT_TRUE(extract(format, zip, out + "640/", nullptr, nullptr, false, 0640));
    EXPECT_EQ(permissions(out + "640/dir"), 0640u);
  }
}

TEST(Readers, LinksComeLastInPathOrderAndJunkPathsFlatten) {
  TempDir t;
  writeFile(t / "outside", "keep");
  chmod((t / "outside").c_str(), 0600);
  const std::string zip = t / "links.zip", out = t / "out";
  ZipBuilder(zip).add({{"z/b_link", "target", 0120777},
                       {"z/a_link", "/abs/target", 0120777},
                       {"d/", "", 040755},
                       {"z/out", t / "outside", 0120777},
                       {"z/taken", "x", 0120777},
                       {"z/target", "first"},
                       {"y/target", "second"}});
  ASSERT_EQ(mkdir(out.c_str(), 0755), 0);
  ASSERT_EQ(mkdir((out + "/z").c_str(), 0755), 0);
  writeFile(out + "/z/taken", "regular");

  Recorder rec;
  ASSERT_TRUE(extract(1, zip, out, &rec, nullptr, false, 0777));
  EXPECT_EQ(linkTarget(out + "/z/b_link"), "target");
  EXPECT_EQ(linkTarget(out + "/z/a_link"), "/abs/target");
  EXPECT_EQ(linkTarget(out + "/z/taken"), "x") << "a link replaces what stood there";
  EXPECT_EQ(permissions(t / "outside"), 0600u) << "a link's mode never reaches its target";
  std::string pass;  // the last reports: state, entry and kind of each link made
  for (size_t i = rec.reports.size() - 4; i < rec.reports.size(); ++i) {
    pass += std::to_string(rec.reports[i].state) + rec.reports[i].entry +
            (rec.reports[i].isDirectory ? "/ " : " ");
  }
  EXPECT_EQ(pass, "3z/a_link 3z/b_link 3z/out 3z/taken ");

  // An abort during the pass leaves later links unmade, yet succeeds.
  Recorder stop;
  stop.answer = [](const Report& report) { return report.entry == "z/b_link" ? 1 : 0; };
  ASSERT_TRUE(extract(1, zip, t / "stop", &stop));
  EXPECT_TRUE(exists(t / "stop/z/b_link"));
  EXPECT_FALSE(exists(t / "stop/z/out"));

  ASSERT_TRUE(extract(1, zip, t / "junk", nullptr, nullptr, true));
  EXPECT_EQ(readFile(t / "junk/target"), "second") << "the last one wins";
  EXPECT_EQ(linkTarget(t / "junk/b_link"), "target");
  EXPECT_FALSE(exists(t / "junk/z") || exists(t / "junk/d"));
}

TEST(Readers, CompanionsLandOnTheirFileAndLeaveNoStaging) {
  TempDir t;
  writeFile(t / "probe", "");
  if (setxattr((t / "probe").c_str(), "user.probe", "1", 1, 0) != 0) {
    GTEST_SKIP() << "no user extended attributes under /tmp";
  }
  velzip::AppleDoubleContents contents;
  contents.attributes.push_back({"greeting", {'h', 'i'}, 0});
  std::vector<uint8_t> bytes;
  ASSERT_TRUE(velzip::appleDoubleBuild(contents, bytes));
  const std::string fork(bytes.begin(), bytes.end());
  for (int format : {0, 1}) {
    SCOPED_TRACE(format);
    const std::string zip = t / std::to_string(format), out = zip + ".out";
    ZipBuilder(zip, format)
        .add({{"dir/", "", 040755},
              {"dir/doc", "document"},
              {"__MACOSX/dir/._doc", fork},
              {"__MACOSX/dir/._Icon", fork},
              {"__MACOSX/keep/", "", 040755}});
    Recorder rec;
    ASSERT_TRUE(extract(format, zip, out, &rec));
    EXPECT_EQ(readFile(out + "/dir/doc"), "document");
    EXPECT_EQ(readFile(out + "/dir/Icon"), "") << "made empty when missing";
    for (const char* target : {"/dir/doc", "/dir/Icon"}) {
      char value[3] = {};
      EXPECT_EQ(getxattr((out + target).c_str(), "user.greeting", value, 2), 2) << target;
      EXPECT_STREQ(value, "hi") << target;
    }
    EXPECT_TRUE(exists(out + "/__MACOSX/keep") && !exists(out + "/__MACOSX/dir"));
    for (const Report& r : rec.reports) {
      if (r.entry.rfind("__MACOSX/dir/", 0) != 0) continue;
      EXPECT_EQ(r.state, 3) << "no start report for a companion";
      EXPECT_EQ(r.path, out + "/dir/" + r.entry.substr(15)) << "the file it lands on";
    }
    // Bad companion bytes, and a "__MACOSX/" file naming no companion, fail
    // and leave nothing behind.
    for (const char* name : {"__MACOSX/._bad", "__MACOSX/plain"}) {
      ZipBuilder(zip + ".bad", format).add(name, "not a companion");
      Recorder bad;
      EXPECT_FALSE(extract(format, zip + ".bad", out + "/bad", &bad)) << name;
      ASSERT_FALSE(bad.reports.empty());
      EXPECT_FALSE(exists(bad.reports.back().path)) << name;
    }
    EXPECT_FALSE(exists(out + "/bad/bad") || exists(out + "/bad/__MACOSX/plain"));
  }
}

TEST(Readers, NavigateAndDescribeEntries) {
  TempDir t;
  const std::string big = sampleBytes(70000), longName(1100, 'n');
  ZipBuilder(t / "other").add("x", "other");
  writeFile(t / "junk", "this is not a zip archive at all");
  for (int format : {0, 1}) {
    SCOPED_TRACE(format);
    const std::string zip = t / std::to_string(format);
    ZipBuilder(zip, format, true)  // zip64 headers read as well
        .add(
            {{"readme", big}, {"Payload\\setup.xml", "<x/>"}, {"a/", "", 040755}, {"a/B.ZIP", "z"}})
        .raw("top.txt", "t", "", 0100644, std::string(300, 'c').c_str())
        .add({{"c.zip", "zz"}, {longName, "", 0100644}, {"ln", "top.txt", 0120777}});
    auto stored = [&](const std::string& s) { return format == 1 ? lzmaPayload(s) : s; };
    const unsigned long long total = stored(big).size() + stored("<x/>").size() +
                                     stored("z").size() + 1 + stored("zz").size() +
                                     stored("").size() + 7;
    withReader(format, zip, [&](auto& r) {
      using Reader = std::decay_t<decltype(r)>;
      auto name = [&r] {
        UZ_FileInfo info;
        return r.getFileInfo(info) ? std::string(info.fileName) : "<none>";
      };
      EXPECT_EQ(r.getFileCount(), 8u);
      EXPECT_TRUE(r.gotoFirstFile("zip") && name() == "a/B.ZIP") << "case-insensitive, no dot";
      EXPECT_TRUE(r.gotoNextFile("ZIP") && name() == "c.zip");
      EXPECT_FALSE(r.gotoNextFile("zip") || r.gotoFirstFile("none"));
      for (const char* any : {"", static_cast<const char*>(nullptr)}) {
        EXPECT_TRUE(r.gotoFirstFile(any) && name() == "readme");
        EXPECT_TRUE(r.gotoNextFile(any) && name() == "Payload/setup.xml") << "'\\' becomes '/'";
      }
      EXPECT_TRUE(r.gotoFile("TOP.TXT", false) && name() == "top.txt");
      EXPECT_TRUE(r.gotoFile("SETUP.xml", true) && name() == "Payload/setup.xml") << "base name";
      EXPECT_TRUE(r.gotoFile("b.zip", true) && name() == "a/B.ZIP");
      EXPECT_FALSE(r.gotoFile("setup.xml", false) || r.gotoFile("missing", true) ||
                   r.gotoFile(nullptr, true));
      UZ_FileInfo info;
      for (int bad : {-1, 8}) EXPECT_FALSE(r.gotoFile(bad) || r.getFileInfo(bad, info));

      ASSERT_TRUE(r.getFileInfo(0, info));  // zip-level sizes, not the restored ones
      EXPECT_TRUE(info.uncompressedSize == stored(big).size() && info.crc == crcOf(stored(big)));
      EXPECT_TRUE(info.compressionMethod == (format == 1 ? 0u : 8u) && info.dosDate != 0);
      EXPECT_TRUE((info.compressedSize < info.uncompressedSize) == (format == 0));
      EXPECT_TRUE(r.getFileInfo(2, info) && info.isDirectory && info.mode == 040755u);
      ASSERT_TRUE(r.getFileInfo(4, info));
      EXPECT_EQ(std::strlen(info.comment), sizeof info.comment - 1) << "cut and terminated";
      EXPECT_TRUE(r.getFileInfo(6, info) && info.fileName == longName.substr(0, 1024));
      EXPECT_TRUE(r.getFileInfo(7, info) && (info.mode & 0xF000u) == 0xA000u);

      EXPECT_EQ(r.getUnzipSize(), total);
      ASSERT_TRUE(r.openZip((t / "other").c_str()));
      EXPECT_EQ(r.getUnzipSize(), total) << "never recomputed";
      EXPECT_EQ(Reader::GetUnzipSize(zip.c_str()), static_cast<long long>(total));
      EXPECT_EQ(Reader::GetUnzipSize((t / "none").c_str()) + Reader::GetUnzipSize(nullptr), 0);

      // Closed: every query answers false / 0 and leaves the record alone.
      std::strcpy(info.fileName, "kept");
      EXPECT_TRUE(r.closeZip() && !r.closeZip() && !r.getFileInfo(info) && !r.getFileCount());
      EXPECT_STREQ(info.fileName, "kept");
      EXPECT_FALSE(r.gotoFirstFile(nullptr) || r.gotoNextFile("zip") || r.gotoFile(0) ||
                   r.gotoFile("top.txt", true));
      EXPECT_FALSE(r.openZip((t / "junk").c_str()) || r.openZip((t / "none").c_str()) ||
                   r.openZip(nullptr) || r.unzipTo((t / "o").c_str(), false, kKeep));
    });
  }
}

TEST(Readers, OutputFolderSingleEntriesAndFolders) {
  TempDir t;
  ASSERT_EQ(mkdir((t / "d.v2").c_str(), 0755), 0);
  ZipBuilder(t / "d.v2/archive").add("x", "1");
  ZipBuilder(t / "pkg.zip").add({{"y", "2"}, {"sub/z", "3"}});
  Vel::VelUnzipHandler r((t / "d.v2/archive").c_str());
  ASSERT_TRUE(r.unzip(false)) << "the last dot wins, even inside a folder name";
  EXPECT_EQ(readFile(t / "d/x"), "1");
  ASSERT_TRUE(r.unzip((t / "pkg.zip").c_str(), nullptr, false, kKeep));
  EXPECT_EQ(readFile(t / "pkg/y"), "2");
  EXPECT_EQ(r.getFileCount(), 0u) << "left closed";
  EXPECT_FALSE(r.unzip(false) || r.unzip((t / "none.zip").c_str(), nullptr, false, kKeep));

  ASSERT_TRUE(r.openZip((t / "pkg.zip").c_str()));
  EXPECT_FALSE(r.setOutputFolder((t / "nowhere").c_str()) ||
               r.setOutputFolder((t / "pkg/y").c_str()) || r.setOutputFolder(nullptr))
      << "only folders that exist";
  ASSERT_TRUE(r.setOutputFolder((t / "d").c_str()));
  ASSERT_TRUE(r.unzip(false));
  EXPECT_EQ(readFile(t / "d/y"), "2");

  const std::string out = t / "one";
  ASSERT_TRUE(r.unzipFile(1, out.c_str(), false, kKeep));
  EXPECT_EQ(readFile(out + "/sub/z"), "3");
  EXPECT_FALSE(r.unzipFile(2, out.c_str(), false, kKeep) ||
               r.unzipFile(-1, out.c_str(), false, kKeep));

  LogCapture logs;
  EXPECT_TRUE(r.createFolder((t / "x/y/z/").c_str()) && exists(t / "x/y/z"));
  EXPECT_TRUE(r.createFilePath((t / "p/q/file").c_str()));
  EXPECT_TRUE(exists(t / "p/q") && !exists(t / "p/q/file"));
  EXPECT_FALSE(r.createFilePath("nofolder"));
  EXPECT_TRUE(r.createFolder("velzip-never-made") && !exists("velzip-never-made")) << "no '/'";
  EXPECT_FALSE(r.createFolder((out + "/sub/z").c_str())) << "a file is no folder";
  EXPECT_FALSE(r.createFolder("") || r.createFolder(nullptr));
  EXPECT_TRUE(logs.lines().empty());
}

TEST(Readers, LogRouting) {
  TempDir t;
  const std::string zip = t / "log.zip";
  ZipBuilder(zip, 0).add("a", "A");
  writeFile(t / "blocker", "");
  const std::string unreachable = t / "blocker/out";
  LogCapture logs;  // captures kLogMessageFnPtr and ulvoUtilsLogMessageFnPtr
  CaptureLogger object;
  UnzipHandler withHandle(zip.c_str()), plain(zip.c_str()), closed0(nullptr);
  Vel::VelUnzipHandler current(zip.c_str()), closed1(nullptr);
  withHandle.setLogger(&object);
  current.setLogger(&object);  // kept for the host; lines go to the archive sink
  EXPECT_FALSE(withHandle.unzipTo(unreachable.c_str(), false, kKeep));
  EXPECT_FALSE(plain.unzipTo(unreachable.c_str(), false, kKeep));
  EXPECT_FALSE(current.unzipTo(unreachable.c_str(), false, kKeep));
  // Unopened, only the index form logs; the archive routing tags it.
  const char* d = t.path().c_str();
  EXPECT_FALSE(closed0.unzipFile(d, false, kKeep) || closed1.unzipFile(d, false, kKeep));
  EXPECT_FALSE(closed0.unzipFile(0, d, false, kKeep) || closed1.unzipFile(0, d, false, kKeep));

  // module|component|tag1|tag2|level|text, one route per line
  const std::string failed = "|50|Folder creation failed: " + unreachable;
  const std::string unopened = "|50|NULL unzip File. OpenZip not called successfully.";
  std::vector<std::string> lines;
  for (const LogLine& l : logs.lines()) {
    lines.push_back(l.module + "|" + l.component + "|" + l.tag1 + "|" + l.tag2 + "|" +
                    std::to_string(l.level) + "|" + l.text);
  }
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "<object>|UnzipHandler||" + failed, "UlvoUtils|UnzipHandler||" + failed,
                       "VELZIP|VelUnzipHandler||" + failed, "UlvoUtils|UnzipHandler||" + unopened,
                       "VELZIP|VelUnzipHandler||NULLARG" + unopened}));
}
