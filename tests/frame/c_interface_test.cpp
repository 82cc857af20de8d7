#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/velzip.h"

using velzip_test::exists;
using velzip_test::readFile;
using velzip_test::sampleBytes;
using velzip_test::TempDir;
using velzip_test::writeFile;

namespace {

// A small tree: a file with its own mode, a sub-folder, an empty folder and
// a link.
std::string makeTree(const TempDir& dir, const std::string& name = "src") {
  const std::string root = dir / name;
  mkdir(root.c_str(), 0755);
  mkdir((root + "/sub").c_str(), 0750);
  mkdir((root + "/empty").c_str(), 0755);
  writeFile(root + "/f", sampleBytes(70000, 3));
  chmod((root + "/f").c_str(), 0640);
  writeFile(root + "/sub/g", "gee");
  symlink("f", (root + "/link").c_str());
  return root;
}

std::set<std::string> entryNames(const std::string& archive) {
  std::set<std::string> names;
  Vel::VelUnzipHandler reader(archive.c_str());
  UZ_FileInfo info;
  for (bool more = reader.gotoFirstFile(nullptr); more; more = reader.gotoNextFile(nullptr)) {
    if (reader.getFileInfo(info)) names.insert(info.fileName);
  }
  return names;
}

struct Recorder {
  std::vector<int> states;
  std::vector<void*> userData;
  int answer = kZLibContinue;
};

ZLibCallbackAction record(ZLibCBData* d) {
  auto* r = static_cast<Recorder*>(d->userData);
  r->states.push_back(d->state);
  r->userData.push_back(d->userData);
  return static_cast<ZLibCallbackAction>(r->answer);
}

ZLibCallbackAction throwing(ZLibCBData*) {
  throw std::runtime_error("host callback failed");
}

mode_t modeOf(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? st.st_mode : 0;
}

}  // namespace

TEST(CInterface, NullArgumentsAndUnknownFormatsFailWithoutTouchingTheDisk) {
  TempDir dir;
  const std::string src = makeTree(dir);
  const std::string good = dir / "good.zip";
  ASSERT_EQ(velzipCompressFolder(src.c_str(), good.c_str(), 1, nullptr, nullptr), 0);

  for (int format : {0, 1}) {
    EXPECT_EQ(velzipCompressFolder(nullptr, good.c_str(), format, nullptr, nullptr), 1);
    EXPECT_EQ(velzipCompressFolder(src.c_str(), nullptr, format, nullptr, nullptr), 1);
    EXPECT_EQ(velzipDecompressFile(nullptr, (dir / "d").c_str(), format, nullptr, nullptr), 1);
    EXPECT_EQ(velzipDecompressFile(good.c_str(), nullptr, format, nullptr, nullptr), 1);
  }
  EXPECT_FALSE(exists(src + ".zip")) << "a null archive path must not reach format 0";

  Recorder rec;
  for (int format : {2, -1, 100}) {
    EXPECT_EQ(velzipCompressFolder(src.c_str(), (dir / "x.zip").c_str(), format, record, &rec), 1);
    EXPECT_EQ(velzipDecompressFile(good.c_str(), (dir / "x").c_str(), format, record, &rec), 1);
  }
  EXPECT_FALSE(exists(dir / "x.zip"));
  EXPECT_FALSE(exists(src + ".zip"));
  EXPECT_FALSE(exists(dir / "x"));
  EXPECT_TRUE(rec.states.empty());
}

TEST(CInterface, FormatOneNamesAreRelativeToTheFolderWithOrWithoutSlash) {
  TempDir dir;
  const std::string src = makeTree(dir);
  const std::string plain = dir / "plain.zip", slashed = dir / "slashed.zip";
  Recorder never;
  never.answer = kZLibAbort;  // would stop the first entry if it were ever asked
  ASSERT_EQ(velzipCompressFolder(src.c_str(), plain.c_str(), 1, record, &never), 0);
  EXPECT_TRUE(never.states.empty()) << "compression never calls the host callback";
  ASSERT_EQ(velzipCompressFolder((src + "/").c_str(), slashed.c_str(), 1, nullptr, nullptr), 0);
  EXPECT_EQ(readFile(plain), readFile(slashed));
  EXPECT_EQ(entryNames(plain), (std::set<std::string>{"f", "link", "sub/", "sub/g", "empty/"}));
  EXPECT_FALSE(exists(src + ".zip"));
}

TEST(CInterface, FormatOneRoundTripReportsToTheDecompressionCallback) {
  TempDir dir;
  const std::string src = makeTree(dir);
  const std::string archive = dir / "a.zip", out = dir / "out";
  ASSERT_EQ(velzipCompressFolder(src.c_str(), archive.c_str(), 1, nullptr, nullptr), 0);

  Recorder rec;
  ASSERT_EQ(velzipDecompressFile(archive.c_str(), out.c_str(), 1, record, &rec), 0);
  EXPECT_EQ(readFile(out + "/f"), readFile(src + "/f"));
  EXPECT_EQ(readFile(out + "/sub/g"), "gee");
  EXPECT_EQ(modeOf(out + "/f") & 07777, 0640u);
  EXPECT_EQ(modeOf(out + "/sub") & 07777, 0750u);
  EXPECT_TRUE(S_ISDIR(modeOf(out + "/empty")));
  char target[16] = {};
  ASSERT_EQ(readlink((out + "/link").c_str(), target, sizeof target - 1), 1);
  EXPECT_STREQ(target, "f");

  std::set<int> seen(rec.states.begin(), rec.states.end());
  EXPECT_EQ(seen, (std::set<int>{kZLibStateEntryStart, kZLibStateEntryData, kZLibStateEntryDone}));
  for (void* p : rec.userData) EXPECT_EQ(p, &rec);

  // The same callback can stop it.
  Recorder stop;
  stop.answer = kZLibAbort;
  EXPECT_EQ(velzipDecompressFile(archive.c_str(), (dir / "stopped").c_str(), 1, record, &stop), 1);
  EXPECT_FALSE(stop.states.empty());
}

TEST(CInterface, FailuresOfTheOperationBecomeOne) {
  TempDir dir;
  const std::string src = makeTree(dir), archive = dir / "a.zip";
  ASSERT_EQ(velzipCompressFolder(src.c_str(), archive.c_str(), 1, nullptr, nullptr), 0);
  writeFile(dir / "junk.zip", "this is not a zip archive");
  const std::string missing = dir / "missing", out = dir / "o";
  EXPECT_EQ(velzipCompressFolder(missing.c_str(), (dir / "m.zip").c_str(), 1, nullptr, nullptr), 1);
  EXPECT_EQ(velzipDecompressFile((dir / "junk.zip").c_str(), out.c_str(), 1, nullptr, nullptr), 1);
  EXPECT_EQ(velzipDecompressFile(missing.c_str(), out.c_str(), 1, nullptr, nullptr), 1);
  // A host callback that throws: the exception stays inside.
  int32_t result = -1;
  EXPECT_NO_THROW(result =
                      velzipDecompressFile(archive.c_str(), out.c_str(), 1, throwing, nullptr));
  EXPECT_EQ(result, 1);
  // An empty format-1 source gets no slash: the archive is made, the folder is not found.
  const std::string empty = dir / "empty.zip";
  EXPECT_EQ(velzipCompressFolder("", empty.c_str(), 1, nullptr, nullptr), 1);
  ASSERT_TRUE(exists(empty));
  EXPECT_TRUE(entryNames(empty).empty());
  // The C interface takes no password: an encrypted entry fails cleanly.
  writeFile(dir / "secret.txt", "top secret");
  const std::string locked = dir / "locked.zip";
  const std::string zip = "cd '" + dir.path() + "' && zip -q -P pw '" + locked + "' secret.txt";
  if (std::system(zip.c_str()) == 0) {
    mkdir((dir / "l").c_str(), 0755);
    writeFile(dir / "l/secret.txt", "what was there");
    EXPECT_EQ(velzipDecompressFile(locked.c_str(), (dir / "l").c_str(), 0, nullptr, nullptr), 1);
    EXPECT_EQ(readFile(dir / "l/secret.txt"), "what was there") << "a failed entry keeps it";
  }
}

TEST(CInterface, FormatZeroWritesBesideTheSourceWhateverTheArchivePath) {
  TempDir dir;
  mkdir((dir / "a").c_str(), 0755);
  const std::string src = makeTree(dir, "a/b");
  Recorder never;
  never.answer = kZLibAbort;
  ASSERT_EQ(
      velzipCompressFolder(src.c_str(), (dir / "elsewhere/out.zip").c_str(), 0, record, &never), 0);
  EXPECT_TRUE(never.states.empty());
  EXPECT_FALSE(exists(dir / "elsewhere"));
  const std::string archive = src + ".zip";
  ASSERT_TRUE(exists(archive));
  const std::set<std::string> names = entryNames(archive);
  EXPECT_TRUE(names.count("b/f") == 1 && names.count("b/sub/g") == 1 && names.count("b/link") == 1)
      << "names start with the folder's own name";
  EXPECT_EQ(names.count("b/sub/"), 0u) << "sub-folders get no entry of their own";

  Recorder rec;
  ASSERT_EQ(velzipDecompressFile(archive.c_str(), (dir / "out").c_str(), 0, record, &rec), 0);
  EXPECT_EQ(readFile(dir / "out/b/f"), readFile(src + "/f"));
  EXPECT_EQ(modeOf(dir / "out/b/f") & 07777, 0640u);
  EXPECT_EQ(readFile(dir / "out/b/sub/g"), "gee");
  EXPECT_TRUE(S_ISLNK(modeOf(dir / "out/b/link")));
  EXPECT_FALSE(exists(dir / "out/__MACOSX")) << "companions go back onto their files";
  EXPECT_FALSE(rec.states.empty());
  for (void* p : rec.userData) EXPECT_EQ(p, &rec);

  // The format-1 reader finds no size text in a deflated entry.
  EXPECT_EQ(velzipDecompressFile(archive.c_str(), (dir / "wrong").c_str(), 1, nullptr, nullptr), 1);
}
