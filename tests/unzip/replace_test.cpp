// Extracting over what is already there: replaced whole or left alone,
// never rewritten in place, and never half-done.
#include <sys/mman.h>

#include <csignal>
#include <filesystem>

#include "support/child.h"
#include "support/leftovers.h"
#include "support/small_disk.h"
#include "support/zip_craft.h"
#include "unzip/fixtures.h"

using namespace velzip_test;

TEST(Replace, OldFilesKeepTheirContentForWhoeverHoldsThem) {
  TempDir t;
  const std::string old = sampleBytes(3 << 20, 1), fresh = sampleBytes(200000, 2);
  for (int format : {0, 1}) {
    SCOPED_TRACE(format);
    const std::string out = t / ("out" + std::to_string(format)), zip = out + ".zip";
    const std::string outside = out + ".outside";
    ZipBuilder(zip, format).add({{"linked", fresh}, {"mapped", fresh}, {"running", fresh}});
    ASSERT_EQ(mkdir(out.c_str(), 0755), 0);
    writeFile(outside, old);
    ASSERT_EQ(link(outside.c_str(), (out + "/linked").c_str()), 0);
    writeFile(out + "/mapped", old);
    ASSERT_EQ(std::system(("cp /bin/sleep '" + out + "/running'").c_str()), 0);

    // A child maps the old file and reads all of it once the parent has
    // extracted over it: rewriting in place would kill it with SIGBUS.
    int ready[2], go[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(go), 0);
    const pid_t reader = fork();
    if (reader == 0) {
      const int fd = open((out + "/mapped").c_str(), O_RDONLY);
      void* map = mmap(nullptr, old.size(), PROT_READ, MAP_SHARED, fd, 0);
      char c = 0;
      if (write(ready[1], &c, 1) != 1 || read(go[0], &c, 1) != 1) _exit(2);
      _exit(map != MAP_FAILED && std::memcmp(map, old.data(), old.size()) == 0 ? 0 : 1);
    }
    const pid_t runner = fork();
    if (runner == 0) {
      execl((out + "/running").c_str(), "running", "30", static_cast<char*>(nullptr));
      _exit(3);
    }
    char c = 0;
    ASSERT_EQ(read(ready[0], &c, 1), 1);
    usleep(100000);  // the sleeper is running its file

    EXPECT_TRUE(extract(format, zip, out));
    ASSERT_EQ(write(go[1], &c, 1), 1);
    int status = 0;
    ASSERT_EQ(waitpid(reader, &status, 0), reader);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the mapping saw the old bytes";
    kill(runner, SIGKILL);
    waitpid(runner, &status, 0);
    for (int fd : {ready[0], ready[1], go[0], go[1]}) close(fd);

    EXPECT_EQ(readFile(outside), old) << "a hard link elsewhere keeps the old content";
    for (const char* name : {"/linked", "/mapped", "/running"}) {
      EXPECT_EQ(readFile(out + name), fresh) << name;
    }
    EXPECT_EQ(entriesIn(out), 3u) << "nothing staged is left";
  }
}

TEST(Replace, AFailingEntryLeavesWhatStoodThere) {
  TempDir t;
  const std::string data = sampleBytes(100000, 3);
  // An entry velzip cannot decode, one whose CRC is wrong, one whose
  // password is missing: each fails, and the file it would replace stays.
  CraftEntry deflate64 = storedEntry("f", data);
  deflate64.method = 9;
  CraftEntry badCrc = deflatedEntry("f", data);
  badCrc.crc ^= 1;
  CraftEntry locked = storedEntry("f", data);
  locked.flag = 1;
  const struct {
    const char* name;
    CraftEntry entry;
    const char* why;
  } cases[] = {{"deflate64", deflate64, ": unsupported compression method 9 (deflate64)"},
               {"crc", badCrc, ": CRC-32 mismatch"},
               {"locked", locked, ": encrypted; no password"}};
  LogCapture logs;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string zip = t / c.name, out = zip + ".out";
    writeFile(zip, craftZip({c.entry}));
    ASSERT_EQ(mkdir(out.c_str(), 0755), 0);
    writeFile(out + "/f", "precious");
    ASSERT_EQ(chmod((out + "/f").c_str(), 0600), 0);
    capturedLines().clear();
    EXPECT_FALSE(extract(0, zip, out));
    EXPECT_EQ(readFile(out + "/f"), "precious");
    EXPECT_EQ(permissions(out + "/f"), 0600u);
    EXPECT_EQ(entriesIn(out), 1u);
    ASSERT_EQ(logs.lines().size(), 1u);
    EXPECT_NE(logs.lines()[0].text.find(out + "/f" + c.why), std::string::npos)
        << logs.lines()[0].text;
  }
}

TEST(Replace, LinkEntriesReplaceFilesAndStaleLinksButNotFullFolders) {
  TempDir t;
  const std::string zip = t / "l.zip", out = t / "out";
  ZipBuilder(zip).add({{"file", "new-target", 0120777},
                       {"stale", "new-target", 0120777},
                       {"empty", "new-target", 0120777},
                       {"full", "new-target", 0120777}});
  ASSERT_EQ(mkdir(out.c_str(), 0755), 0);
  writeFile(out + "/file", "was a file");
  ASSERT_EQ(symlink("old-target", (out + "/stale").c_str()), 0);
  ASSERT_EQ(mkdir((out + "/empty").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((out + "/full").c_str(), 0755), 0);
  writeFile(out + "/full/keep", "kept");
  LogCapture logs;
  EXPECT_FALSE(extract(1, zip, out)) << "the full folder fails the extraction";
  for (const char* name : {"/file", "/stale", "/empty"}) {
    EXPECT_EQ(linkTarget(out + name), "new-target") << name;
  }
  EXPECT_EQ(readFile(out + "/full/keep"), "kept");
  EXPECT_EQ(logs.texts(), std::vector<std::string>{"50 Failed to create the link " + out +
                                                   "/full: Error 39 Directory not empty"});
  EXPECT_EQ(entriesIn(out), 4u) << "no link left under a staging name";

  // Extracting again changes nothing and succeeds once the folder is gone.
  std::filesystem::remove_all(out + "/full");
  EXPECT_TRUE(extract(1, zip, out));
  EXPECT_TRUE(extract(1, zip, out));
  EXPECT_EQ(linkTarget(out + "/full"), "new-target");
}

// Read-only folders and files, extracted and extracted again over the first
// result, by a user the permission bits apply to.
TEST(Replace, ReadOnlyTreesRoundTripForAnUnprivilegedUser) {
  TempDir t;
  for (int format : {0, 1}) {
    SCOPED_TRACE(format);
    const std::string zip = t / ("ro" + std::to_string(format)), out = zip + ".out";
    ZipBuilder(zip, format)
        .add({{"ro/", "", 040555},
              {"ro/inner/", "", 040500},
              {"ro/inner/file", "deep", 0100444},
              {"ro/file", "read only", 0100444},
              {"ro/link", "file", 0120777},
              {"top", "top", 0100400}});
    ASSERT_EQ(std::system(("chown -R 65534:65534 '" + t.path() + "'").c_str()), 0);
    const ChildEnd end = runInChild(
        [&] {
          for (int round = 0; round < 2; ++round) {
            if (!extract(format, zip, out)) return "round " + std::to_string(round) + " failed";
          }
          return std::string("ok");
        },
        true);
    ASSERT_NE(end.status, 77) << "cannot become nobody";
    EXPECT_EQ(end.text, "ok");
    EXPECT_EQ(permissions(out + "/ro"), 0555u);
    EXPECT_EQ(permissions(out + "/ro/inner"), 0500u);
    EXPECT_EQ(permissions(out + "/ro/file"), 0444u);
    EXPECT_EQ(permissions(out + "/top"), 0400u);
    EXPECT_EQ(readFile(out + "/ro/inner/file"), "deep");
    EXPECT_EQ(linkTarget(out + "/ro/link"), "file");
  }
}

TEST(Replace, NoSpaceFailsCleanly) {
  TempDir t;
  const std::string out = t / "small";
  ASSERT_EQ(mkdir(out.c_str(), 0755), 0);
  SmallDisk disk(out, 256);
  if (!disk.mounted()) GTEST_SKIP() << "mounting a tmpfs is not allowed here";
  writeFile(out + "/big", "the old content");
  for (int format : {0, 1}) {
    SCOPED_TRACE(format);
    const std::string zip = t / ("full" + std::to_string(format));
    ZipBuilder(zip, format).add({{"small", "fits"}, {"big", noiseBytes(1 << 20, 5)}});
    LogCapture logs;
    EXPECT_FALSE(extract(format, zip, out));
    EXPECT_TRUE(logs.contains("Failed to extract " + out + "/big: No space left on device") ||
                logs.contains("Failed to extract " + out + "/big: Error 28 No space left"))
        << (logs.lines().empty() ? "" : logs.lines().back().text);
    EXPECT_EQ(readFile(out + "/big"), "the old content");
    EXPECT_EQ(readFile(out + "/small"), "fits");
    EXPECT_EQ(entriesIn(out), 2u) << "no partial file";
  }
}
