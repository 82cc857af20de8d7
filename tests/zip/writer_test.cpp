// The format-1 writer, one file at a time: opening, stored names, entry
// layout, links, callbacks, failures and temporary files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <vector>

#include "archive_probe.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/VelZipHandler.h"

using namespace velzip_test;

namespace {

// Changes the working directory for a scope.
class Cwd {
 public:
  explicit Cwd(const std::string& to) {
    char buf[4096];
    saved_ = getcwd(buf, sizeof buf) != nullptr ? buf : "/";
    EXPECT_EQ(0, chdir(to.c_str()));
  }
  ~Cwd() { EXPECT_EQ(0, chdir(saved_.c_str())); }

 private:
  std::string saved_;
};

struct Call {
  int state;
  uint32_t bytes;
  std::string entryName, filePath;
  bool namesNull;
};

struct Recorder {
  std::vector<Call> calls;
  int atStart = 0, duringData = 0;  // the answers
  std::set<std::string> tempsBefore, tempsSeen;
  bool tempsPrivate = true;
};

ZLibCallbackAction record(ZLibCBData* d) {
  auto* r = static_cast<Recorder*>(d->userData);
  r->calls.push_back({d->state, d->bytes, d->entryName ? d->entryName : "",
                      d->filePath ? d->filePath : "", !d->entryName && !d->filePath});
  if (d->state != kZLibStateEntryData) return static_cast<ZLibCallbackAction>(r->atStart);
  // The payload passes through a private file in /tmp.
  for (const auto& n : writerTempFiles()) {
    if (r->tempsBefore.count(n) != 0) continue;
    r->tempsSeen.insert(n);
    struct stat st;
    if (lstat(("/tmp/" + n).c_str(), &st) == 0 && (st.st_mode & 0777) != 0600)
      r->tempsPrivate = false;
  }
  return static_cast<ZLibCallbackAction>(r->duringData);
}

std::string noise(size_t size) {
  std::string out(size, '\0');
  unsigned x = 12345;
  for (char& c : out) c = static_cast<char>((x = x * 1664525u + 1013904223u) >> 24);
  return out;
}

}  // namespace

TEST(VelZipWriter, OpeningClosingAppending) {
  TempDir tmp;
  writeFile(tmp / "f", "content");
  Vel::VelZipHandler zip;
  EXPECT_FALSE(zip.openZip(nullptr, nullptr, false));
  EXPECT_FALSE(zip.openZip("", nullptr, false));
  EXPECT_FALSE(zip.addFileToZip((tmp / "f").c_str(), nullptr, false));  // nothing open
  EXPECT_TRUE(zip.closeZip());                                          // nothing open: true
  EXPECT_FALSE(zip.openZip((tmp / "missing/out.zip").c_str(), nullptr, false));
  {
    // A relative archive path is taken from the current directory, and its
    // folder becomes the base folder.
    Cwd cwd(tmp.path());
    ASSERT_TRUE(zip.openZip("rel.zip", nullptr, true));  // append to nothing: created
    char path[1024] = "f";
    zip.prepareSourcePath(path);
    EXPECT_EQ(tmp / "f", path);
    EXPECT_TRUE(zip.addFileToZip("f", nullptr, false));
  }
  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(zip.closeZip());
  ASSERT_TRUE(probeArchive(tmp / "rel.zip", entries));
  EXPECT_EQ(std::vector<std::string>{"f"}, entryNames(entries));

  // Base folders: as given, with or without a slash, or empty; long paths are
  // cut at 1023 bytes. Reopening closes the previous archive.
  const std::pair<const char*, const char*> cases[] = {
      {"/base", "/base/x"}, {"/base/", "/base/x"}, {"", "x"}};
  for (const auto& [base, resolved] : cases) {
    ASSERT_TRUE(zip.openZip((tmp / "a.zip").c_str(), base, false));
    char path[1024] = "x";
    zip.prepareSourcePath(path);
    EXPECT_STREQ(resolved, path);
    std::strcpy(path, "/abs");
    zip.prepareSourcePath(path);
    EXPECT_STREQ("/abs", path);
  }
  ASSERT_TRUE(zip.openZip((tmp / "a.zip").c_str(), "/base", false));
  char path[1024];
  std::strcpy(path, std::string(1020, 'n').c_str());
  zip.prepareSourcePath(path);
  EXPECT_EQ(1023u, std::strlen(path));

  // Append writes a whole new archive after the bytes already in the file;
  // the destructor finishes it.
  writeFile(tmp / "rel.zip", "PREFIX");
  {
    Vel::VelZipHandler appender((tmp / "rel.zip").c_str(), nullptr, true);
    EXPECT_TRUE(appender.addFileToZip((tmp / "f").c_str(), "two", false));
  }
  EXPECT_EQ("PREFIX", readFile(tmp / "rel.zip").substr(0, 6));
  ASSERT_TRUE(probeArchive(tmp / "rel.zip", entries));
  ASSERT_EQ(std::vector<std::string>{"two"}, entryNames(entries));
  std::string content;
  EXPECT_TRUE(decodeEntry(entries[0], content));
  EXPECT_EQ("content", content);
}

TEST(VelZipWriter, StoredNames) {
  TempDir tmp;
  const std::string base = tmp / "base";
  ASSERT_EQ(0, mkdir(base.c_str(), 0755));
  ASSERT_EQ(0, mkdir((base + "/sub").c_str(), 0755));
  for (const char* f : {"f", "sub/g", ".\\h", "..\\x", "n a\xC3\xAFve \xE2\x82\xAC.txt"})
    writeFile(base + "/" + f, f);
  writeFile(tmp / "o", "o");

  Vel::VelZipHandler zip((tmp / "names.zip").c_str(), base.c_str(), false);
  // Absolute paths under a base folder without a trailing slash keep the slash.
  EXPECT_TRUE(zip.addFileToZip((base + "/f").c_str(), nullptr, false));
  EXPECT_TRUE(zip.addFileToZip((base + "/sub/g").c_str(), nullptr, false));
  EXPECT_FALSE(zip.addFileToZip((tmp / "o").c_str(), nullptr, false));  // outside
  // Relative paths are read from the base folder and stored as given, except
  // that a leading ".\" is dropped.
  EXPECT_TRUE(zip.addFileToZip("./f", nullptr, false));
  EXPECT_TRUE(zip.addFileToZip(".\\h", nullptr, false));
  EXPECT_FALSE(zip.addFileToZip("..\\x", nullptr, false));
  EXPECT_TRUE(zip.addFileToZip("..\\x", nullptr, true));
  EXPECT_TRUE(zip.addFileToZip("sub/g", nullptr, true));  // flatten: last component
  EXPECT_TRUE(zip.addFileToZip((tmp / "o").c_str(), "given/name", false));
  EXPECT_TRUE(zip.addFileToZip("n a\xC3\xAFve \xE2\x82\xAC.txt", nullptr, false));
  // The prefix test ignores case; a base with a slash gives plain names.
  std::string upper = base;
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  ASSERT_TRUE(zip.openZip((tmp / "case.zip").c_str(), upper.c_str(), false));
  EXPECT_TRUE(zip.addFileToZip((base + "/f").c_str(), nullptr, false));
  ASSERT_TRUE(zip.openZip((tmp / "slash.zip").c_str(), (base + "/").c_str(), false));
  EXPECT_TRUE(zip.addFileToZip((base + "/sub/g").c_str(), nullptr, false));
  ASSERT_TRUE(zip.closeZip());

  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(tmp / "names.zip", entries));
  EXPECT_EQ((std::vector<std::string>{"/f", "/sub/g", "./f", "h", "..\\x", "g", "given/name",
                                      "n a\xC3\xAFve \xE2\x82\xAC.txt"}),
            entryNames(entries));
  std::string content;
  ASSERT_TRUE(decodeEntry(entries[3], content));
  EXPECT_EQ(".\\h", content);
  ASSERT_TRUE(probeArchive(tmp / "case.zip", entries));
  EXPECT_EQ(std::vector<std::string>{"/f"}, entryNames(entries));
  ASSERT_TRUE(probeArchive(tmp / "slash.zip", entries));
  EXPECT_EQ(std::vector<std::string>{"sub/g"}, entryNames(entries));
}

TEST(VelZipWriter, EntryLayoutAndLinks) {
  TempDir tmp;
  const std::string big = sampleBytes(300000, 7);
  writeFile(tmp / "big", big);
  writeFile(tmp / "empty", "");
  ASSERT_EQ(0, chmod((tmp / "big").c_str(), 0640));
  struct tm when = {};
  when.tm_year = 2011 - 1900;
  when.tm_mon = 4;
  when.tm_mday = 17;
  when.tm_hour = 13;
  when.tm_min = 42;
  when.tm_sec = 10;
  when.tm_isdst = -1;
  struct utimbuf times = {mktime(&when), mktime(&when)};
  ASSERT_EQ(0, utime((tmp / "big").c_str(), &times));
  ASSERT_EQ(0, symlink("/nowhere/at all", (tmp / "dangling").c_str()));
  // A link's target is read from the path as the caller gave it: relative
  // paths resolve against the base folder for lstat, the current directory
  // for readlink.
  ASSERT_EQ(0, mkdir((tmp / "cwd").c_str(), 0755));
  ASSERT_EQ(0, symlink("in-base", (tmp / "rel").c_str()));
  ASSERT_EQ(0, symlink("in-cwd", (tmp / "cwd/rel").c_str()));

  Recorder rec;
  {
    Vel::VelZipHandler zip((tmp / "layout.zip").c_str(), (tmp.path() + "/").c_str(), false);
    zip.setCallback(record, &rec);
    EXPECT_TRUE(zip.addFileToZip((tmp / "big").c_str(), nullptr, false));
    EXPECT_TRUE(zip.addFileToZip((tmp / "empty").c_str(), nullptr, false));
    rec.calls.clear();
    EXPECT_TRUE(zip.addFileToZip((tmp / "dangling").c_str(), nullptr, false));
    Cwd cwd(tmp / "cwd");
    EXPECT_TRUE(zip.addFileToZip("rel", nullptr, false));
    Cwd root("/");
    EXPECT_FALSE(zip.addFileToZip("rel", nullptr, false));  // no target there: no entry
  }
  EXPECT_TRUE(rec.calls.empty());  // links are not reported

  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(tmp / "layout.zip", entries));
  ASSERT_EQ((std::vector<std::string>{"big", "empty", "dangling", "rel"}), entryNames(entries));
  const ProbedEntry& b = entries[0];
  EXPECT_EQ(0, b.method);
  EXPECT_EQ(0100640u << 16, b.info.external_fa);
  EXPECT_EQ(std::string("300000\0", 7), b.localExtra);
  EXPECT_EQ(0u, b.info.size_file_extra);  // nothing in the central directory
  EXPECT_EQ(24, static_cast<unsigned char>(b.stored[0]));
  std::string content;
  ASSERT_TRUE(decodeEntry(b, content));
  EXPECT_TRUE(content == big);
  const tm_unz& d = b.info.tmu_date;
  EXPECT_EQ((std::vector<unsigned>{2011, 4, 17, 13, 42, 10}),
            (std::vector<unsigned>{d.tm_year, d.tm_mon, d.tm_mday, d.tm_hour, d.tm_min, d.tm_sec}));
  // An empty file: "0" and NUL, and the two-byte empty payload.
  EXPECT_EQ(std::string("0\0", 2), entries[1].localExtra);
  EXPECT_EQ(std::string("\x18\x00", 2), entries[1].stored);
  // Links: the target as data, the link type in the mode, no extra field.
  EXPECT_EQ("/nowhere/at all", entries[2].stored);
  EXPECT_EQ("in-cwd", entries[3].stored);
  for (size_t i = 2; i < 4; ++i) {
    EXPECT_EQ(0120000u, entries[i].mode & 0170000);
    EXPECT_EQ(0, entries[i].method);
    EXPECT_TRUE(entries[i].localExtra.empty());
  }
}

TEST(VelZipWriter, ProgressReports) {
  TempDir tmp;
  writeFile(tmp / "noise", noise(200000));  // a payload of several 64 KiB blocks
  writeFile(tmp / "small", "small");
  Recorder rec;
  rec.tempsBefore = writerTempFiles();
  Vel::VelZipHandler zip((tmp / "progress.zip").c_str(), nullptr, false);
  zip.setCallback(record, &rec);
  EXPECT_TRUE(zip.addFileToZip("noise", nullptr, false));
  ASSERT_GE(rec.calls.size(), 6u);
  for (const Call* c : {&rec.calls.front(), &rec.calls.back()}) {
    EXPECT_EQ("noise", c->entryName);  // as the caller gave it
    EXPECT_EQ(tmp / "noise", c->filePath);
    EXPECT_EQ(0u, c->bytes);
  }
  EXPECT_EQ(kZLibStateEntryStart, rec.calls.front().state);
  EXPECT_EQ(kZLibStateEntryDone, rec.calls.back().state);
  uint64_t payloadBytes = 0;
  for (size_t i = 1; i + 1 < rec.calls.size(); ++i) {
    EXPECT_EQ(kZLibStateEntryData, rec.calls[i].state);
    EXPECT_TRUE(rec.calls[i].namesNull);
    EXPECT_EQ(i + 2 < rec.calls.size() ? 65536u : rec.calls[i].bytes, rec.calls[i].bytes);
    payloadBytes += rec.calls[i].bytes;
  }
  EXPECT_FALSE(rec.tempsSeen.empty());
  EXPECT_TRUE(rec.tempsPrivate);

  // An explicit name is what the callback sees. At the start, skip gives
  // success and no entry, abort failure and no entry, anything else goes on.
  rec.calls.clear();
  EXPECT_TRUE(zip.addFileToZip("small", "stored/name", false));
  ASSERT_EQ(3u, rec.calls.size());
  EXPECT_EQ("stored/name", rec.calls[0].entryName);
  rec.atStart = kZLibSkip;
  EXPECT_TRUE(zip.addFileToZip("small", "skipped", false));
  rec.atStart = kZLibAbort;
  EXPECT_FALSE(zip.addFileToZip("small", "aborted", false));
  rec.atStart = 7;
  EXPECT_TRUE(zip.addFileToZip("small", "seven", false));
  // During data any non-zero answer stops the entry with failure; the end is
  // still reported.
  rec.calls.clear();
  rec.atStart = 0;
  rec.duringData = kZLibSkip;
  EXPECT_FALSE(zip.addFileToZip("noise", "stopped", false));
  ASSERT_EQ(3u, rec.calls.size());
  EXPECT_EQ(kZLibStateEntryDone, rec.calls[2].state);
  // A null callback keeps the current one and stores the user data.
  Recorder other;
  zip.setCallback(nullptr, &other);
  EXPECT_TRUE(zip.addFileToZip("small", "other", false));
  EXPECT_EQ(3u, other.calls.size());
  ASSERT_TRUE(zip.closeZip());

  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(tmp / "progress.zip", entries));
  EXPECT_EQ((std::vector<std::string>{"noise", "stored/name", "seven", "stopped", "other"}),
            entryNames(entries));
  EXPECT_EQ(entries[0].stored.size(), payloadBytes);  // payload bytes are reported
  EXPECT_EQ(65536u, entries[3].stored.size());        // the stopped entry, closed properly
  EXPECT_TRUE(leftoverTempFiles(rec.tempsBefore).empty());
}

TEST(VelZipWriter, FailuresLeaveNoTemporaryFiles) {
  TempDir tmp;
  const auto before = writerTempFiles();
  ASSERT_EQ(0, mkdir((tmp / "dir").c_str(), 0755));
  ASSERT_EQ(0, mkfifo((tmp / "fifo").c_str(), 0644));
  writeFile(tmp / "f", sampleBytes(150000));
  LogCapture logs;
  Recorder rec;
  {
    Vel::VelZipHandler zip((tmp / "fail.zip").c_str(), nullptr, false);
    zip.setCallback(record, &rec);
    // A missing source is reported, then fails in encoding: no end report.
    EXPECT_FALSE(zip.addFileToZip("missing", nullptr, false));
    ASSERT_EQ(1u, rec.calls.size());
    // Folders and fifos are not files (reading a fifo would block).
    EXPECT_FALSE(zip.addFileToZip("dir", nullptr, false));
    EXPECT_FALSE(zip.addFileToZip("fifo", nullptr, false));
    rec.duringData = kZLibAbort;
    EXPECT_FALSE(zip.addFileToZip("f", nullptr, false));
    rec.duringData = 0;
    EXPECT_TRUE(zip.addFileToZip("f", nullptr, false));  // and the archive goes on
  }
  EXPECT_TRUE(logs.lines().empty());  // one-file operations never log
  EXPECT_TRUE(leftoverTempFiles(before).empty());
  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(tmp / "fail.zip", entries));
  ASSERT_EQ(2u, entries.size());  // the stopped "f", then the whole one
  std::string content;
  EXPECT_TRUE(decodeEntry(entries[1], content));
}

TEST(VelZipWriter, ZipFileAndGZipFile) {
  TempDir tmp;
  writeFile(tmp / "f", "single");
  EXPECT_TRUE(Vel::VelZipHandler::ZipFile((tmp / "f").c_str()));
  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(tmp / "f.zip", entries));
  EXPECT_EQ(std::vector<std::string>{"/f"}, entryNames(entries));  // base /x has no slash
  {
    Cwd cwd(tmp.path());
    EXPECT_TRUE(Vel::VelZipHandler::ZipFile("f"));  // a bare name works
    ASSERT_EQ(0, mkdir("d", 0755));
    writeFile(tmp / "d/g", "g");
    EXPECT_FALSE(Vel::VelZipHandler::ZipFile("d/g"));  // reads d/d/g
  }
  ASSERT_TRUE(probeArchive(tmp / "f.zip", entries));
  EXPECT_EQ(std::vector<std::string>{"f"}, entryNames(entries));
  EXPECT_FALSE(Vel::VelZipHandler::ZipFile(nullptr));

  // Gzip appends a member per call.
  writeFile(tmp / "g", sampleBytes(5000));
  EXPECT_TRUE(Vel::VelZipHandler::GZipFile(tmp / "g"));
  EXPECT_TRUE(Vel::VelZipHandler::GZipFile(tmp / "g"));
  const std::string cmd = "gzip -dc '" + (tmp / "g.gz") + "' > '" + (tmp / "out") + "'";
  ASSERT_EQ(0, std::system(cmd.c_str()));
  EXPECT_EQ(sampleBytes(5000) + sampleBytes(5000), readFile(tmp / "out"));
  EXPECT_FALSE(Vel::VelZipHandler::GZipFile(tmp / "missing"));
  EXPECT_TRUE(exists(tmp / "missing.gz"));
}
