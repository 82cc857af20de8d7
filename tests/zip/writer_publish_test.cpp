// Both writers (test /0 is format 0, /1 format 1) build an archive beside its
// path and put it there only when it is closed: until then, and whenever the
// archive cannot be written whole (a full disk, a killed process), whatever
// stood at the path keeps its bytes and nothing else is left, beside it or in
// /tmp. A walk that fails part-way still publishes what it wrote, as it always did.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <set>
#include <string>

#include "support/child.h"
#include "support/probe.h"
#include "support/small_disk.h"
#include "support/temp_dir.h"
#include "velzip/velzip.h"
#include "zip/writer_support.h"

using namespace velzip_test;

namespace {

template <class F>
class Publishing : public ::testing::Test {
 protected:
  // A source folder and an output folder, both empty.
  void SetUp() override {
    ASSERT_EQ(0, mkdir(src.c_str(), 0755));
    ASSERT_EQ(0, mkdir(out.c_str(), 0755));
  }

  TempDir tmp;
  const std::string src = tmp / "src", out = tmp / "out";
};
TYPED_TEST_SUITE(Publishing, Formats);

using Names = std::set<std::string>;

std::string contentOrNone(const std::string& path) {
  return exists(path) ? readFile(path) : "<none>";
}

TYPED_TEST(Publishing, ArchiveAppearsOnlyWhenClosed) {
  using Handler = typename TypeParam::Handler;
  const std::string &src = this->src, &out = this->out, archive = out + "/a.zip";
  writeFile(src + "/f", sampleBytes(100000, 1));
  writeFile(src + "/g", "g");
  const size_t entries = TypeParam::zero ? 4 : 2;  // format 0: a companion after each file

  enum class End { kClose, kDestructor, kDiscard, kReopen };
  const struct {
    End end;
    bool old;
  } cases[] = {{End::kClose, false},   {End::kClose, true},   {End::kDestructor, true},
               {End::kDiscard, false}, {End::kDiscard, true}, {End::kReopen, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(static_cast<int>(c.end)) + (c.old ? " over an old file" : ""));
    std::filesystem::remove_all(out);
    ASSERT_EQ(0, mkdir(out.c_str(), 0755));
    if (c.old) {
      writeFile(archive, "old bytes");
      ASSERT_EQ(0, chmod(archive.c_str(), 0640));
    }
    const Names before = folderItems(out);
    const size_t fds = openDescriptors();
    auto zip = std::make_unique<Handler>();
    ASSERT_TRUE(zip->openZip(archive.c_str(), src.c_str(), false));
    ASSERT_TRUE(zip->addFolderToZip(src.c_str(), false, false));
    // Meanwhile the path keeps what it had and nothing else shows.
    EXPECT_EQ(c.old ? "old bytes" : "<none>", contentOrNone(archive));
    EXPECT_EQ(before, folderItems(out));
    switch (c.end) {
      case End::kClose:
        EXPECT_TRUE(zip->closeZip());
        EXPECT_FALSE(zip->discardZip());  // nothing is open any more
        break;
      case End::kDestructor:
        zip.reset();
        break;
      case End::kDiscard:
        EXPECT_TRUE(zip->discardZip());
        EXPECT_TRUE(zip->closeZip());
        break;
      case End::kReopen:  // closes the first archive, then drops the second
        EXPECT_TRUE(zip->openZip((out + "/b.zip").c_str(), src.c_str(), false));
        EXPECT_TRUE(zip->discardZip());
        break;
    }
    EXPECT_TRUE(!zip || std::string(zip->lastError()).empty());
    zip.reset();
    const bool published = c.end != End::kDiscard;
    EXPECT_EQ(published || c.old ? Names{"a.zip"} : Names{}, folderItems(out));
    if (published) {
      EXPECT_EQ(entries, probe(archive).size());
      EXPECT_EQ(c.old ? 0640u : umasked(0666), permissions(archive));  // kept when replaced
    } else {
      EXPECT_EQ(c.old ? "old bytes" : "<none>", contentOrNone(archive));
    }
    EXPECT_EQ(fds, openDescriptors());
  }
}

TYPED_TEST(Publishing, AppendKeepsTheOldBytesInFront) {
  using Handler = typename TypeParam::Handler;
  const TempDir& tmp = this->tmp;
  const std::string archive = tmp / "old.zip";
  writeFile(tmp / "f", sampleBytes(5000, 2));
  writeFile(tmp / "g", "g");
  ASSERT_EQ(0, runQuietly("cd '" + tmp.path() + "' && zip -q old.zip f"));
  ASSERT_EQ(0, chmod(archive.c_str(), 0604));
  const std::string old = readFile(archive);
  {
    Handler zip(archive.c_str(), nullptr, true);
    EXPECT_TRUE(zip.addFileToZip("g", nullptr, false));
    EXPECT_EQ(old, readFile(archive));  // untouched until closed
  }
  const std::string now = readFile(archive);
  EXPECT_TRUE(now.size() > old.size() && now.compare(0, old.size(), old) == 0);
  EXPECT_EQ(0604u, permissions(archive));
  // The new archive's central directory is the one readers find.
  const auto e = probe(archive);
  ASSERT_EQ(1u, e.size());
  EXPECT_EQ("g", content(e[0]));
}

TYPED_TEST(Publishing, FullDiskKeepsTheOldArchive) {
  using Handler = typename TypeParam::Handler;
  const std::string &src = this->src, &out = this->out, archive = out + "/old.zip";
  SmallDisk disk(out, 1024);
  if (!disk.mounted()) GTEST_SKIP() << "a tmpfs cannot be mounted here";
  // Out of room in the archive, or (format 1) already while a payload
  // beyond the memory cap is staged beside it.
  const struct {
    size_t size;
    std::string what;
  } cases[] = {{3 << 20, "cannot write " + archive},
               {6 << 20, TypeParam::zero ? "cannot write " + archive
                                         : "cannot stage the payload of " + src + "/big"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    writeFile(src + "/big", noiseBytes(c.size, 3));
    writeFile(archive, "the old archive");
    const size_t fds = openDescriptors();
    const auto tmpBefore = writerTempFiles();
    {
      Handler zip;
      ASSERT_TRUE(zip.openZip(archive.c_str(), src.c_str(), false));
      EXPECT_FALSE(zip.addFolderToZip(src.c_str(), false, false));
      const std::string why = zip.lastError();
      EXPECT_EQ(0u, why.rfind(c.what, 0)) << why;
      EXPECT_NE(std::string::npos, why.find(": No space left on device")) << why;
      EXPECT_FALSE(zip.closeZip());  // a spoilt archive is never published
      EXPECT_EQ(why, zip.lastError());
    }
    EXPECT_EQ("the old archive", readFile(archive));
    EXPECT_EQ(Names{"old.zip"}, folderItems(out));
    EXPECT_EQ(fds, openDescriptors());
    EXPECT_TRUE(leftoverTempFiles(tmpBefore).empty());
  }
  // The C interface says so too (format 0 writes beside the folder instead).
  if (!TypeParam::zero) {
    EXPECT_EQ(1, velzipCompressFolder(src.c_str(), archive.c_str(), 1, nullptr, nullptr));
    EXPECT_EQ("the old archive", readFile(archive));
    EXPECT_EQ(Names{"old.zip"}, folderItems(out));
  }
}

// Where the child kills itself: at the start of its third entry, or while
// the large file's data is copied (format 1's payload has then spilled into
// an unnamed file beside the archive).
struct Killer {
  int atStart = 0;  // 0: during the large file's data
  int starts = 0;
  bool inBig = false;

  static ZLibCallbackAction callback(ZLibCBData* d) {
    auto* self = static_cast<Killer*>(d->userData);
    if (d->state == kZLibStateEntryStart) {
      ++self->starts;
      const std::string path = d->filePath != nullptr ? d->filePath : "";
      self->inBig = path.size() > 4 && path.compare(path.size() - 4, 4, "/big") == 0;
      if (self->starts == self->atStart) raise(SIGKILL);
    }
    if (d->state == kZLibStateEntryData && self->atStart == 0 && self->inBig) raise(SIGKILL);
    return kZLibContinue;
  }
};

TYPED_TEST(Publishing, KilledMidWayLeavesNothing) {
  using Handler = typename TypeParam::Handler;
  const std::string &src = this->src, &out = this->out, archive = out + "/old.zip";
  for (const char* name : {"a", "b", "c", "d"}) writeFile(src + "/" + name, sampleBytes(3000, 4));
  writeFile(src + "/big", noiseBytes(6 << 20, 5));  // beyond the memory cap
  for (const int atStart : {3, 0}) {
    SCOPED_TRACE(atStart);
    writeFile(archive, "the old archive");
    const auto tmpBefore = writerTempFiles();
    const ChildEnd end = runInChild([&] {
      Killer killer;
      killer.atStart = atStart;
      Handler zip;
      zip.setCallback(Killer::callback, &killer);
      if (!zip.openZip(archive.c_str(), src.c_str(), false)) return std::string("not opened");
      zip.addFolderToZip(src.c_str(), false, false);
      return std::string("not killed");
    });
    EXPECT_EQ(128 + SIGKILL, end.status) << end.text;
    EXPECT_EQ("the old archive", readFile(archive));
    EXPECT_EQ(Names{"old.zip"}, folderItems(out));
    EXPECT_TRUE(leftoverTempFiles(tmpBefore).empty());
  }
}

// Runs a compression in a child (as user 65534 for an unreadable file) and
// reports "<walk result> <close result> <lastError>".
template <class Handler>
std::string compressInChild(const std::string& folder, const std::string& base,
                            const std::string& archive, bool asNobody, ZLibCallback callback,
                            int& status) {
  const ChildEnd end = runInChild(
      [&] {
        Handler zip;
        zip.setCallback(callback, nullptr);
        if (!zip.openZip(archive.c_str(), base.c_str(), false))
          return "open " + std::string(zip.lastError());
        const bool added = zip.addFolderToZip(folder.c_str(), false, false);
        const std::string why = zip.lastError();
        const bool closed = zip.closeZip();
        return std::string(added ? "added " : "failed ") + (closed ? "closed " : "unclosed ") + why;
      },
      asNobody);
  status = end.status;
  return end.text;
}

// Stops during the data of a file named "big".
ZLibCallbackAction stopInBig(ZLibCBData* d) {
  static bool inBig = false;
  if (d->state == kZLibStateEntryStart) {
    const std::string path = d->filePath != nullptr ? d->filePath : "";
    inBig = path.size() > 4 && path.compare(path.size() - 4, 4, "/big") == 0;
  }
  return d->state == kZLibStateEntryData && inBig ? kZLibAbort : kZLibContinue;
}

TYPED_TEST(Publishing, FailingWalkStillPublishesWhatItWrote) {
  using Handler = typename TypeParam::Handler;
  const bool zero = TypeParam::zero;
  const TempDir& tmp = this->tmp;
  ASSERT_EQ(0, chmod(tmp.path().c_str(), 0755));  // others may enter
  const std::string &src = this->src, &out = this->out, archive = out + "/old.zip";
  enum class Fault { kFifo, kUnreadable, kStopped, kCInterface };
  const struct {
    Fault fault;
    std::string culprit, why;  // why: after the culprit's path
  } cases[] = {
      {Fault::kFifo, "pipe", ": it is a fifo, not a regular file"},
      {Fault::kUnreadable, "secret.key", ": Permission denied"},
      {Fault::kStopped, "big", ""},
      {Fault::kCInterface, "pipe", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.culprit);
    std::filesystem::remove_all(src);
    std::filesystem::remove_all(out);
    ASSERT_EQ(0, mkdir(src.c_str(), 0755));
    ASSERT_EQ(0, mkdir(out.c_str(), 0755));
    ASSERT_EQ(0, chown(out.c_str(), kNobody, kNobody));
    for (const char* name : {"a", "b", "c", "d", "e"}) writeFile(src + "/" + name, name);
    writeFile(src + "/big", sampleBytes(300000, 6));
    if (c.fault == Fault::kFifo || c.fault == Fault::kCInterface) {
      ASSERT_EQ(0, mkfifo((src + "/pipe").c_str(), 0644));
    }
    if (c.fault == Fault::kUnreadable) {
      writeFile(src + "/secret.key", "root only");
      ASSERT_EQ(0, chmod((src + "/secret.key").c_str(), 0600));
    }
    writeFile(archive, "the old archive");
    ASSERT_EQ(0, chown(archive.c_str(), kNobody, kNobody));

    // Format 0 names entries after the folder's parent, as ZipFolder does.
    const std::string base = zero ? tmp.path() : src + "/";
    std::string published = archive;
    if (c.fault == Fault::kCInterface) {
      EXPECT_EQ(1,
                velzipCompressFolder(src.c_str(), archive.c_str(), zero ? 0 : 1, nullptr, nullptr));
      if (zero) published = src + ".zip";  // the C interface's format 0 writes beside the folder
    } else {
      int status = 0;
      const std::string result = compressInChild<Handler>(
          zero ? src : src + "/", base, archive, c.fault == Fault::kUnreadable,
          c.fault == Fault::kStopped ? stopInBig : nullptr, status);
      if (status == 77) {
        std::printf("skipped: cannot run as an unprivileged user here\n");
        continue;
      }
      const std::string culprit = src + "/" + c.culprit;
      const std::string why = c.fault == Fault::kStopped
                                  ? "stopped by the progress callback at " + culprit
                              : c.fault == Fault::kFifo ? "cannot add " + culprit + c.why
                                                        : "cannot read " + culprit + c.why;
      EXPECT_EQ("failed closed " + why, result);
    }
    // Published with every file listed before the culprit (format 0: and
    // its companion), all of them whole; a culprit stopped during its data
    // is written whole in format 1, cut short and marked damaged in format 0.
    ASSERT_NE("the old archive", contentOrNone(published));
    size_t listedBefore = 0;
    for (const auto& item : std::filesystem::directory_iterator(src)) {
      if (item.path().filename() == c.culprit) break;
      listedBefore += item.is_regular_file() ? 1 : 0;
    }
    const auto e = probe(published);
    EXPECT_EQ(listedBefore * (zero ? 2 : 1) + (c.fault == Fault::kStopped ? 1 : 0), e.size());
    const bool cutShort = zero && c.fault == Fault::kStopped;
    for (size_t i = 0; i < e.size(); ++i) {
      const bool last = i + 1 == e.size();
      EXPECT_EQ(!(cutShort && last), e[i].crcOk) << e[i].name;
    }
    if (cutShort) {
      EXPECT_NE(std::string::npos, e.back().name.find("big"));
      EXPECT_NE(0, runQuietly("unzip -tq '" + published + "'"));
    } else if (zero) {
      EXPECT_EQ(0, runQuietly("unzip -tq '" + published + "'"));
    }
  }
}

}  // namespace
