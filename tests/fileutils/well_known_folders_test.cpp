#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>

#include "fileutils/isolation.h"
#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

namespace FU = UlvoUtils::FileUtils;
using velzip_test::Mismatches;
using velzip_test::TempDir;

namespace {

std::string folderFor(int value, const std::string& start = "") {
  std::string path = start;
  if (!FU::GetDirectoryPath(static_cast<FU::PathType>(value), path, nullptr)) return "<false>";
  return path;
}

mode_t modeOf(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

}  // namespace

TEST(WellKnownFolders, LocalFoldersAndSuffixes) {
  for (const char* folder : {"/opt", "/usr/local/share", "/srv", "/etc"}) {
    // The lookup would create a missing one; do not do that to the machine.
    if (access(folder, F_OK) != 0) GTEST_SKIP() << folder << " is missing here";
  }
  EXPECT_EQ(folderFor(FU::kPathLocalApplications), "/opt");
  EXPECT_EQ(folderFor(FU::kPathLocalAppSupport), "/usr/local/share");
  EXPECT_EQ(folderFor(FU::kPathCommonAppSupport), folderFor(FU::kPathLocalAppSupport));
  EXPECT_EQ(folderFor(FU::kPathSharedUserData), "/srv");
  EXPECT_EQ(folderFor(FU::kPathLocalPreferences), "/etc");
  EXPECT_EQ(folderFor(18), "/usr/local/share/Brenlo");
  EXPECT_EQ(folderFor(20), "/srv/Brenlo");
  EXPECT_EQ(folderFor(21), "/usr/local/share/Brenlo/Ulvo");
  EXPECT_EQ(folderFor(23), "/srv/Brenlo/Ulvo");
  EXPECT_EQ(folderFor(24), "/opt/Brenlo Wendar/");
  EXPECT_EQ(folderFor(25), "/usr/local/share/Brenlo/Ulvo/Sorvel");
  EXPECT_EQ(folderFor(27), "/usr/local/share/Brenlo/BrenloWendar/WendarRefs");
  EXPECT_EQ(folderFor(28), "/usr/local/share/Brenlo/TesselRefs");
  EXPECT_EQ(folderFor(29), "/usr/local/share/Brenlo/Brenlo Tessel");
  EXPECT_EQ(folderFor(30), "/opt/Brenlo Marlune/");
}

TEST(WellKnownFolders, TempAndUnassignedValues) {
  std::string path = "before";
  EXPECT_TRUE(FU::GetDirectoryPath(FU::kPathTemp, path, nullptr));
  EXPECT_EQ(path, "/tmp");
  for (int value : {1, 4, 5, 6, 7, 8, 11, 14, 33, -1, 1000}) {
    path = "before";
    EXPECT_FALSE(FU::GetDirectoryPath(static_cast<FU::PathType>(value), path, nullptr)) << value;
    EXPECT_EQ(path, "before") << value;
  }
}

// The home folder is replaced by a scratch file system in a private mount
// namespace, so the user folders can be created and checked for real.
TEST(WellKnownFolders, UserFoldersAreCreatedUnderTheHomeFolder) {
  VELZIP_RUN_ISOLATED([] {
    Mismatches m;
    struct passwd* pw = getpwuid(geteuid());
    if (pw == nullptr) return std::string("no password entry");
    const std::string home = pw->pw_dir;
    if (mount("scratch", home.c_str(), "tmpfs", 0, "mode=0755") != 0)
      return std::string(velzip_test::kCannotIsolate);

    m.expectEq(folderFor(FU::kPathHome), home, "home");
    m.expectEq(folderFor(FU::kPathUserDocuments), home + "/Documents", "documents");
    m.expect(velzip_test::exists(home + "/Documents"), "documents created");
    m.expectEq(folderFor(FU::kPathUserAppSupport), home + "/.local/share", "app support");
    m.expect(velzip_test::exists(home + "/.local/share"), "app support created");
    m.expectEq(folderFor(19), home + "/.local/share/Brenlo", "19");
    m.expectEq(folderFor(22), home + "/.local/share/Brenlo/Ulvo", "22");
    m.expectEq(folderFor(26), home + "/.local/share/Brenlo/Ulvo/Sorvel", "26");

    m.expectEq(folderFor(FU::kPathUserLogs), home + "/Library/Logs", "logs");
    m.expect(modeOf(home + "/Library") == 0700, "Library mode 0700");
    m.expect(modeOf(home + "/Library/Logs") == 0700, "Logs mode 0700");
    // Existing levels are fine, and their mode is left alone.
    chmod((home + "/Library").c_str(), 0755);
    m.expectEq(folderFor(FU::kPathUserLogs), home + "/Library/Logs", "logs again");
    m.expect(modeOf(home + "/Library") == 0755, "existing Library untouched");
    return m.text();
  });
}

TEST(WellKnownFolders, FailedLookupsKeepTheirDocumentedResults) {
  VELZIP_RUN_ISOLATED([] {
    Mismatches m;
    struct passwd* pw = getpwuid(geteuid());
    if (pw == nullptr) return std::string("no password entry");
    const std::string home = pw->pw_dir;
    // Nothing can be created under a read-only home.
    if (mount("scratch", home.c_str(), "tmpfs", MS_RDONLY, "mode=0755") != 0)
      return std::string(velzip_test::kCannotIsolate);

    m.expectEq(folderFor(FU::kPathUserDocuments, "start"), "start", "10 true, untouched");
    m.expectEq(folderFor(FU::kPathUserAppSupport, "start"), "start", "12 true, untouched");
    // The suffixes go onto whatever the path held.
    m.expectEq(folderFor(19, "start"), "start/Brenlo", "19");
    m.expectEq(folderFor(22, "start"), "start/Brenlo/Ulvo", "22");
    m.expectEq(folderFor(26, "start"), "start/Brenlo/Ulvo/Sorvel", "26");
    m.expectEq(folderFor(FU::kPathUserLogs, "start"), "<false>", "32 fails");
    std::string path = "start";
    FU::GetDirectoryPath(FU::kPathUserLogs, path, nullptr);
    m.expectEq(path, "start", "32 leaves the path");
    return m.text();
  });
}

TEST(WellKnownFolders, RunningProgramIsTheExecutableWhenBare) {
  char exe[4096];
  ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  ASSERT_GT(n, 0);
  exe[n] = '\0';
  std::string folder = exe;
  folder.erase(folder.find_last_of('/'));
  EXPECT_EQ(folderFor(FU::kPathRunningProgram), exe);
  EXPECT_EQ(folderFor(FU::kPathRunningProgramFolder), folder);
}

// Run from a copy inside a bundle (see RunningProgramInsideABundle).
TEST(WellKnownFolders, DISABLED_PrintRunningProgram) {
  printf("16=%s\n17=%s\n", folderFor(16).c_str(), folderFor(17).c_str());
}

TEST(WellKnownFolders, RunningProgramInsideABundle) {
  TempDir dir;
  char real[PATH_MAX];
  ASSERT_NE(realpath(dir.path().c_str(), real), nullptr);
  const std::string bundle = std::string(real) + "/Tool.app";
  const std::string program = bundle + "/Contents/MacOS/Tool";
  ASSERT_TRUE(FU::CreateDirectoryAtPath(bundle + "/Contents/MacOS", false, nullptr));
  {
    std::ifstream in("/proc/self/exe", std::ios::binary);
    std::ofstream out(program, std::ios::binary);
    out << in.rdbuf();
  }
  ASSERT_EQ(chmod(program.c_str(), 0755), 0);

  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    dup2(fds[1], STDOUT_FILENO);
    close(fds[0]);
    execl(program.c_str(), program.c_str(), "--gtest_also_run_disabled_tests",
          "--gtest_filter=WellKnownFolders.DISABLED_PrintRunningProgram", nullptr);
    _exit(127);
  }
  close(fds[1]);
  std::string out;
  char buf[4096];
  ssize_t got;
  while ((got = read(fds[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(got));
  close(fds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << out;
  EXPECT_NE(out.find("16=" + bundle + "\n"), std::string::npos) << out;
  EXPECT_NE(out.find("17=" + std::string(real) + "\n"), std::string::npos) << out;
}
