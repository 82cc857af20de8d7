// Both archive writers (test /0 is format 0, /1 format 1): stored names,
// entry layout, links, progress answers, nothing in /tmp, the folder walk,
// companions, the one-call forms and log lines. Archives are read back with
// the zip layer and the payload codec directly, and round trip through the
// format's reader, unzip, bsdtar and Python's zipfile.
#include <dirent.h>
#include <gtest/gtest.h>
#include <minizip/unzip.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>

#include "support/log_capture.h"
#include "support/probe.h"
#include "support/progress_recorder.h"
#include "support/temp_dir.h"
#include "support/xattr.h"
#include "velzip/UnzipHandler.h"
#include "velzip/VelLzmaHelper.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/VelZipHandler.h"
#include "velzip/ZipHandler.h"
#include "zip/writer_support.h"

using namespace velzip_test;

namespace {

template <class F>
class Writer : public ::testing::Test {
 protected:
  TempDir tmp;
};
TYPED_TEST_SUITE(Writer, Formats);

// Answers reports by entry name at the start and with duringData in the data
// phase, noting the files in /tmp itself that the writer has open meanwhile.
struct Answers {
  std::map<std::string, int> atStart;
  int duringData = 0;
  std::set<std::string> before{writerTempFiles()}, seen;

  int operator()(const ProgressReport& r) {
    if (r.state == kZLibStateEntryStart) return atStart[r.entry];
    if (r.state != kZLibStateEntryData) return kZLibContinue;
    for (const auto& target : openFileTargets())
      if (target.rfind("/tmp/", 0) == 0 && target.find('/', 5) == std::string::npos)
        seen.insert(target);
    return duringData;
  }
};

// The entries a walk must give, in listing order, worked out from the tree.
// Format 1: an entry for each sub-folder before its content; names lose the
// base folder, folder names also one leading "/". Format 0: no folder
// entries, file names lose one more character, and a companion follows each
// regular file. Flattened: last components, and "/" for every folder.
void expectedWalk(bool zero, bool flatten, const std::string& folder, size_t baseLen,
                  std::vector<std::string>& out) {
  DIR* dir = opendir(folder.c_str());
  ASSERT_NE(nullptr, dir);
  while (const dirent* d = readdir(dir)) {
    const std::string n = d->d_name, child = folder + "/" + n, rel = child.substr(baseLen);
    const std::string folderStyle = rel[0] == '/' ? rel.substr(1) : rel;
    struct stat st;
    if (n == "." || n == ".." || lstat(child.c_str(), &st) != 0) continue;
    if (S_ISDIR(st.st_mode)) {
      if (!zero) out.push_back(flatten ? "/" : folderStyle + "/");
      expectedWalk(zero, flatten, child, baseLen, out);
      continue;
    }
    out.push_back(flatten ? n : zero ? rel.substr(1) : rel);
    if (zero && S_ISREG(st.st_mode)) out.push_back(companionName(flatten ? n : folderStyle));
  }
  closedir(dir);
}

// Every item under root as "mode content-or-target attributes", by relative
// path. Folders only when asked for: format 0 has no folder entries, so
// extracted folders are made afresh.
std::map<std::string, std::string> snapshot(const std::string& root, bool folders, bool xattrs) {
  std::map<std::string, std::string> items;
  namespace fs = std::filesystem;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::end(it); ++it) {
    const std::string path = it->path().string();
    struct stat st;
    if (lstat(path.c_str(), &st) != 0 || (S_ISDIR(st.st_mode) && !folders)) continue;
    // Links' own permission bits vary.
    std::string item = std::to_string(st.st_mode & (S_ISLNK(st.st_mode) ? S_IFMT : ~0u)) + " ";
    if (S_ISLNK(st.st_mode)) item += fs::read_symlink(path).string();
    if (S_ISREG(st.st_mode)) item += std::to_string(std::hash<std::string>()(readFile(path)));
    for (const auto& [name, value] : xattrs ? userAttributes(path) : Attributes())
      item += " " + name + "=" + value;
    items[path.substr(root.size())] = item;
  }
  return items;
}

TYPED_TEST(Writer, OpeningStoredNamesAndOneCallForms) {
  using Handler = typename TypeParam::Handler;
  const TempDir& tmp = this->tmp;
  const std::string base = tmp / "base", unicode = "n a\xC3\xAFve \xE2\x82\xAC.txt";
  ASSERT_EQ(0, mkdir(base.c_str(), 0755));
  ASSERT_EQ(0, mkdir((base + "/sub").c_str(), 0755));
  for (const std::string& f : std::vector<std::string>{"f", "sub/g", ".\\h", "..\\x", unicode})
    writeFile(base + "/" + f, f);
  writeFile(tmp / "o", "o");
  Handler zip;
  EXPECT_FALSE(zip.openZip(nullptr, nullptr, false));
  EXPECT_FALSE(zip.openZip("", nullptr, false));
  EXPECT_FALSE(zip.openZip((tmp / "missing/out.zip").c_str(), nullptr, false));
  EXPECT_FALSE(zip.addFileToZip((tmp / "o").c_str(), nullptr, false));  // nothing open
  EXPECT_TRUE(zip.closeZip());

  std::string upper = base;
  std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
  const struct {
    std::string base, path;
    const char* entryName;
    bool flatten;
    std::string format1, format0;  // "" for refused
  } cases[] = {
      // Absolute paths lose the base folder and, in format 0, one more character.
      {base, base + "/f", nullptr, false, "/f", "f"},
      {base + "/", base + "/sub/g", nullptr, false, "sub/g", "ub/g"},
      {upper, base + "/f", nullptr, false, "/f", "f"},  // the prefix test ignores case
      {base, tmp / "o", nullptr, false, "", ""},
      {base, tmp / "o", "given/name", false, "given/name", "given/name"},
      // Relative paths are read from the base folder and stored as given, but
      // for a leading ".\"; "..\" is refused unless flattened.
      {base, "./f", nullptr, false, "./f", "./f"},
      {base, ".\\h", nullptr, false, "h", "h"},
      {base + "/", "sub/g", nullptr, false, "sub/g", "sub/g"},
      {base, "..\\x", nullptr, false, "", ""},
      {base, "..\\x", nullptr, true, "..\\x", "..\\x"},
      {base, base + "/sub/g", nullptr, true, "g", "g"},
      {base, unicode, nullptr, false, unicode, unicode},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.base + " " + c.path);
    const std::string expected = TypeParam::zero ? c.format0 : c.format1;
    ASSERT_TRUE(zip.openZip((tmp / "n.zip").c_str(), c.base.c_str(), false));
    ASSERT_EQ(!expected.empty(), zip.addFileToZip(c.path.c_str(), c.entryName, c.flatten));
    ASSERT_TRUE(zip.closeZip());
    if (expected.empty()) continue;
    const auto e = probe(tmp / "n.zip");
    ASSERT_EQ(std::vector<std::string>{expected}, names(e));
    EXPECT_EQ(readFile(c.path[0] == '/' ? c.path : base + "/" + c.path), content(e[0]));
    // Format 0 marks non-ASCII names as UTF-8 for other tools.
    EXPECT_EQ(TypeParam::zero && expected == unicode ? 0x800u : 0u, e[0].info.flag & 0x800);
  }

  // Appending writes a whole archive after the bytes already in the file;
  // the destructor finishes it.
  writeFile(tmp / "pre.zip", "PREFIX");
  {
    Handler appender((tmp / "pre.zip").c_str(), nullptr, true);
    EXPECT_TRUE(appender.addFileToZip("base/f", nullptr, false));
  }
  EXPECT_EQ("PREFIX", readFile(tmp / "pre.zip").substr(0, 6));
  EXPECT_EQ(std::vector<std::string>{"base/f"}, names(probe(tmp / "pre.zip")));
  // One file beside itself, named from the folder (without a slash).
  EXPECT_TRUE(Handler::ZipFile((base + "/f").c_str()));
  EXPECT_EQ(std::vector<std::string>{TypeParam::zero ? "f" : "/f"}, names(probe(base + "/f.zip")));
  EXPECT_FALSE(Handler::ZipFile((tmp / "missing").c_str()));

  // One gzip member per call, whether or not the size ends a read block.
  for (const size_t size : {4096, 5000}) {
    const std::string g = tmp / ("g" + std::to_string(size)), data = sampleBytes(size, 2);
    writeFile(g, data);
    EXPECT_TRUE(Handler::GZipFile(g));
    const size_t first = readFile(g + ".gz").size();
    EXPECT_TRUE(Handler::GZipFile(g));
    EXPECT_EQ(data, readFile(g));
    EXPECT_EQ("\x1f\x8b", readFile(g + ".gz").substr(first, 2));  // appended, not rewritten
    gzFile in = gzopen((g + ".gz").c_str(), "rb");
    std::string out(3 * size, '\0');
    const int n = gzread(in, &out[0], static_cast<unsigned>(out.size()));
    gzclose(in);
    EXPECT_TRUE(n > 0 && out.substr(0, n) == data + data) << size;
  }
  EXPECT_FALSE(Handler::GZipFile(tmp / "missing"));
  EXPECT_TRUE(exists(tmp / "missing.gz"));
}

TYPED_TEST(Writer, EntryLayoutLinksAndProgress) {
  const TempDir& tmp = this->tmp;
  const bool zero = TypeParam::zero;
  const std::string data = sampleBytes(300000, 7);  // several 64 KiB blocks either way
  writeFile(tmp / "data", data);
  writeFile(tmp / "empty", "");
  ASSERT_EQ(0, chmod((tmp / "data").c_str(), 0640));
  ASSERT_EQ(0, mkdir((tmp / "d").c_str(), 0750));
  ASSERT_EQ(0, mkfifo((tmp / "fifo").c_str(), 0644));
  ASSERT_EQ(0, symlink("/nowhere/at all", (tmp / "dangling").c_str()));
  LogCapture logs;
  ProgressRecorder rec;
  Answers answers;
  rec.answer = std::ref(answers);
  typename TypeParam::Handler zip((tmp / "l.zip").c_str(), nullptr, false);
  zip.setCallback(ProgressRecorder::callback, &rec);
  EXPECT_TRUE(zip.addFileToZip("data", nullptr, false));
  ASSERT_EQ("123", rec.states());
  for (const ProgressReport* r : {&rec.reports.front(), &rec.reports.back()}) {
    EXPECT_EQ("data", r->entry);  // as the caller gave it
    EXPECT_EQ(tmp / "data", r->path);
    EXPECT_EQ(0u, r->bytes);
  }
  // Blocks of 64 KiB: payload bytes in format 1, source bytes in format 0.
  const size_t last = rec.reports.size() - 2;
  for (size_t i = 1; i <= last; ++i) {
    EXPECT_FALSE(rec.reports[i].hadEntry || !rec.reports[i].path.empty());
    EXPECT_TRUE(i == last || rec.reports[i].bytes == 65536u) << i;
  }
  const uint64_t reported = rec.dataBytes()["data"];
  EXPECT_TRUE(answers.seen.empty());  // nothing is staged in /tmp

  // At the start skip gives success and no entry, abort failure and no entry,
  // anything else goes on; neither reports more. During data any non-zero
  // answer fails the entry, whose end is still reported (what is written of
  // it is checked below).
  rec.reports.clear();
  answers.atStart = {{"skipped", kZLibSkip}, {"aborted", kZLibAbort}, {"seven", 7}};
  EXPECT_TRUE(zip.addFileToZip("data", "skipped", false));
  EXPECT_FALSE(zip.addFileToZip("data", "aborted", false));
  EXPECT_TRUE(zip.addFileToZip("data", "seven", false));
  ASSERT_EQ("11123", rec.states());
  EXPECT_EQ("skipped aborted seven",
            rec.reports[0].entry + " " + rec.reports[1].entry + " " + rec.reports[2].entry);
  rec.reports.clear();
  answers.duringData = kZLibSkip;
  EXPECT_FALSE(zip.addFileToZip("data", "stopped", false));
  EXPECT_EQ(3u, rec.reports.size());
  EXPECT_EQ("123", rec.states());
  answers.duringData = 0;
  EXPECT_TRUE(zip.addFileToZip((tmp / "empty").c_str(), "empty", false));
  rec.reports.clear();
  EXPECT_TRUE(zip.addFileToZip((tmp / "dangling").c_str(), "dangling", false));  // not reported
  // Folders and fifos (which would block) are not files; like a missing file
  // they fail after the start report, saying which and why.
  const std::string stop = "stopped by the progress callback at " + tmp / "data";
  std::vector<std::string> failures{stop, stop};
  for (const auto& [bad, why] : std::vector<std::pair<std::string, std::string>>{
           {"d", "cannot add " + tmp / "d" + ": it is a folder, not a regular file"},
           {"fifo", "cannot add " + tmp / "fifo" + ": it is a fifo, not a regular file"},
           {"missing", "cannot read " + tmp / "missing" + ": No such file or directory"}}) {
    EXPECT_FALSE(zip.addFileToZip(bad.c_str(), nullptr, false)) << bad;
    EXPECT_EQ(why, zip.lastError());
    failures.push_back(why);
  }
  EXPECT_EQ("111", rec.states());
  // Format 1 logs every failure as an error; format 0 never logs.
  for (auto& line : failures) line = "50 " + line;
  EXPECT_EQ(zero ? std::vector<std::string>() : failures, logs.texts());
  EXPECT_TRUE(zip.addFolderToZip((tmp / "d").c_str(), false, true));
  ASSERT_TRUE(zip.closeZip());
  EXPECT_TRUE(leftoverTempFiles(answers.before).empty());

  const auto e = probe(tmp / "l.zip");
  ASSERT_EQ((std::vector<std::string>{"data", "seven", "stopped", "empty", "dangling", "d/"}),
            names(e));
  const std::string sources[] = {"data", "data", "data", "empty", "dangling", "d"};
  for (size_t i = 0; i < e.size(); ++i) {
    const ProbedEntry& entry = e[i];
    EXPECT_EQ(zero ? 8u : 0u, entry.info.compression_method) << entry.name;
    // Format 0 says "made on Unix", so that other tools apply modes and links.
    EXPECT_TRUE(!zero || entry.info.version >> 8 == 3) << entry.name;
    // The time in UTC seconds in every central record; in format 0's local
    // headers too, while format 1's hold the size text alone or nothing.
    struct stat st;
    ASSERT_EQ(0, lstat((tmp / sources[i]).c_str(), &st));
    EXPECT_EQ(timestampBlock(st.st_mtime), entry.centralExtra) << entry.name;
    const bool regular = (entry.mode() & 0170000) == 0100000;
    if (zero || !regular) {
      EXPECT_EQ(zero ? timestampBlock(st.st_mtime) : "", entry.localExtra) << entry.name;
    } else {
      EXPECT_EQ(std::to_string(st.st_size) + std::string(1, '\0'), entry.localExtra) << entry.name;
    }
  }
  EXPECT_EQ(0100640u, e[0].mode());
  EXPECT_TRUE(content(e[0]) == data);
  EXPECT_EQ(e[0].stored.size(), reported);
  // Stopped during data: the content was made before its entry opened and
  // is written whole; format 0 marks it with a CRC that cannot match, so
  // that it reads as damaged.
  EXPECT_EQ(!zero, e[2].crcOk);
  EXPECT_TRUE(zero ? e[2].stored == data : content(e[2]) == data);
  EXPECT_EQ("", content(e[3]));
  EXPECT_EQ("/nowhere/at all", e[4].stored);  // a link: its target
  EXPECT_EQ(0120000u, e[4].mode() & 0170000);
  EXPECT_EQ("", e[5].stored);
  EXPECT_EQ(040750u, e[5].mode());
  if (zero) {
    EXPECT_LT(e[0].info.compressed_size, data.size() * 7 / 10);
  } else {
    // The restored size as text with its NUL, then the payload: dictionary
    // byte first, and only that and an end mark for an empty file.
    EXPECT_EQ(std::string("300000\0", 7), e[0].localExtra);
    EXPECT_EQ(0x18, e[0].stored[0]);
    EXPECT_EQ(std::string("0\0", 2), e[3].localExtra);
    EXPECT_EQ(std::string("\x18\x00", 2), e[3].stored);
  }
}

// One tree written every way and read back every way.
TYPED_TEST(Writer, WalkCompanionsAndRoundTrips) {
  using Handler = typename TypeParam::Handler;
  const bool zero = TypeParam::zero;
  const TempDir& tmp = this->tmp;
  const std::string top = makeTree(tmp), file = top + "/a.txt", inner = top + "/" + kUnicodeFile;
  ASSERT_TRUE(setAttr(file, "user.velzip.color", "blue") &&
              setAttr(inner, "user.velzip.color", "green") &&
              setAttr(inner, "user.com.apple.FinderInfo", "TEXTttxt" + std::string(24, 0)));
  const auto tempsBefore = writerTempFiles();
  LogCapture logs;
  {
    Handler zip((tmp / "w.zip").c_str(), nullptr, false);  // base: tmp, without a slash
    EXPECT_TRUE(zip.addFolderToZip(top.c_str(), false, true));
    // Companions on request, under "__MACOSX/"; none for links.
    EXPECT_TRUE(zip.addResourceForkToZip("top/a.txt", file.c_str()));
    EXPECT_TRUE(
        zip.addResourceForkToZip(("top/" + std::string(kUnicodeFile)).c_str(), inner.c_str()));
    EXPECT_TRUE(zip.addResourceForkToZip("link", (top + "/link-file").c_str()));
    EXPECT_FALSE(zip.addResourceForkToZip(nullptr, file.c_str()));
    EXPECT_TRUE(leftoverTempFiles(tempsBefore).empty());  // while the archive is still open
  }
  std::vector<std::string> expected{"top/"};
  expectedWalk(zero, false, top, tmp.path().size(), expected);
  expected.push_back(companionName("top/a.txt"));
  expected.push_back(companionName("top/" + std::string(kUnicodeFile)));
  const auto e = probe(tmp / "w.zip");
  ASSERT_EQ(expected, names(e));
  EXPECT_EQ(0100600u, e.back().mode());  // described as a private file
  // The format's reader restores everything, with the companions applied.
  const std::string dest = tmp / "dest";
  if (zero) {
    EXPECT_TRUE(UnzipHandler().unzip((tmp / "w.zip").c_str(), dest.c_str(), false, 0xFFFFFFFF));
  } else {
    EXPECT_TRUE(
        Vel::VelUnzipHandler().unzip((tmp / "w.zip").c_str(), dest.c_str(), false, 0xFFFFFFFF));
  }
  EXPECT_EQ(snapshot(top, !zero, true), snapshot(dest + "/top", !zero, true));
  EXPECT_FALSE(exists(dest + "/__MACOSX"));

  // Beside the folder: the walk without the folder's own entry. Python's
  // zipfile finds every CRC right, every name and every source item's mode.
  EXPECT_TRUE(Handler::ZipFolder(top.c_str(), false));
  EXPECT_EQ(std::vector<std::string>(expected.begin() + 1, expected.end() - 2),
            names(probe(top + ".zip")));
  writeFile(tmp / "check.py",
            "import os, sys, zipfile\n"
            "z = zipfile.ZipFile(sys.argv[1])\n"
            "bad = z.testzip()\n"
            "for i in z.infolist():\n"
            "    raw = i.filename.encode('utf-8' if i.flag_bits & 0x800 else 'cp437')\n"
            "    path = os.path.join(os.fsencode(sys.argv[2]), raw.lstrip(b'/'))\n"
            "    if not raw.startswith(b'__MACOSX/') and os.lstat(path).st_mode != i.external_attr "
            ">> 16:\n"
            "        bad = raw\n"
            "sys.exit(bad is not None and 'wrong: %r' % bad)\n");
  EXPECT_EQ(
      0,
      std::system(
          ("python3 '" + tmp / "check.py" + "' '" + top + ".zip' '" + tmp.path() + "'").c_str()));
  // Every peer checks format 0 whole. Format 1's size text is no tagged
  // extra block, which unzip and bsdtar refuse; 7-Zip checks its CRCs.
  for (const std::string check : {"unzip -tq", "bsdtar -tf", "7zz t"}) {
    if (zero || check == "7zz t") {
      EXPECT_EQ(0, runQuietly(check + " '" + top + ".zip'")) << check;
    }
  }
  // Format 1's payloads are velzip's own: other tools extract format 0 only.
  for (const std::string tool : {"unzip -q", "bsdtar -xf"}) {
    const std::string out = tmp / tool.substr(0, tool.find(' '));
    if (!zero || mkdir(out.c_str(), 0755) != 0) continue;
    const std::string command = "umask 022 && cd '" + out + "' && " + tool + " '" + top + ".zip'";
    ASSERT_EQ(0, std::system(command.c_str())) << tool;
    EXPECT_EQ(snapshot(top, false, false), snapshot(out + "/top", false, false)) << tool;
    EXPECT_TRUE(exists(out + "/__MACOSX/top/._a.txt"));  // companions are plain files there
  }

  // Flattened; trailing separators are the folder itself.
  {
    Handler zip((tmp / "flat.zip").c_str(), nullptr, false);
    EXPECT_TRUE(zip.addFolderToZip((top + "///").c_str(), true, false));
  }
  expected.clear();
  expectedWalk(zero, true, top, tmp.path().size(), expected);
  EXPECT_EQ(expected, names(probe(tmp / "flat.zip")));
  EXPECT_TRUE(leftoverTempFiles(tempsBefore).empty());
  EXPECT_TRUE(!zero || logs.lines().empty());  // format 0 never logs

  // Links count as files, only regular files add their size; calls add up.
  Z_FileInfo info;
  EXPECT_TRUE(Handler::GetFolderInfo((top + "//").c_str(), info));
  EXPECT_TRUE(Handler::GetFolderInfo(top.c_str(), info));
  EXPECT_EQ((std::vector<uint64_t>{20, 8, 2 * kTreeBytes}),
            (std::vector<uint64_t>{info.fileCount, info.folderCount, info.totalSize}));
  EXPECT_FALSE(Handler::GetFolderInfo((tmp / "missing").c_str(), info));
}

TYPED_TEST(Writer, WalkReportsAnswersAndFailures) {
  using Handler = typename TypeParam::Handler;
  const TempDir& tmp = this->tmp;
  const std::string top = makeTree(tmp), zipPath = tmp / "cb.zip";
  ProgressRecorder rec;
  Answers answers;
  rec.answer = std::ref(answers);
  answers.atStart[top + "/a.txt"] = kZLibSkip;
  {
    Handler zip(zipPath.c_str(), top.c_str(), false);
    zip.setCallback(ProgressRecorder::callback, &rec);
    EXPECT_TRUE(zip.addFolderToZip(top.c_str(), false, false));
  }
  // Files are reported by their path, links not at all; format 0 reports each
  // companion too, with the path of the file it describes.
  size_t files = 0;
  for (const auto& r : rec.reports) {
    if (r.state != kZLibStateEntryStart) continue;
    if (r.entry.rfind("__MACOSX/", 0) != 0) {
      EXPECT_EQ(r.entry, r.path);
      ++files;
    } else {
      const std::string described = r.path.substr(r.path.rfind('/') + 1);
      EXPECT_TRUE(TypeParam::zero && r.path.rfind(top + "/", 0) == 0 &&
                  r.entry.size() > described.size() + 2 &&
                  r.entry.compare(r.entry.size() - described.size() - 2, std::string::npos,
                                  "._" + described) == 0)
          << r.entry << " " << r.path;
    }
  }
  EXPECT_EQ(7u, files);
  const auto stored = names(probe(zipPath));
  const std::string p = TypeParam::zero ? "" : "/";
  EXPECT_EQ(0, std::count(stored.begin(), stored.end(), p + "a.txt"));          // skipped,
  EXPECT_EQ(1, std::count(stored.begin(), stored.end(), p + "sub/inner.bin"));  // and on

  // An abort stops the walk with failure, as does the first child that fails,
  // at every level above it.
  rec.reports.clear();
  answers.atStart[top + "/sub/inner.bin"] = kZLibAbort;
  Handler zip(zipPath.c_str(), top.c_str(), false);
  zip.setCallback(ProgressRecorder::callback, &rec);
  EXPECT_FALSE(zip.addFolderToZip(top.c_str(), false, false));
  EXPECT_EQ(top + "/sub/inner.bin", rec.reports.back().entry);
  EXPECT_FALSE(zip.addFolderToZip((tmp / "elsewhere").c_str(), false, false));  // outside the base
  ASSERT_EQ(0, mkfifo((top + "/sub/deeper/fifo").c_str(), 0644));
  EXPECT_FALSE(Handler::ZipFolder(top.c_str(), false));
  EXPECT_FALSE(Handler::ZipFolder((tmp / "missing").c_str(), false));
  EXPECT_FALSE(Handler().addFolderToZip(top.c_str(), false, false));  // nothing open
}

TEST(Format1Writer, NamedArchivesAndLogLines) {
  TempDir tmp;
  const std::string top = makeTree(tmp), named = tmp / "named.zip";
  // Into a named archive, base = the folder: with its slash names are plain,
  // without it file names keep a leading "/".
  for (const std::string& folder : {top + "/", top}) {
    std::vector<std::string> expected;
    expectedWalk(false, false, top, folder.size(), expected);
    EXPECT_TRUE(Vel::VelZipHandler::ZipFolder(folder.c_str(), named.c_str(), false));
    EXPECT_EQ(expected, names(probe(named))) << folder;
  }
  EXPECT_FALSE(Vel::VelZipHandler::ZipFolder("top/", named.c_str(), false));  // read as top/top/

  LogCapture logs;
  const std::string badZip = tmp / "no/such/dir.zip";
  EXPECT_FALSE(Vel::VelZipHandler::ZipFolder(top.c_str(), badZip.c_str(), false));
  Vel::VelZipHandler zip((tmp / "f.zip").c_str(), top.c_str(), false);
  EXPECT_FALSE(zip.addFolderToZip((tmp / "elsewhere").c_str(), false, false));
  EXPECT_TRUE(zip.addFolderToZip((top + "/sub").c_str(), false, false));
  const std::pair<int, std::string> wanted[] = {
      {50, "opening zip " + badZip + " failed "},
      {30, "Entering to add folder " + tmp / "elsewhere" + " in zip (addrootfolder = 0)"},
      {10, "Found directory deeper inside directory " + top + "/sub"},
      {10, "Found file inner.bin inside directory " + top + "/sub"},
      {30, "Entering to add folder " + top + "/sub/deeper in zip (addrootfolder = 1)"}};
  for (const auto& [level, text] : wanted) {
    EXPECT_TRUE(std::any_of(logs.lines().begin(), logs.lines().end(), [&](const LogLine& l) {
      return l.level == level && l.text == text && l.module == "VELZIP" &&
             l.component == "VelzipHandler" && l.tag1.empty() && l.tag2.empty();
    })) << text;
  }
}

}  // namespace
