// A folder walk with worker threads must give the same archive, byte for
// byte, and tell the callback the same things in the same order as one
// thread; abandoned work leaves nothing behind.
#include <sys/resource.h>
#include <sys/xattr.h>

#include "support/child.h"
#include "support/probe.h"
#include "support/progress_recorder.h"
#include "zip/writer_support.h"

using namespace velzip_test;

namespace {

template <class T>
class WriterThreads : public ::testing::Test {
 protected:
  TempDir tmp;
};
TYPED_TEST_SUITE(WriterThreads, Formats);

size_t threadsOfThisProcess() {
  size_t n = 0;
  for (const auto& t : std::filesystem::directory_iterator("/proc/self/task"))
    n += !t.path().empty();
  return n;
}

std::string callText(const ProgressRecorder& rec) {
  std::string text;
  for (const auto& r : rec.reports) {
    text += std::to_string(r.state) + " " + std::to_string(r.bytes) + " " + r.entry + " " + r.path +
            "\n";
  }
  return text;
}

}  // namespace

TYPED_TEST(WriterThreads, SameArchiveAndSameCallbacksAsOneThread) {
  using Handler = typename TypeParam::Handler;
  const TempDir& tmp = this->tmp;
  const std::string top = makeTree(tmp);
  // More files than workers look ahead, and one that spills its payload.
  for (int i = 0; i < 30; ++i) {
    writeFile(top + "/sub/f" + std::to_string(i), sampleBytes(3000 * (i % 7), i));
  }
  writeFile(top + "/sub/big", noiseBytes(9 << 19, 77));
  const bool xattrs = setxattr((top + "/a.txt").c_str(), "user.note", "hi", 2, 0) == 0;

  const size_t baseline = threadsOfThisProcess();
  const struct {
    const char* name;
    std::function<int(const ProgressReport&)> answer;
    bool ok;
  } cases[] = {
      {"plain", [](const ProgressReport&) { return 0; }, true},
      {"skips",
       [](const ProgressReport& r) {
         return r.state == 1 && r.entry.find("/f1") != r.entry.npos ? 2 : 0;
       },
       true},
      {"abort at a start",
       [](const ProgressReport& r) {
         return r.state == 1 && r.entry.find("/f20") != r.entry.npos ? 1 : 0;
       },
       false},
      {"abort in data",
       [](const ProgressReport& r) { return r.state == 2 && r.bytes == 65536 ? 1 : 0; }, false},
  };
  const std::set<std::string> before = writerTempFiles();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::string bytes[2], calls[2];
    for (unsigned threads : {1u, 3u}) {
      const std::string archive = tmp / (std::string("t") + std::to_string(threads) + ".zip");
      ProgressRecorder rec;
      rec.answer = c.answer;
      bool added = false;
      {
        Handler zip(archive.c_str(), (tmp.path() + "/").c_str(), false);
        zip.setThreadCount(threads);
        zip.setCompressionLevel(1);  // fast: the point is the order, not the ratio
        if (xattrs) zip.setCompanionPolicy(CompanionPolicy::kWithMetadata);
        zip.setCallback(ProgressRecorder::callback, &rec);
        added = zip.addFolderToZip(top.c_str(), false, true);
        ASSERT_TRUE(zip.closeZip());
      }
      EXPECT_EQ(added, c.ok) << threads;
      EXPECT_LE(threadsOfThisProcess(), baseline + 1) << "no worker outlives the call";
      bytes[threads > 1] = readFile(archive);
      calls[threads > 1] = callText(rec);
    }
    EXPECT_TRUE(bytes[0] == bytes[1]) << "the archives differ";
    EXPECT_EQ(calls[0], calls[1]);
    EXPECT_EQ(folderItems(tmp.path()), (std::set<std::string>{"t1.zip", "t3.zip", "top"}))
        << "nothing staged is left";
  }
  EXPECT_TRUE(leftoverTempFiles(before).empty());
}

// Files prepared ahead and waiting their turn hold no descriptor: many
// threads over many small files stay within a small descriptor limit.
TYPED_TEST(WriterThreads, FilesWaitingTheirTurnHoldNoDescriptor) {
  using Handler = typename TypeParam::Handler;
  const TempDir& tmp = this->tmp;
  const std::string top = tmp / "many";
  ASSERT_EQ(0, mkdir(top.c_str(), 0755));
  for (int i = 0; i < 300; ++i) writeFile(top + "/f" + std::to_string(i), sampleBytes(500, i));
  const ChildEnd end = runInChild([&] {
    const rlimit few{64, 64};
    if (setrlimit(RLIMIT_NOFILE, &few) != 0) return std::string("no limit");
    Handler zip((tmp / "many.zip").c_str(), (tmp.path() + "/").c_str(), false);
    zip.setThreadCount(8);
    const bool added = zip.addFolderToZip(top.c_str(), false, false);
    return std::string(added && zip.closeZip() ? "ok" : zip.lastError());
  });
  EXPECT_EQ(end.text, "ok");
}
