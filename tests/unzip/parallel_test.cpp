// Extraction with worker threads must look, to the callback and on disk,
// exactly like extraction on one thread.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "platform/apple_double.h"
#include "unzip/fixtures.h"

using namespace velzip_test;

namespace {

size_t threadsOfThisProcess() {
  size_t n = 0;
  if (DIR* d = opendir("/proc/self/task")) {
    while (const dirent* e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
  }
  return n;
}

std::string reportsText(const Recorder& rec) {
  std::string text;
  for (const Report& r : rec.reports) {
    text += std::to_string(r.state) + " " + std::to_string(r.bytes) + " " + r.entry + " " +
            (r.path.empty() ? "" : r.path.substr(r.path.find("/out") + 4)) +
            (r.isDirectory ? " d" : "") + "\n";
  }
  return text;
}

}  // namespace

TEST(ParallelExtraction, SameTreeAndSameCallbacksAsOneThread) {
  TempDir t;
  velzip::AppleDoubleContents contents;
  contents.attributes.push_back({"note", {'o', 'k'}, 0});
  std::vector<uint8_t> fork;
  ASSERT_TRUE(velzip::appleDoubleBuild(contents, fork));
  writeFile(t / "probe", "");
  const bool xattrs = setxattr((t / "probe").c_str(), "user.p", "1", 1, 0) == 0;

#ifdef __SANITIZE_THREAD__
  const size_t baseline = threadsOfThisProcess() + 1;  // the sanitizer's own, started later
#else
  const size_t baseline = threadsOfThisProcess();
#endif
  for (int format : {0, 1}) {
    SCOPED_TRACE(format);
    const std::string zip = t / ("p" + std::to_string(format));
    {
      ZipBuilder b(zip, format);
      b.add({{"a/", "", 040750}, {"a/empty", "", 0100600}, {"a/link", "../b/big", 0120777}});
      for (int i = 0; i < 40; ++i) {
        b.add("b/f" + std::to_string(i), sampleBytes(1000 + 7000 * (i % 9), i), 0100644);
      }
      b.add("b/big", sampleBytes(900000, 99), 0100640);
      if (xattrs) b.add("__MACOSX/b/._big", std::string(fork.begin(), fork.end()));
      b.add({{"c/skip-me", "x"}, {"c/last", "last"}});
    }

    // Plain, a skip at a start, an abort at a start, an abort in the data.
    const std::vector<std::function<int(const Report&)>> answers = {
        [](const Report&) { return 0; },
        [](const Report& r) { return r.state == 1 && r.entry == "c/skip-me" ? 2 : 0; },
        [](const Report& r) { return r.state == 1 && r.entry == "b/f20" ? 1 : 0; },
        [](const Report& r) { return r.state == 2 && r.bytes > 60000 ? 1 : 0; }};
    for (size_t a = 0; a < answers.size(); ++a) {
      SCOPED_TRACE(a);
      std::string trees[2], calls[2];
      bool results[2];
      for (unsigned threads : {1u, 3u}) {
        const std::string out =
            zip + "." + std::to_string(a) + "." + std::to_string(threads) + "/out";
        Recorder rec;
        rec.answer = answers[a];
        LogCapture logs;
        results[threads > 1] = withReader(format, zip, [&](auto& r) {
          r.setThreadCount(threads);
          r.setCallback(Recorder::callback, &rec);
          return r.unzipTo(out.c_str(), false, kKeep);
        });
        EXPECT_LE(threadsOfThisProcess(), baseline) << "no thread outlives the call";
        if (a < 2) {
          EXPECT_TRUE(logs.lines().empty()) << logs.lines()[0].text;
        }
        trees[threads > 1] = exists(out) ? treeListing(out) : "";
        calls[threads > 1] = reportsText(rec);
      }
      EXPECT_EQ(results[0], results[1]);
      EXPECT_EQ(results[0], a < 2);
      EXPECT_EQ(calls[0], calls[1]);
      EXPECT_EQ(trees[0], trees[1]) << "nothing decoded ahead of an abort is left";
    }

    // A file already standing where a folder of the archive goes: that
    // entry fails at its turn, the rest go on, and nothing waits for it.
    const std::string blocked = zip + ".blocked";
    {
      ZipBuilder b(blocked, format);
      b.add({{"d/x", "x"}, {"e", "e"}});
    }
    std::string trees[2];
    for (unsigned threads : {1u, 2u}) {
      const std::string out = blocked + std::to_string(threads);
      ASSERT_EQ(0, mkdir(out.c_str(), 0755));
      writeFile(out + "/d", "a file");
      LogCapture logs;
      EXPECT_FALSE(withReader(format, blocked, [&](auto& r) {
        r.setThreadCount(threads);
        return r.unzipTo(out.c_str(), false, kKeep);
      }));
      trees[threads - 1] = treeListing(out);
    }
    EXPECT_EQ(trees[0], trees[1]);
  }
}
