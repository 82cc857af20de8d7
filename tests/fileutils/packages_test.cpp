#include "fileutils/disk_image.h"
#include "fileutils/dylib_bytes.h"
#include "fileutils/dylib_version_macho.h"
#include "fileutils/fixtures.h"
#include "fileutils/internal.h"

using namespace velzip_test;

namespace {

const char* kMountNote = "50 NOTE Failed to mount the package dmg. checking if already mounted...";

// Whether a loop device is bound to the image, as the system tool sees it.
bool attached(const std::string& image) {
  return shell("losetup -j '" + image + "' | grep -q .") == 0;
}

const std::string kNone = "<none>";

std::string versionIn(const std::string& bytes) {
  std::string version = kNone;
  velzip::findMachOBundleVersion(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(),
                                 version);
  return version;
}

MachOFile textWith(const std::string& plist, int64_t offset = -1, int64_t size = -1) {
  return MachOFile().segment("__TEXT", {{"__info_plist", plist, offset, size}});
}

velzip::PlistValue parsed(const std::string& bytes, bool expected = true) {
  velzip::PlistValue v;
  EXPECT_EQ(velzip::parsePropertyList(bytes.data(), bytes.size(), v), expected) << bytes.size();
  return v;
}

// Binary: n arrays each referring refs times to the next; the last refers
// back to the first when cycle.
std::string arrayChain(int n, int refs, bool cycle = false) {
  std::string out = "bplist00", table, trailer(32, '\0');
  for (int i = 0; i < n; ++i) {
    table += {char(out.size() >> 8), char(out.size())};
    const int next = i + 1 < n ? i + 1 : cycle ? 0 : -1;
    out += char(next < 0 ? 0xA0 : 0xA0 | refs);
    for (int r = 0; next >= 0 && r < refs; ++r) out += {char(next >> 8), char(next)};
  }
  trailer[6] = trailer[7] = 2;  // offset and reference widths
  trailer[14] = char(n >> 8), trailer[15] = char(n);
  trailer[30] = char(out.size() >> 8), trailer[31] = char(out.size());
  return out + table + trailer;
}

}  // namespace

TEST(ChildProcesses, StatusesAndNothingLeftToReap) {
  EXPECT_EQ(velzip::fileutils::runTool({"/velzip-none", "/bin/sh"}, {"-c", "exit 4"}), 4);
  EXPECT_EQ(velzip::fileutils::runAndWait("/bin/sh", {"-c", "kill -9 $$"}), -1);
  EXPECT_EQ(velzip::fileutils::runAndWait("/velzip-none", {}), 127);
  EXPECT_TRUE(velzip::fileutils::spawnDetached("/bin/sh", {"-c", "exit 1"}));
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(DiskImages, WhatIsNoImageOrNotMountedFails) {
  TempDir dir;
  make(dir.path(), {"notes.dmg=just text", "mnt/"});
  std::string point = dir / "mnt", mounted = "stale";
  bool didMount = true;  // not written when nothing is found
  LogCapture log;
  EXPECT_FALSE(FU::MountDmgAtPath(dir / "notes.dmg", point, mounted, false, didMount, nullptr));
  EXPECT_TRUE(mounted.empty() && didMount);
  EXPECT_EQ(log.texts(), Lines{kMountNote});  // the attached images were listed
  EXPECT_FALSE(attached(dir / "notes.dmg"));
  CaptureLogger handle;
  capturedLines().clear();
  for (const std::string& where : {dir.path(), dir / "missing", std::string()})
    EXPECT_FALSE(FU::UnmountDmgAtPath(where, &handle));
  EXPECT_EQ(log.texts(), Lines(3, "50 Error Failed to unmount"));
  EXPECT_EQ(log.lines()[0].module, "<object>");
}

// A real ext4 image: mounted by someone else and found through a path that
// standardises to it; then mounted, found instead of attached twice, and
// unmounted with its loop device released.
TEST(DiskImages, LoopMountRoundTrip) {
  if (geteuid() != 0) GTEST_SKIP() << "loop mounts need root";
  TempDir dir;
  make(dir.path(), {"content/readme.txt=inside", "mnt/", "mnt2/"});
  const std::string image = realPathOf(dir.path()) + "/disk image.img";
  std::string mnt = dir / "mnt", mnt2 = dir / "mnt2", mounted;  // only read
  struct Unmounter {  // whatever fails, nothing stays mounted
    std::string points;
    ~Unmounter() { shell("for p in " + points + "; do while umount \"$p\"; do :; done; done"); }
  } unmounter{"'" + mnt + "' '" + mnt2 + "'"};
  if (shell("mkfs.ext4 -q -F -d '" + (dir / "content") + "' '" + image + "' 4M") != 0)
    GTEST_SKIP() << "mkfs.ext4 is not usable";
  if (shell("mount -o loop,ro '" + image + "' '" + mnt + "'") != 0)
    GTEST_SKIP() << "no loop mounts";

  LogCapture log;
  bool didMount = true;
  ASSERT_TRUE(FU::MountDmgAtPath(dir.path() + "/./mnt/../disk image.img", mnt2, mounted, false,
                                 didMount, nullptr));
  EXPECT_TRUE(mounted == mnt && !didMount);
  ASSERT_EQ(shell("umount '" + mnt + "'"), 0);
  ASSERT_TRUE(FU::MountDmgAtPath(image, mnt, mounted, true, didMount, nullptr));
  EXPECT_TRUE(mounted == mnt && didMount);
  EXPECT_EQ(readFile(mnt + "/readme.txt"), "inside");
  EXPECT_TRUE(mkdir((mnt + "/new").c_str(), 0755) != 0 && errno == EROFS);
  ASSERT_TRUE(FU::MountDmgAtPath(image, mnt2, mounted, false, didMount, nullptr));
  EXPECT_TRUE(mounted == mnt && !didMount && !exists(mnt2 + "/readme.txt"));
  EXPECT_EQ(log.texts(), (Lines{kMountNote, kMountNote}));
  EXPECT_TRUE(FU::UnmountDmgAtPath(mnt, nullptr));
  EXPECT_FALSE(exists(mnt + "/readme.txt") || attached(image));
  EXPECT_FALSE(FU::UnmountDmgAtPath(mnt, nullptr));
}

TEST(Bundles, ExecutableFromTheInfoListOrNothing) {
  TempDir dir;
  const std::string real = realPathOf(dir.path()), exe = "/Contents/MacOS/";
  auto info = [](const std::string& value) {
    return "/Contents/Info.plist=" +
           infoPlistXml("<dict><key>CFBundleExecutable</key>" + value + "</dict>");
  };
  // clang-format off
  make(real, {"Tool.app" + info("<string>Tool Runner</string>"), "Tool.app" + exe + "Tool Runner",
              "Link.app->Tool.app", "sub/", "file",
              "NoExe.app" + info("<string>Gone</string>"), "Int.app" + info("<integer>1</integer>"),
              "Bad.app/Contents/Info.plist={", "Bad.app" + exe + "a", "Dir.app" + exe + "D/",
              "Up.app" + info("<string>../../file</string>"), "Fifo.app" + exe + "a",
              "Dots.app" + info("<string>..</string>"), "Dir.app" + info("<string>D</string>")});
  // clang-format on
  ASSERT_EQ(mkfifo((real + "/Fifo.app/Contents/Info.plist").c_str(), 0600), 0);  // must not block
  std::string found;  // links and relative parts of the bundle path are resolved
  EXPECT_TRUE(FU::GetBundleExecutablePath(dir / "sub/../Link.app/", found));
  EXPECT_EQ(found, real + "/Tool.app" + exe + "Tool Runner");
  for (const char* bad : {"", "missing.app", "file", "sub", "NoExe.app", "Int.app", "Bad.app",
                          "Up.app", "Dots.app", "Dir.app", "Fifo.app"}) {
    std::string kept = "kept";
    EXPECT_FALSE(FU::GetBundleExecutablePath(*bad ? dir / bad : "", kept) || kept != "kept") << bad;
  }
}

// Each crafted file goes through the section walk and through the file API
// with its log line.
TEST(DylibVersion, CraftedFiles) {
  const std::string array = infoPlistXml("<array><string>9.9</string></array>");
  const std::string v1 = versionPlist("1.0"), key = "<key>CFBundleVersion</key>";
  std::string bigEndian = dylibWithPlist(v1);
  bigEndian.replace(0, 4, "\xfe\xed\xfa\xce");
  const uint32_t all = 0xFFFFFFFF;
  // clang-format off
  const std::pair<std::string, std::string> cases[] = {
      {dylibWithPlist(versionPlist("1.2.3.4")), "1.2.3.4"},
      {dylibWithPlist(versionPlistBinary("7.8")), "7.8"},
      {dylibWithPlist(versionPlist("")), ""},  // found, whatever the conversion makes of it
      {dylibWithPlist(v1, kMachO64), kNone}, {dylibWithPlist(v1, kUniversal), kNone},
      {bigEndian, kNone}, {dylibWithPlist("not a property list"), kNone},
      {MachOFile().other(0xd, 24).segment("__DATA", {{"__data", "x"}}).bytes(), kNone},
      {MachOFile().segment("__TEXT", {{"__text", "x"}}).bytes(), kNone},
      {dylibWithPlist(infoPlistXml("<dict/>")), kNone},
      {dylibWithPlist(infoPlistXml("<dict>" + key + "<integer>3</integer></dict>")), kNone},
      // Outside __TEXT nothing is looked at; a list that is no dictionary, or
      // has no version, lets the walk go on.
      {MachOFile().segment("__DATA", {{"__info_plist", v1}}).other(0x22, 48)
           .segment("__TEXT", {{"__text", "code"}, {"__info_plist", array}})
           .segment("__TEXT", {{"__info_plist", infoPlistXml("<dict/>")}})
           .segment("__TEXT", {{"__const", ""}, {"__info_plist", versionPlist("3.0")}}).bytes(),
       "3.0"},
      // Only a segment's first __info_plist counts, and the first segment with one.
      {MachOFile().segment("__TEXT", {{"__info_plist", array}, {"__info_plist", v1}}).bytes(),
       kNone},
      {textWith(versionPlist("4.1")).segment("__TEXT", {{"__info_plist", v1}}).bytes(), "4.1"},
      // Names are whole names.
      {MachOFile().segment("__TEX", {{"__info_plist", v1}}).bytes(), kNone},
      {MachOFile().segment("__TEXT", {{"__info_plist_x", v1}}).bytes(), kNone},
      // ncmds bounds the walk; lying offsets, sizes and counts stay in the file.
      {MachOFile().other(0x19, 32).segment("__TEXT", {{"__info_plist", v1}}).ncmds(1).bytes(),
       kNone},
      {textWith(v1, 0xFFFFFFF0).bytes(), kNone}, {textWith(v1, 28 + 56 + 68 + 1).bytes(), kNone},
      {textWith(v1, -1, all).bytes(), kNone}, {textWith(v1, -1, v1.size() + 1).bytes(), kNone},
      {MachOFile().segment("__TEXT", {{"__text", ""}}).nsects(all).bytes(), kNone},
      {MachOFile().other(0xd, 24).ncmds(all).bytes(), kNone},
      {MachOFile().other(0xd, 24).cmdsize(all).ncmds(3).bytes(), kNone},
      // A zero-sized command is met ncmds times over, never what follows it.
      {textWith(array).cmdsize(0).segment("__TEXT", {{"__info_plist", v1}}).ncmds(all).bytes(),
       kNone},
      {textWith(versionPlist("0.5")).cmdsize(0).bytes(), "0.5"},
      // Section records running past their segment's cmdsize are still read.
      {textWith(versionPlist("8")).cmdsize(8).bytes(), "8"}};
  // clang-format on
  TempDir dir;
  const std::string path = dir / "lib.dylib";
  const std::string found = "30 Version for the dylib " + path + " successfully obtained";
  for (const auto& c : cases) {
    SCOPED_TRACE("case " + std::to_string(&c - cases));
    const auto& [bytes, version] = c;
    EXPECT_EQ(versionIn(bytes), version);
    writeFile(path, bytes);
    LogCapture log;
    StringUtils::PackageVersion v{9, 9, 9, 9};
    EXPECT_EQ(FU::GetDynamicLibraryVersion(path, v, nullptr), version != kNone);
    EXPECT_EQ(
        log.texts(),
        Lines{version != kNone ? found : "50 Error Failed to get the dylib " + path + "  version"});
    // A found version is converted into v; else v is left alone.
    EXPECT_EQ(v.major, version != kNone && !version.empty() ? std::stoi(version) : 9);
  }

  // Every prefix of a good file: the version is there exactly when the whole list is.
  const std::string good = dylibWithPlist(versionPlist("6.0"));
  for (size_t n = 0, end = good.find("</plist>") + 8; n < good.size(); ++n)
    ASSERT_EQ(versionIn(good.substr(0, n)), n >= end ? "6.0" : kNone) << n;

  make(dir.path(), {"empty.dylib"});
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);  // must not wait for a writer
  for (const std::string& bad : {dir / "missing", dir / "empty.dylib", dir.path(), dir / "fifo"}) {
    LogCapture log;
    StringUtils::PackageVersion v{};
    EXPECT_FALSE(FU::GetDynamicLibraryVersion(bad, v, nullptr));
    const std::string step = bad == dir / "missing" ? "open" : "map";
    EXPECT_EQ(log.texts(), Lines{"50 Error Failed " + step + " the dylib " + bad +
                                 " while getting its version"});
  }
}

TEST(PropertyLists, ValuesKeptAndHostileShapesRefused) {
  const velzip::PlistValue v = parsed(
      infoPlistXml("<dict><key>s</key><string>a&amp;b</string><key>n</key><integer>4</integer>"
                   "<key>list</key><array><dict/><string>x</string></array></dict>"));
  const velzip::PlistValue* list = v.find("list");
  EXPECT_TRUE(v.findString("s") != nullptr && *v.findString("s") == "a&b");
  EXPECT_TRUE(v.find("n") != nullptr && v.findString("n") == nullptr);  // there, not a string
  ASSERT_TRUE(list != nullptr && list->isArray() && list->items().size() == 2);
  EXPECT_TRUE(list->items()[0].isDictionary() && list->items()[1].text() == "x");
  auto nested = [](int depth, const std::string& open = "<array>") {
    std::string opened, closed;
    for (int i = 0; i < depth; ++i) opened += open, closed += "</array>";
    return infoPlistXml(opened + closed);
  };
  const int max = velzip::kPlistMaxDepth;
  for (const std::string& fine : {nested(max), arrayChain(max, 1), binaryPlistOneString("k", "")})
    parsed(fine);
  for (const std::string& bad :
       {nested(max + 1), nested(100000), nested(50000, "<array><!-- </array> -->"),
        arrayChain(max + 1, 1), arrayChain(3, 1, true), std::string("bplist00"),
        arrayChain(48, 2),  // 2^48 nodes once the parser copies what is shared
        binaryPlistOneString(std::string("CFBundle\0Version", 16), "1")})
    parsed(bad, false);
}

// The report is walked in its order, and entries of unexpected types are passed over.
TEST(DiskImages, ReportWalk) {
  const velzip::PlistValue report = parsed(infoPlistXml(
      "<dict><key>images</key><array><string>no image</string>"
      "<dict><key>image-path</key><integer>1</integer></dict>"
      "<dict><key>image-path</key><string>/nowhere/o.img</string><key>system-entities</key>"
      "<array><dict><key>mount-point</key><string>/m/o</string></dict></array></dict>"
      "<dict><key>image-path</key><string>/nowhere/./a.img</string><key>system-entities</key>"
      "<array><string>x</string><dict><key>dev-entry</key><string>/dev/loop1</string></dict>"
      "<dict><key>mount-point</key><integer>2</integer></dict>"
      "<dict><key>mount-point</key><string>/m/a</string></dict>"
      "<dict><key>mount-point</key><string>/m/a2</string></dict></array></dict>"
      "<dict><key>image-path</key><string>/nowhere/b.img</string>"
      "<key>system-entities</key><string>x</string></dict>"
      "<dict><key>image-path</key><string>/nowhere/b.img</string><key>system-entities</key>"
      "<array><dict><key>mount-point</key><string>/m/b</string></dict></array></dict>"
      "</array></dict>"));
  auto find = [](const velzip::PlistValue& r, const std::string& image) {
    std::string point = "<none>";
    const bool found = velzip::fileutils::findImageMountPoint(r, image, point);
    return (velzip::fileutils::reportListsImage(r, image) ? "listed " : "") + point +
           (found ? "" : " not found");
  };
  // Paths compare standardised; only the first entry for an image is looked into.
  EXPECT_EQ(find(report, "/nowhere//a.img/"), "listed /m/a");
  EXPECT_EQ(find(report, "/nowhere/b.img"), "listed <none> not found");
  EXPECT_EQ(find(report, "/nowhere/c.img"), "<none> not found");
  for (const char* odd : {"<array/>", "<dict/>", "<dict><key>images</key><string/></dict>"})
    EXPECT_EQ(find(parsed(infoPlistXml(odd)), "/nowhere/o.img"), "<none> not found") << odd;
}
