// The format-0 writer: deflated entries without extra fields, its stored-name
// rule, the folder walk (no sub-folder entries, a companion after every
// file), progress in source bytes, silence, and gzip members.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "archive_probe.h"
#include "platform/apple_double.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/ZipHandler.h"

using namespace velzip_test;

namespace {

std::vector<std::string> listing(const std::string& folder) {
  std::vector<std::string> names;
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) return names;
  while (const dirent* d = readdir(dir)) {
    const std::string n = d->d_name;
    if (n != "." && n != "..") names.push_back(n);
  }
  closedir(dir);
  return names;
}

bool lstatMode(const std::string& path, mode_t& mode) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return false;
  mode = st.st_mode;
  return true;
}

// The entries a format-0 walk of folder must produce, in listing order:
// folders none, every item the rest after the base folder and one more
// character, and after each regular file its companion.
void expectedWalk(const std::string& folder, size_t baseLen, std::vector<std::string>& out) {
  for (const auto& n : listing(folder)) {
    const std::string child = folder + "/" + n;
    mode_t mode = 0;
    ASSERT_TRUE(lstatMode(child, mode));
    if (S_ISDIR(mode)) {
      expectedWalk(child, baseLen, out);
      continue;
    }
    const std::string name = child.substr(baseLen + 1);
    out.push_back(name);
    if (S_ISREG(mode)) {
      const size_t slash = name.rfind('/');
      out.push_back("__MACOSX/" + name.substr(0, slash + 1) + "._" + name.substr(slash + 1));
    }
  }
}

// top/{a.txt, big, empty, sub/{inner.bin, deeper/d}, emptydir/,
//      link-file -> a.txt, link-dir -> sub}
std::string makeTree(const TempDir& tmp) {
  const std::string top = tmp / "top";
  mkdir(top.c_str(), 0755);
  mkdir((top + "/sub").c_str(), 0750);
  mkdir((top + "/sub/deeper").c_str(), 0700);
  mkdir((top + "/emptydir").c_str(), 0755);
  writeFile(top + "/a.txt", "alpha");
  writeFile(top + "/big", sampleBytes(150000, 3));
  writeFile(top + "/empty", "");
  writeFile(top + "/sub/inner.bin", sampleBytes(1234, 4));
  writeFile(top + "/sub/deeper/d", "d");
  chmod((top + "/sub/inner.bin").c_str(), 0751);
  symlink("a.txt", (top + "/link-file").c_str());
  symlink("sub", (top + "/link-dir").c_str());
  return top;
}

bool hasAttribute(const std::string& packed, const std::string& name, const std::string& value) {
  velzip::AppleDoubleContents contents;
  if (!velzip::appleDoubleParse(reinterpret_cast<const uint8_t*>(packed.data()), packed.size(),
                                contents)) {
    return false;
  }
  for (const auto& a : contents.attributes)
    if (a.name == name && std::string(a.value.begin(), a.value.end()) == value) return true;
  return false;
}

struct Call {
  int state;
  uint32_t bytes;
  std::string entryName, filePath;
};

struct Recorder {
  std::vector<Call> calls;
  int duringData = 0;  // the answer in the data phase
};

ZLibCallbackAction record(ZLibCBData* d) {
  auto* r = static_cast<Recorder*>(d->userData);
  r->calls.push_back(
      {d->state, d->bytes, d->entryName ? d->entryName : "", d->filePath ? d->filePath : ""});
  return static_cast<ZLibCallbackAction>(d->state == kZLibStateEntryData ? r->duringData : 0);
}

}  // namespace

TEST(ZipHandlerWriter, DeflatedEntriesWithoutExtraFields) {
  TempDir tmp;
  const std::string text = sampleBytes(200000, 5);
  writeFile(tmp / "text", text);
  writeFile(tmp / "empty", "");
  ASSERT_EQ(0, chmod((tmp / "text").c_str(), 0604));
  ASSERT_EQ(0, symlink("text", (tmp / "ln").c_str()));
  ASSERT_EQ(0, mkdir((tmp / "d").c_str(), 0750));
  {
    ZipHandler zip((tmp / "a.zip").c_str(), nullptr, false);
    EXPECT_TRUE(zip.addFileToZip((tmp / "text").c_str(), nullptr, false));
    EXPECT_TRUE(zip.addFileToZip((tmp / "empty").c_str(), nullptr, false));
    EXPECT_TRUE(zip.addFileToZip((tmp / "ln").c_str(), nullptr, false));
    EXPECT_TRUE(zip.addFolderToZip((tmp / "d").c_str(), false, true));
  }
  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(tmp / "a.zip", entries));  // CRCs checked on the way
  ASSERT_EQ((std::vector<std::string>{"text", "empty", "ln", "d/"}), entryNames(entries));
  for (const auto& e : entries) {
    EXPECT_EQ(8, e.method) << e.name;
    EXPECT_TRUE(e.localExtra.empty()) << e.name;
    EXPECT_EQ(0u, e.info.size_file_extra) << e.name;
    EXPECT_EQ(3u, e.info.version >> 8) << e.name;  // made on Unix: tools apply the modes
  }
  EXPECT_TRUE(entries[0].stored == text);
  EXPECT_LT(entries[0].info.compressed_size, text.size() * 7 / 10);
  EXPECT_EQ(0100604u, entries[0].mode);
  EXPECT_EQ("", entries[1].stored);
  EXPECT_EQ("text", entries[2].stored);
  EXPECT_EQ(0120000u, entries[2].mode & 0170000);
  EXPECT_EQ(040750u, entries[3].mode);
  EXPECT_EQ("", entries[3].stored);

  // A failed entry leaves the archive usable and its entry well-formed.
  Recorder rec;
  rec.duringData = kZLibAbort;
  ZipHandler zip((tmp / "b.zip").c_str(), nullptr, false);
  zip.setCallback(record, &rec);
  EXPECT_FALSE(zip.addFileToZip((tmp / "text").c_str(), nullptr, false));
  rec.duringData = 0;
  EXPECT_TRUE(zip.addFileToZip((tmp / "text").c_str(), "again", false));
  ASSERT_TRUE(zip.closeZip());
  ASSERT_TRUE(probeArchive(tmp / "b.zip", entries));
  ASSERT_EQ((std::vector<std::string>{"text", "again"}), entryNames(entries));
  EXPECT_EQ(65536u, entries[0].stored.size());
  EXPECT_TRUE(entries[0].stored == text.substr(0, 65536));
  EXPECT_TRUE(entries[1].stored == text);
}

TEST(ZipHandlerWriter, StoredNamesDropOneCharacterAfterTheBase) {
  TempDir tmp;
  const std::string base = tmp / "base";
  ASSERT_EQ(0, mkdir(base.c_str(), 0755));
  ASSERT_EQ(0, mkdir((base + "/dir").c_str(), 0755));
  writeFile(base + "/dir/f", "f");
  writeFile(tmp / "outside", "o");

  std::vector<ProbedEntry> entries;
  ZipHandler zip;
  // With a trailing slash on the base the dropped character is a real one.
  ASSERT_TRUE(zip.openZip((tmp / "slash.zip").c_str(), (base + "/").c_str(), false));
  EXPECT_TRUE(zip.addFileToZip((base + "/dir/f").c_str(), nullptr, false));
  // Relative paths, explicit names and flattening are not affected.
  EXPECT_TRUE(zip.addFileToZip("dir/f", nullptr, false));
  EXPECT_TRUE(zip.addFileToZip("dir/f", nullptr, true));
  EXPECT_TRUE(zip.addFileToZip((base + "/dir/f").c_str(), "named", false));
  EXPECT_FALSE(zip.addFileToZip((tmp / "outside").c_str(), nullptr, false));
  ASSERT_TRUE(zip.closeZip());
  ASSERT_TRUE(probeArchive(tmp / "slash.zip", entries));
  EXPECT_EQ((std::vector<std::string>{"ir/f", "dir/f", "f", "named"}), entryNames(entries));
  for (const auto& e : entries) EXPECT_EQ("f", e.stored);

  // Without it, the separator goes: plain relative names.
  ASSERT_TRUE(zip.openZip((tmp / "plain.zip").c_str(), base.c_str(), false));
  EXPECT_TRUE(zip.addFileToZip((base + "/dir/f").c_str(), nullptr, false));
  ASSERT_TRUE(zip.closeZip());
  ASSERT_TRUE(probeArchive(tmp / "plain.zip", entries));
  EXPECT_EQ(std::vector<std::string>{"dir/f"}, entryNames(entries));

  // One file beside itself: stored under its own name, without a companion.
  EXPECT_TRUE(ZipHandler::ZipFile((base + "/dir/f").c_str()));
  ASSERT_TRUE(probeArchive(base + "/dir/f.zip", entries));
  ASSERT_EQ(std::vector<std::string>{"f"}, entryNames(entries));
  EXPECT_EQ(8, entries[0].method);
  EXPECT_FALSE(ZipHandler::ZipFile((base + "/missing").c_str()));
}

TEST(ZipHandlerWriter, FolderWalkAddsCompanionsAndNoSubFolderEntries) {
  TempDir tmp;
  const std::string top = makeTree(tmp);
  const bool xattrs =
      setxattr((top + "/sub/inner.bin").c_str(), "user.velzip.note", "kept", 4, 0) == 0;
  const auto tempsBefore = writerTempFiles();
  LogCapture logs;

  // Beside the folder: names relative to its parent, no entry for any folder.
  ASSERT_TRUE(ZipHandler::ZipFolder(top.c_str(), false));
  std::vector<std::string> expected;
  expectedWalk(top, tmp.path().size(), expected);
  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(top + ".zip", entries));
  EXPECT_EQ(expected, entryNames(entries));
  for (const char* n :
       {"top/a.txt", "__MACOSX/top/._a.txt", "top/sub/inner.bin", "__MACOSX/top/sub/._inner.bin",
        "__MACOSX/top/sub/deeper/._d", "top/link-file", "top/link-dir", "__MACOSX/top/._empty"}) {
    EXPECT_NE(nullptr, findEntry(entries, n)) << n;
  }
  for (const char* n : {"top/", "top/sub/", "top/emptydir/", "__MACOSX/top/._link-file",
                        "__MACOSX/top/._link-dir"}) {
    EXPECT_EQ(nullptr, findEntry(entries, n)) << n;
  }
  const ProbedEntry* inner = findEntry(entries, "top/sub/inner.bin");
  ASSERT_NE(nullptr, inner);
  EXPECT_EQ(0100751u, inner->mode);
  EXPECT_TRUE(inner->stored == sampleBytes(1234, 4));
  EXPECT_EQ("sub", findEntry(entries, "top/link-dir")->stored);
  const ProbedEntry* companion = findEntry(entries, "__MACOSX/top/sub/._inner.bin");
  ASSERT_NE(nullptr, companion);
  EXPECT_EQ(8, companion->method);
  if (xattrs) {
    EXPECT_TRUE(hasAttribute(companion->stored, "velzip.note", "kept"));
  }

  // Only the folder itself can get an entry; names drop the base's separator.
  {
    ZipHandler zip((tmp / "root.zip").c_str(), (tmp.path() + "/").c_str(), false);
    EXPECT_TRUE(zip.addFolderToZip(top.c_str(), false, true));
  }
  ASSERT_TRUE(probeArchive(tmp / "root.zip", entries));
  std::vector<std::string> withRoot{"top/"};
  for (const auto& n : expected) {
    // With the slash in the base, every file name loses its first character.
    const bool isCompanion = n.compare(0, 9, "__MACOSX/") == 0;
    withRoot.push_back(isCompanion ? n : n.substr(1));
  }
  EXPECT_EQ(withRoot, entryNames(entries));

  // Flattened: last components, companions directly under __MACOSX/.
  ASSERT_TRUE(ZipHandler::ZipFolder(top.c_str(), true));
  ASSERT_TRUE(probeArchive(top + ".zip", entries));
  for (const char* n : {"inner.bin", "__MACOSX/._inner.bin", "d", "__MACOSX/._d", "link-dir"})
    EXPECT_NE(nullptr, findEntry(entries, n)) << n;
  for (const auto& e : entries) EXPECT_NE('/', e.name.back()) << e.name;

  // The walk never logs; the companions' scratch file is gone afterwards.
  EXPECT_TRUE(logs.lines().empty());
  EXPECT_TRUE(leftoverTempFiles(tempsBefore).empty());

  // The first failing child stops the walk and fails every level above it.
  ASSERT_EQ(0, mkfifo((top + "/sub/deeper/fifo").c_str(), 0644));
  EXPECT_FALSE(ZipHandler::ZipFolder(top.c_str(), false));
  EXPECT_FALSE(ZipHandler::ZipFolder((tmp / "missing").c_str(), false));
  EXPECT_FALSE(ZipHandler::ZipFolder(nullptr, false));
  ZipHandler closed;
  EXPECT_FALSE(closed.addFolderToZip(top.c_str(), false, false));
  EXPECT_TRUE(logs.lines().empty());
}

TEST(ZipHandlerWriter, ProgressCountsSourceBytes) {
  TempDir tmp;
  const std::string noisy = sampleBytes(200000, 9);
  writeFile(tmp / "f", noisy);
  Recorder rec;
  ZipHandler zip((tmp / "p.zip").c_str(), nullptr, false);
  zip.setCallback(record, &rec);
  EXPECT_TRUE(zip.addFileToZip("f", nullptr, false));
  ASSERT_EQ(6u, rec.calls.size());
  EXPECT_EQ(kZLibStateEntryStart, rec.calls[0].state);
  EXPECT_EQ("f", rec.calls[0].entryName);
  EXPECT_EQ(tmp / "f", rec.calls[0].filePath);
  const uint32_t blocks[] = {65536, 65536, 65536, 200000 - 3 * 65536};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(kZLibStateEntryData, rec.calls[i + 1].state);
    EXPECT_EQ(blocks[i], rec.calls[i + 1].bytes);
    EXPECT_EQ("", rec.calls[i + 1].entryName);
  }
  EXPECT_EQ(kZLibStateEntryDone, rec.calls[5].state);
  EXPECT_EQ(tmp / "f", rec.calls[5].filePath);

  // A source that cannot be opened fails after the start report, with no end.
  rec.calls.clear();
  EXPECT_FALSE(zip.addFileToZip("missing", nullptr, false));
  ASSERT_EQ(1u, rec.calls.size());
  EXPECT_EQ(kZLibStateEntryStart, rec.calls[0].state);
  ASSERT_TRUE(zip.closeZip());
  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(tmp / "p.zip", entries));
  EXPECT_EQ(std::vector<std::string>{"f"}, entryNames(entries));

  // In a walk, companions are reported too, read from the scratch file.
  ASSERT_EQ(0, mkdir((tmp / "w").c_str(), 0755));
  writeFile(tmp / "w/x", "x");
  rec.calls.clear();
  ASSERT_TRUE(zip.openZip((tmp / "w.zip").c_str(), nullptr, false));
  EXPECT_TRUE(zip.addFolderToZip((tmp / "w").c_str(), false, false));
  std::vector<std::string> started;
  for (const auto& c : rec.calls) {
    if (c.state != kZLibStateEntryStart) continue;
    started.push_back(c.entryName);
    if (c.entryName == "__MACOSX/w/._x") {
      EXPECT_EQ(0u, c.filePath.rfind("/tmp/ulvozip.temp.", 0)) << c.filePath;
    }
  }
  EXPECT_EQ((std::vector<std::string>{tmp / "w/x", "__MACOSX/w/._x"}), started);
}

TEST(ZipHandlerWriter, GZipFileAppendsMembers) {
  TempDir tmp;
  const std::string data = sampleBytes(4096, 2);  // a whole number of read blocks
  writeFile(tmp / "g", data);
  EXPECT_TRUE(ZipHandler::GZipFile(tmp / "g"));
  const size_t firstMember = readFile(tmp / "g.gz").size();
  EXPECT_TRUE(ZipHandler::GZipFile(tmp / "g"));
  EXPECT_EQ(data, readFile(tmp / "g"));  // the source stays
  const std::string gz = readFile(tmp / "g.gz");
  ASSERT_GT(gz.size(), firstMember + 2);
  EXPECT_EQ("\x1f\x8b", gz.substr(0, 2));
  EXPECT_EQ("\x1f\x8b", gz.substr(firstMember, 2));  // a second member, not a rewrite

  // Reading through every member gives the content twice.
  gzFile in = gzopen((tmp / "g.gz").c_str(), "rb");
  ASSERT_NE(nullptr, in);
  std::string out(3 * data.size(), '\0');
  const int n = gzread(in, &out[0], static_cast<unsigned>(out.size()));
  gzclose(in);
  ASSERT_EQ(static_cast<int>(2 * data.size()), n);
  EXPECT_TRUE(out.substr(0, n) == data + data);

  EXPECT_FALSE(ZipHandler::GZipFile(tmp / "missing"));
  EXPECT_TRUE(exists(tmp / "missing.gz"));
}
