// Files that appear whole or not at all.
#include "frame/staged_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "support/leftovers.h"
#include "support/probe.h"
#include "support/temp_dir.h"

using namespace velzip_test;

namespace {

bool stageAndPublish(const std::string& folder, const char* name, const std::string& data) {
  velzip::UniqueFd dir(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  velzip::StagedFile f;
  if (!f.create(dir.get(), 0644)) return false;
  if (write(f.fd(), data.data(), data.size()) != static_cast<ssize_t>(data.size())) return false;
  return f.publish(dir.get(), name, true);
}

}  // namespace

TEST(StagedFile, ReplacesWithoutTouchingWhatStoodThere) {
  TempDir t;
  mkdir((t / "d").c_str(), 0755);
  writeFile(t / "outside", "keep me");
  ASSERT_EQ(link((t / "outside").c_str(), (t / "d/hard").c_str()), 0);
  ASSERT_EQ(symlink("../outside", (t / "d/soft").c_str()), 0);
  mkdir((t / "d/folder").c_str(), 0755);
  writeFile(t / "d/folder/x", "x");

  EXPECT_TRUE(stageAndPublish(t / "d", "new", "fresh"));
  EXPECT_TRUE(stageAndPublish(t / "d", "hard", "replaced"));
  EXPECT_TRUE(stageAndPublish(t / "d", "soft", "replaced too"));
  EXPECT_FALSE(stageAndPublish(t / "d", "folder", "no"));

  EXPECT_EQ(readFile(t / "d/new"), "fresh");
  EXPECT_EQ(readFile(t / "d/hard"), "replaced");
  EXPECT_EQ(linkTarget(t / "d/soft"), "<none>");
  EXPECT_EQ(readFile(t / "d/soft"), "replaced too");
  EXPECT_EQ(readFile(t / "outside"), "keep me");
  EXPECT_EQ(readFile(t / "d/folder/x"), "x");
  // new, hard, soft, folder: no staging name left behind by the refused one.
  EXPECT_EQ(entriesIn(t / "d"), 4u);

  {
    velzip::UniqueFd dir(open((t / "d").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    velzip::StagedFile f;
    ASSERT_TRUE(f.create(dir.get(), 0600));
    ASSERT_EQ(write(f.fd(), "partial", 7), 7);
  }  // dropped unpublished
  EXPECT_EQ(entriesIn(t / "d"), 4u);
}
