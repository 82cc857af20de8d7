// What the writers put into entries (test /0 is format 0, /1 format 1),
// checked with peers: an entry that could not be completed never passes for
// a complete one, modification times come back to the second in any time
// zone, archives of more than 65,535 entries read everywhere, and payloads
// are staged beside the archive, never in /tmp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "support/probe.h"
#include "support/temp_dir.h"
#include "zip/writer_support.h"

using namespace velzip_test;

namespace {

template <class F>
class Entries : public ::testing::Test {
 protected:
  TempDir tmp;
};
TYPED_TEST_SUITE(Entries, Formats);

// A shell command's standard output.
std::string output(const std::string& command) {
  std::string out;
  if (FILE* p = popen((command + " 2>/dev/null").c_str(), "r")) {
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    pclose(p);
  }
  return out;
}

// Python's zipfile: the entry count, then what testzip() finds ("None" when
// every CRC matches), one per line.
std::string pythonCheck(const std::string& archive) {
  return output(
      "python3 -c 'import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); "
      "print(len(z.infolist())); print(z.testzip())' '" +
      archive + "'");
}

ZLibCallbackAction stopAtFirstBlock(ZLibCBData* d) {
  return d->state == kZLibStateEntryData ? kZLibAbort : kZLibContinue;
}

TYPED_TEST(Entries, EntryCutShortNeverLooksComplete) {
  using Handler = typename TypeParam::Handler;
  const bool zero = TypeParam::zero;
  const TempDir& tmp = this->tmp;
  const std::string data = sampleBytes(300000, 8), archive = tmp / "cut.zip";
  writeFile(tmp / "data", data);
  writeFile(tmp / "before", "a whole entry before");
  const struct {
    const char* name;
    std::string path;
    ZLibCallback callback;
    int level;
    std::string why;
  } cases[] = {
      // The callback stops the copy after the first 64 KiB block.
      {"stopped", tmp / "data", stopAtFirstBlock, -1,
       "stopped by the progress callback at " + tmp / "data"},
      // Stored as it is read (format 0), so only the first block goes in.
      {"stopped-stored", tmp / "data", stopAtFirstBlock, 0,
       "stopped by the progress callback at " + tmp / "data"},
      // Opens, but every read fails.
      {"unreadable", "/proc/self/mem", nullptr, -1,
       "cannot read /proc/self/mem: Input/output error"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    {
      Handler zip(archive.c_str(), tmp.path().c_str(), false);
      ASSERT_TRUE(zip.addFileToZip((tmp / "before").c_str(), "before", false));
      zip.setCallback(c.callback, nullptr);
      zip.setCompressionLevel(c.level);
      EXPECT_FALSE(zip.addFileToZip(c.path.c_str(), c.name, false));
      EXPECT_EQ(c.why, zip.lastError());
      EXPECT_TRUE(zip.closeZip());
    }
    const auto e = probe(archive);
    const bool stopped = c.callback != nullptr;
    if (zero && stopped) {
      // Format 0: the entry is there, deflated whole beforehand or with what
      // was read, and every tool calls it damaged.
      ASSERT_EQ(2u, e.size());
      EXPECT_FALSE(e[1].crcOk);
      EXPECT_EQ(c.level == 0 ? data.substr(0, 65536) : data, e[1].stored);
      EXPECT_EQ("2\n" + std::string(c.name) + "\n", pythonCheck(archive));
      EXPECT_NE(std::string::npos, output("unzip -t '" + archive + "'").find(c.name));
      EXPECT_NE(0, runQuietly("unzip -tq '" + archive + "'"));
      EXPECT_NE(0, runQuietly("7zz t '" + archive + "'"));
      EXPECT_NE(0, runQuietly("bsdtar -xOf '" + archive + "'"));
    } else {
      // Format 1, and a file deflated whole: the content is made before its
      // entry opens. Stopped, it is still written whole; unreadable, there is
      // no entry at all.
      ASSERT_EQ(stopped ? 2u : 1u, e.size());
      EXPECT_TRUE(e.back().crcOk);
      EXPECT_TRUE(!stopped || content(e[1]) == data);
      EXPECT_EQ(std::to_string(e.size()) + "\nNone\n", pythonCheck(archive));
      EXPECT_EQ(0, runQuietly("7zz t '" + archive + "'"));
    }
  }
}

TYPED_TEST(Entries, TimesSurviveARoundTrip) {
  using Handler = typename TypeParam::Handler;
  const bool zero = TypeParam::zero;
  const TempDir& tmp = this->tmp;
  const std::string src = tmp / "src", archive = tmp / "times.zip";
  ASSERT_EQ(0, mkdir(src.c_str(), 0755));
  // Odd seconds (the DOS time has two-second steps), winter and summer
  // time, and a time before 2000.
  const std::map<std::string, time_t> times = {
      {"odd", 1615687199}, {"winter", 1579089601}, {"summer", 1594814403}, {"old", 644198405}};
  for (const auto& [name, mtime] : times) {
    writeFile(src + "/" + name, name);
    const timespec both[2] = {{mtime, 0}, {mtime, 0}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, (src + "/" + name).c_str(), both, 0));
  }
  {
    Handler zip(archive.c_str(), tmp.path().c_str(), false);
    ASSERT_TRUE(zip.addFolderToZip(src.c_str(), false, false));
  }
  // Peers restore or show them in a time zone far from the writer's: a
  // half-hour offset, so that the DOS time alone would be off by hours.
  const std::string zone = "TZ=XYZ-9:30 ";
  std::map<std::string, std::string> shown;  // by 7-Zip, in UTC
  const std::string listing = output("TZ=UTC 7zz l -slt '" + archive + "'");
  std::string path;
  for (size_t at = 0; at < listing.size();) {
    const size_t end = listing.find('\n', at);
    const std::string line = listing.substr(at, end - at);
    at = end == std::string::npos ? listing.size() : end + 1;
    if (line.rfind("Path = ", 0) == 0) path = line.substr(7);
    if (line.rfind("Modified = ", 0) == 0)
      shown[path.substr(path.rfind('/') + 1)] = line.substr(11);
  }
  for (const auto& [name, mtime] : times) {
    char utc[32];
    struct tm tm;
    strftime(utc, sizeof utc, "%Y-%m-%d %H:%M:%S", gmtime_r(&mtime, &tm));
    EXPECT_EQ(utc, shown[name]) << name;
  }
  // Format 1's payloads are velzip's own; format 0 is extracted too.
  if (zero) {
    for (const std::string tool : {"unzip -q", "bsdtar -xf"}) {
      const std::string out = tmp / tool.substr(0, tool.find(' '));
      ASSERT_EQ(0, mkdir(out.c_str(), 0755));
      ASSERT_EQ(0, runQuietly("cd '" + out + "' && " + zone + tool + " '" + archive + "'"));
      for (const auto& [name, mtime] : times) {
        struct stat st;
        ASSERT_EQ(0, stat((out + "/src/" + name).c_str(), &st)) << tool << " " << name;
        EXPECT_EQ(mtime, st.st_mtime) << tool << " " << name;
      }
    }
  }
}

TYPED_TEST(Entries, SeventyThousandEntries) {
  using Handler = typename TypeParam::Handler;
  const TempDir& tmp = this->tmp;
  const std::string archive = tmp / "many.zip";
  constexpr int kEntries = 70000;
  writeFile(tmp / "tiny", "x");
  {
    Handler zip(archive.c_str(), tmp.path().c_str(), false);
    for (int i = 0; i < kEntries; ++i) {
      const std::string name = "d" + std::to_string(i / 1000) + "/f" + std::to_string(i);
      ASSERT_TRUE(zip.addFileToZip("tiny", name.c_str(), false)) << i;
    }
    ASSERT_TRUE(zip.closeZip());
  }
  const std::string listing = output("unzip -l '" + archive + "'");
  EXPECT_NE(std::string::npos, listing.find(" 70000 files")) << listing.substr(0, 200);
  EXPECT_EQ(std::to_string(kEntries) + "\nNone\n", pythonCheck(archive));
  EXPECT_TRUE(!TypeParam::zero || runQuietly("unzip -tq '" + archive + "'") == 0);
}

// Descriptors open on unnamed (or deleted) files, by their folder.
std::map<std::string, int> unnamedFilesOpen() {
  std::map<std::string, int> out;
  const std::string deleted = " (deleted)";
  for (const auto& target : openFileTargets()) {
    if (target.size() > deleted.size() &&
        target.compare(target.size() - deleted.size(), deleted.size(), deleted) == 0) {
      ++out[target.substr(0, target.rfind('/'))];
    }
  }
  return out;
}

struct Watch {
  std::map<std::string, int> unnamed;  // the most seen during the data phase
  std::set<std::string> inTmp;         // files open directly in /tmp meanwhile

  static ZLibCallbackAction callback(ZLibCBData* d) {
    auto* self = static_cast<Watch*>(d->userData);
    if (d->state == kZLibStateEntryData) {
      for (const auto& [folder, n] : unnamedFilesOpen())
        self->unnamed[folder] = std::max(self->unnamed[folder], n);
      for (const auto& target : openFileTargets())
        if (target.rfind("/tmp/", 0) == 0 && target.find('/', 5) == std::string::npos)
          self->inTmp.insert(target);
    }
    return kZLibContinue;
  }
};

TYPED_TEST(Entries, PayloadsStayBesideTheArchive) {
  using Handler = typename TypeParam::Handler;
  const TempDir& tmp = this->tmp;
  const std::string out = tmp / "out", big = noiseBytes(6 << 20, 9);  // beyond the memory cap
  ASSERT_EQ(0, mkdir(out.c_str(), 0755));
  writeFile(tmp / "big", big);
  const size_t fds = openDescriptors();
  Watch watch;
  {
    Handler zip((out + "/a.zip").c_str(), tmp.path().c_str(), false);
    zip.setCallback(Watch::callback, &watch);
    ASSERT_TRUE(zip.addFileToZip("big", nullptr, false));
    ASSERT_TRUE(zip.addResourceForkToZip("big", (tmp / "big").c_str()));
  }
  // The archive itself, and format 1's payload beyond the cap, are unnamed
  // files in the archive's folder; nothing is made in /tmp.
  EXPECT_EQ((std::map<std::string, int>{{out, TypeParam::zero ? 1 : 2}}), watch.unnamed);
  EXPECT_TRUE(watch.inTmp.empty());
  EXPECT_EQ(std::set<std::string>{"a.zip"}, folderItems(out));
  EXPECT_EQ(fds, openDescriptors());
  const auto e = probe(out + "/a.zip");
  ASSERT_EQ(2u, e.size());
  EXPECT_TRUE(content(e[0]) == big);
  EXPECT_EQ("__MACOSX/._big", e[1].name);
}

}  // namespace
