#include <pwd.h>

#include "fileutils/fixtures.h"

using namespace velzip_test;

namespace {

// "<false>" marks a failed call, followed by what it left.
std::string folderFor(int value, const std::string& start = "") {
  std::string path = start;
  return FU::GetDirectoryPath(FU::PathType(value), path, nullptr) ? path : "<false>" + path;
}

}  // namespace

TEST(PathStrings, JoinTrimParentNameStandardiseAndResolve) {
  auto join = [](std::string p, const char* c) {
    return FU::AppendPath(p, c, nullptr) ? p : "<false>" + p;
  };
  auto trim = [](std::string p) { return FU::RemoveSeparatorAtEnd(p) ? p : "<false>" + p; };
  auto parent = [](std::string p) { return FU::GetParentDirectory(p) ? p : "<false>" + p; };
  auto name = [](const char* p, std::string n = "kept") {
    return FU::GetFileNameFromPath(p, n, nullptr) ? n : "<false>";
  };
  auto standard = [](std::string p) { return FU::ConvertPathToOSPath(p) ? p : "<false>"; };
  // realpath needs every component to exist; on failure the input is copied.
  auto absolute = [](const std::string& p, std::string r = "") {
    return FU::getAbsoluteFilePath(p, r) ? r : "<false>" + r;
  };
  struct passwd* pw = getpwuid(geteuid());
  ASSERT_NE(pw, nullptr);
  const std::string home = pw->pw_dir, user = pw->pw_name;
  TempDir dir;
  const std::string real = realPathOf(dir.path()), p = dir.path();
  make(real, {"d/e/", "link->" + real + "/d/e"});
  // clang-format off
  const std::pair<std::string, std::string> cases[] = {
      {join("/a", "/b"), "/a/b"}, {join("/a/", "//b"), "/a/b"}, {join("/a", "///"), "/a/"},
      {join("a//", "b"), "a//b"}, {join("/", "tmp"), "/tmp"}, {join("a", "b/c/"), "a/b/c/"},
      {join("/a", ""), "<false>/a"}, {join("", "b"), "<false>"}, {trim("/a/b///"), "/a/b"},
      {trim("/"), ""}, {trim("a//b"), "a//b"}, {trim(""), "<false>"}, {parent("/a/b/"), "/a"},
      {parent("/"), "/"}, {parent("name"), "."}, {parent("a//b"), "a"}, {parent(""), "<false>"},
      {name("no-slash"), "kept"}, {name("/x/y.txt"), "y.txt"}, {name("/x/"), ""},
      {standard("/.."), "/"}, {standard("a\\b\\c\\"), "a/b/c"}, {standard("./a/./b"), "a/b"},
      {standard("/"), "/"}, {standard("/a//b/./c/"), "/a/b/c"}, {standard("."), "."},
      {standard(""), ""}, {standard("../x/../y"), "../x/../y"},  // relative ".." stays
      {standard("/no/such/thing/../other"), "/no/such/other"}, {standard("~"), home},
      {standard("~/x//y/"), home + "/x/y"}, {standard("~" + user), home},
      {standard("~velzip-no-user/x"), "~velzip-no-user/x"},
      // link/.. is the parent of what link points to, not of link.
      {standard(real + "/link/../x"), real + "/d/x"}, {standard(real + "/d/e/../.."), real},
      {absolute(p + "//link/"), real + "/d/e"}, {absolute(p + "/none"), "<false>" + p + "/none"},
      {absolute(p + "/./sub/../d"), "<false>" + p + "/./sub/../d"}, {absolute(""), "<false>"}};
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(c.first, c.second) << "case " << &c - cases;
}

TEST(PathQueries, ExistenceAncestorsVolumesAndNetworkDrives) {
  TempDir dir;
  const std::string& p = dir.path();
  make(p, {"file", "folder/.DS_Store", "to-folder->folder", "dangling->nowhere"});
  bool isDirectory = false;  // set only for an existing folder
  EXPECT_TRUE(FU::PathExists(p + "/to-folder", isDirectory, nullptr) && isDirectory);
  EXPECT_TRUE(FU::PathExists(p + "/file", isDirectory, nullptr) && !isDirectory);
  const std::string overlong = overlongUnder(p);
  for (const std::string& none : {p + "/dangling", p + "/file/x", std::string(), overlong})
    EXPECT_FALSE(FU::PathExists(none, nullptr)) << none;
  // Empty: no entries, or only ".DS_Store"; links to folders are followed.
  EXPECT_TRUE(FU::isDirectoryEmpty(p + "/to-folder"));
  make(p, {"folder/.hidden"});
  for (const std::string& no : {p + "/folder", p + "/file", p + "/none", std::string()})
    EXPECT_FALSE(FU::isDirectoryEmpty(no)) << no;

  EXPECT_TRUE(exists("/no") || FU::GetExistentParentDirectory("/no/such/deep/path") == "/");
  EXPECT_EQ(FU::GetExistentParentDirectory(p + "/file/under/more"), p + "/file");
  EXPECT_EQ(FU::GetExistentParentDirectory(overlong), p);
  EXPECT_EQ(FU::GetExistentParentDirectory("velzip-no-such/relative"), ".");
  EXPECT_EQ(FU::GetExistentParentDirectory(""), "");
  // Volumes: missing parts and overlong paths walk up to what exists.
  std::string name = "unset";
  for (const std::string& bad : {std::string(), std::string("relative"), p + "/file/x"})
    EXPECT_FALSE(FU::GetVolumeNameOfPath(bad, name, nullptr) || name != "unset") << bad;
  EXPECT_TRUE(FU::GetVolumeNameOfPath(overlong, name, nullptr) && !name.empty());
  for (const char* local : {"", "/velzip-no-such-path", "/tmp", "/proc"})
    EXPECT_FALSE(FU::isPathANetworkDrive(local)) << local;
}

// Scratch file systems under a scratch root, mounted with server-style
// sources: the source alone decides, and a volume is named by its mount point.
TEST(PathQueries, VolumeNamesAndNetworkSources) {
  TempDir dir;
  VELZIP_RUN_ISOLATED([root = dir / "root"] {
    mkdir(root.c_str(), 0755);
    if (mount("scratch", root.c_str(), "tmpfs", 0, nullptr) != 0 ||
        mkdir((root + "/proc").c_str(), 0755) != 0 ||
        mount("/proc", (root + "/proc").c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
        chroot(root.c_str()) != 0 || chdir("/") != 0)
      return std::string(kCannotIsolate);
    // mount point, source, network, volume name
    const std::tuple<std::string, std::string, bool, std::string> rows[] = {
        {"/", "", false, "/"},
        {"/Server Vol", "fileserver:/export", true, "Server Vol"},
        {"/a/share", "//fileserver/share", false, "share"},
        {"/a/b/word", "word", false, "word"}};
    std::string m;
    for (const auto& [point, source, network, volume] : rows) {
      std::filesystem::create_directories(point);
      if (!source.empty() && mount(source.c_str(), point.c_str(), "tmpfs", 0, nullptr) != 0)
        return std::string(kCannotIsolate);
      mkdir((point + "/sub").c_str(), 0755);
      std::string name;
      for (const std::string& path : {point, point + "/sub", point + "/missing/deeper"})
        if (!FU::GetVolumeNameOfPath(path, name, nullptr) || name != volume) m += path + " name\n";
      if (FU::isPathANetworkDrive(point + "/sub") != network) m += point + " network\n";
    }
    return m;
  });
}

TEST(WellKnownFolders, LocalTableAndTheRunningProgram) {
  EXPECT_EQ(folderFor(FU::kPathTemp, "before"), "/tmp");
  for (int unassigned : {1, 4, 5, 6, 7, 8, 11, 14, 33, -1, 1000})
    EXPECT_EQ(folderFor(unassigned, "before"), "<false>before") << unassigned;
  const std::string exe = realPathOf("/proc/self/exe");
  EXPECT_EQ(folderFor(FU::kPathRunningProgram), exe);
  EXPECT_EQ(folderFor(FU::kPathRunningProgramFolder), exe.substr(0, exe.rfind('/')));

  // The lookup would create a missing base folder; do not do that to the machine.
  for (const char* base : {"/opt", "/usr/local/share", "/srv", "/etc"})
    if (access(base, F_OK) != 0) GTEST_SKIP() << base << " is missing here";
  const std::string s = "/usr/local/share";
  // clang-format off
  const std::pair<int, std::string> table[] = {
      {0, "/opt"}, {2, s}, {3, s}, {13, "/srv"}, {31, "/etc"}, {18, s + "/Brenlo"},
      {20, "/srv/Brenlo"}, {21, s + "/Brenlo/Ulvo"}, {23, "/srv/Brenlo/Ulvo"},
      {24, "/opt/Brenlo Wendar/"}, {25, s + "/Brenlo/Ulvo/Sorvel"},
      {27, s + "/Brenlo/BrenloWendar/WendarRefs"}, {28, s + "/Brenlo/TesselRefs"},
      {29, s + "/Brenlo/Brenlo Tessel"}, {30, "/opt/Brenlo Marlune/"}};
  // clang-format on
  for (const auto& row : table) EXPECT_EQ(folderFor(row.first), row.second) << row.first;
}

// The home folder is replaced by a scratch file system, writable and then
// read-only, so the user folders are created (or not) for real.
TEST(WellKnownFolders, UserFoldersUnderAScratchHome) {
  for (const unsigned long flags : {0ul, static_cast<unsigned long>(MS_RDONLY)}) {
    VELZIP_RUN_ISOLATED([flags] {
      struct passwd* pw = getpwuid(geteuid());
      const std::string home = pw != nullptr ? pw->pw_dir : "";
      if (mount("scratch", home.c_str(), "tmpfs", flags, "mode=0755") != 0)
        return std::string(kCannotIsolate);
      // Read-only: 10 and 12 still succeed untouched, the suffixes go onto
      // what the path held, and 32 fails untouched.
      const bool ro = flags != 0;
      const std::string s = ro ? "x" : home + "/.local/share", logs = home + "/Library/Logs";
      // clang-format off
      const std::pair<std::string, std::string> rows[] = {
          {folderFor(9), home}, {folderFor(10, "x"), ro ? "x" : home + "/Documents"},
          {folderFor(12, "x"), s}, {folderFor(19, "x"), s + "/Brenlo"},
          {folderFor(22, "x"), s + "/Brenlo/Ulvo"}, {folderFor(26, "x"), s + "/Brenlo/Ulvo/Sorvel"},
          {folderFor(32, "x"), ro ? "<false>x" : logs}};
      // clang-format on
      std::string m;
      for (const auto& row : rows) m += row.first == row.second ? "" : row.first + "\n";
      if (!ro && !(exists(home + "/Documents") && exists(s))) m += "10 and 12 make no folders\n";
      if (!ro && (modeOf(home + "/Library") != "700" || modeOf(logs) != "700")) m += "32 mode\n";
      // Existing levels are accepted and keep their mode.
      chmod((home + "/Library").c_str(), 0755);
      if (!ro && (folderFor(32) != logs || modeOf(home + "/Library") != "755")) m += "32 again\n";
      return m;
    });
  }
}
