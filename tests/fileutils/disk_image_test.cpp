#include "fileutils/disk_image.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/loop_devices.h"
#include "platform/plist.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

extern char** environ;

namespace {

using namespace velzip_test;
using UlvoUtils::FileUtils::MountDmgAtPath;
using UlvoUtils::FileUtils::UnmountDmgAtPath;

const char* const kMountNote =
    "NOTE Failed to mount the package dmg. checking if already mounted...";

// The test's own way of running tools, independent of the code under test.
int run(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return -1;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

size_t openDescriptors() {
  size_t n = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++n;
  }
  return n;
}

velzip::PlistValue parse(const std::string& xml) {
  velzip::PlistValue v;
  EXPECT_TRUE(velzip::parsePropertyList(xml.data(), xml.size(), v)) << xml;
  return v;
}

TEST(DiskImageReport, LookupWalksImagesAsListed) {
  const velzip::PlistValue report = parse(
      "<plist><dict><key>images</key><array>"
      "<string>not an image</string>"
      "<dict><key>image-path</key><integer>1</integer></dict>"
      "<dict><key>image-path</key><string>/nowhere/other.img</string>"
      "  <key>system-entities</key><array><dict><key>mount-point</key><string>/m/other</string>"
      "  </dict></array></dict>"
      "<dict><key>image-path</key><string>/nowhere/./a.img</string>"
      "  <key>system-entities</key><array><string>x</string>"
      "    <dict><key>dev-entry</key><string>/dev/loop1</string></dict>"
      "    <dict><key>mount-point</key><integer>2</integer></dict>"
      "    <dict><key>mount-point</key><string>/m/a</string></dict>"
      "    <dict><key>mount-point</key><string>/m/a2</string></dict>"
      "  </array></dict>"
      "<dict><key>image-path</key><string>/nowhere/b.img</string>"
      "  <key>system-entities</key><string>x</string></dict>"
      "<dict><key>image-path</key><string>/nowhere/b.img</string>"
      "  <key>system-entities</key><array><dict><key>mount-point</key><string>/m/b</string>"
      "  </dict></array></dict>"
      "</array></dict></plist>");

  std::string point = "kept";
  // Paths are compared after standardising.
  EXPECT_TRUE(velzip::fileutils::findImageMountPoint(report, "/nowhere//a.img/", point));
  EXPECT_EQ(point, "/m/a");
  EXPECT_TRUE(velzip::fileutils::reportListsImage(report, "/nowhere/b.img"));
  // Only the first entry for an image is looked into.
  point = "kept";
  EXPECT_FALSE(velzip::fileutils::findImageMountPoint(report, "/nowhere/b.img", point));
  EXPECT_EQ(point, "kept");
  EXPECT_FALSE(velzip::fileutils::reportListsImage(report, "/nowhere/c.img"));
  EXPECT_FALSE(velzip::fileutils::findImageMountPoint(report, "/nowhere/c.img", point));

  for (const char* odd : {"<plist><array/></plist>", "<plist><dict/></plist>",
                          "<plist><dict><key>images</key><string>x</string></dict></plist>"}) {
    EXPECT_FALSE(velzip::fileutils::findImageMountPoint(parse(odd), "/nowhere/a.img", point));
  }
}

TEST(DiskImages, AFileThatIsNotAnImageIsNotMounted) {
  TempDir dir;
  writeFile(dir / "notes.dmg", "just some text\n");
  mkdir((dir / "mnt").c_str(), 0755);
  std::vector<velzip::LoopImage> images;
  const bool reportReadable = velzip::listLoopImages(images);
  const size_t descriptors = openDescriptors();

  LogCapture log;
  std::string mountPoint = dir / "mnt";
  std::string mounted = "stale";
  bool didMount = true;
  EXPECT_FALSE(MountDmgAtPath(dir / "notes.dmg", mountPoint, mounted, false, didMount, nullptr));
  EXPECT_EQ(mounted, "");
  EXPECT_TRUE(didMount);  // not written when nothing is found
  ASSERT_FALSE(log.lines().empty());
  EXPECT_EQ(log.lines()[0].level, 50);
  EXPECT_EQ(log.lines()[0].text, kMountNote);
  if (reportReadable) {
    EXPECT_EQ(log.lines().size(), 1u);
  } else {
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[1].text, "Error Failed to find the already mounted location ....");
  }
  // Nothing may stay attached after a failed attempt.
  ASSERT_TRUE(!reportReadable || velzip::listLoopImages(images));
  for (const auto& image : images) EXPECT_NE(image.backingFile, dir / "notes.dmg");

  // The same for an image path that does not exist and an empty mount point.
  std::string empty;
  EXPECT_FALSE(MountDmgAtPath(dir / "missing.dmg", mountPoint, mounted, false, didMount, nullptr));
  EXPECT_FALSE(MountDmgAtPath(dir / "notes.dmg", empty, mounted, false, didMount, nullptr));
  EXPECT_FALSE(UnmountDmgAtPath(empty, nullptr));
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(DiskImages, UnmountingWhatIsNotMountedFails) {
  TempDir dir;
  CaptureLogger object;
  LogCapture log;
  EXPECT_FALSE(UnmountDmgAtPath(dir.path(), &object));
  EXPECT_FALSE(UnmountDmgAtPath(dir / "missing", &object));
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0].level, 50);
  EXPECT_EQ(log.lines()[0].module, "<object>");
  EXPECT_EQ(log.lines()[0].text, "Error Failed to unmount");
}

// An ext4 image holding one file, for the tests that really mount.
class LoopMount : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "loop mounts need root";
    mkdir((dir_ / "content").c_str(), 0755);
    writeFile(dir_ / "content/readme.txt", "inside the image\n");
    image_ = dir_ / "disk image.img";
    if (run({"mkfs.ext4", "-q", "-F", "-d", dir_ / "content", image_, "4M"}) != 0) {
      GTEST_SKIP() << "mkfs.ext4 is not usable";
    }
    mkdir((dir_ / "mnt").c_str(), 0755);
    mkdir((dir_ / "mnt2").c_str(), 0755);
    // Whether this system lets us loop-mount at all.
    if (run({"mount", "-o", "loop,ro", image_, dir_ / "mnt"}) != 0) {
      GTEST_SKIP() << "loop mounts do not work here";
    }
    run({"umount", dir_ / "mnt"});
  }
  void TearDown() override {
    // Leave nothing mounted, whatever failed, before the folder goes.
    for (const char* m : {"mnt", "mnt2"}) {
      while (run({"umount", dir_ / m}) == 0) {
      }
    }
  }

  bool attached() {
    std::vector<velzip::LoopImage> images;
    EXPECT_TRUE(velzip::listLoopImages(images));
    for (const auto& i : images) {
      if (i.backingFile == image_) return true;
    }
    return false;
  }

  TempDir dir_;
  std::string image_;
};

TEST_F(LoopMount, MountsReadOnlyAndUnmounts) {
  std::string mountPoint = dir_ / "mnt";
  std::string mounted;
  bool didMount = false;
  LogCapture log;
  ASSERT_TRUE(MountDmgAtPath(image_, mountPoint, mounted, true, didMount, nullptr));
  EXPECT_TRUE(didMount);
  EXPECT_EQ(mounted, mountPoint);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(readFile(dir_ / "mnt/readme.txt"), "inside the image\n");
  EXPECT_NE(mkdir((dir_ / "mnt/new").c_str(), 0755), 0);
  EXPECT_EQ(errno, EROFS);

  // Asked again, elsewhere: it is not attached twice but found.
  std::string other = dir_ / "mnt2";
  std::string mountedAgain;
  bool didMountAgain = true;
  ASSERT_TRUE(MountDmgAtPath(image_, other, mountedAgain, false, didMountAgain, nullptr));
  EXPECT_FALSE(didMountAgain);
  EXPECT_EQ(mountedAgain, mountPoint);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].text, kMountNote);
  EXPECT_FALSE(exists(dir_ / "mnt2/readme.txt"));

  EXPECT_TRUE(UnmountDmgAtPath(mountPoint, nullptr));
  EXPECT_FALSE(exists(dir_ / "mnt/readme.txt"));
  EXPECT_FALSE(attached());
  EXPECT_FALSE(UnmountDmgAtPath(mountPoint, nullptr));
}

TEST_F(LoopMount, FindsAnImageSomeoneElseMounted) {
  ASSERT_EQ(run({"mount", "-o", "loop,ro", image_, dir_ / "mnt"}), 0);
  std::string mountPoint = dir_ / "mnt2";
  std::string mounted;
  bool didMount = true;
  LogCapture log;
  // Through a path that standardises to the image's.
  ASSERT_TRUE(MountDmgAtPath(dir_.path() + "/./mnt/../disk image.img", mountPoint, mounted, false,
                             didMount, nullptr));
  EXPECT_FALSE(didMount);
  EXPECT_EQ(mounted, dir_ / "mnt");
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].text, kMountNote);
  EXPECT_TRUE(attached());
}

}  // namespace
