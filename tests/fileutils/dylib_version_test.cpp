#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "fileutils/dylib_bytes.h"
#include "fileutils/dylib_version_macho.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

namespace {

using namespace velzip_test;
using StringUtils::PackageVersion;
using UlvoUtils::FileUtils::GetDynamicLibraryVersion;

bool versionIn(const std::string& bytes, std::string& version) {
  return velzip::findMachOBundleVersion(reinterpret_cast<const uint8_t*>(bytes.data()),
                                        bytes.size(), version);
}

std::string text(const PackageVersion& v) {
  return std::to_string(v.major) + "." + std::to_string(v.minor) + "." +
         std::to_string(v.revision) + "." + std::to_string(v.build);
}

std::string versionIn(const std::string& bytes) {
  std::string version = "<none>";
  versionIn(bytes, version);
  return version;
}

TEST(DylibVersion, ReadsTheVersionTheLibraryCarries) {
  TempDir dir;
  const std::string xml = dir / "libxml.dylib";
  const std::string bin = dir / "libbin.dylib";
  writeFile(xml, dylibWithPlist(versionPlist("1.2.3.4")));
  writeFile(bin, dylibWithPlist(versionPlistBinary("7.8")));

  LogCapture log;
  PackageVersion v{-1, -1, -1, -1};
  ASSERT_TRUE(GetDynamicLibraryVersion(xml, v, nullptr));
  EXPECT_EQ(text(v), "1.2.3.4");
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].level, 30);
  EXPECT_EQ(log.lines()[0].module, "UlvoUtils");
  EXPECT_EQ(log.lines()[0].component, "FileUtils");
  EXPECT_EQ(log.lines()[0].text, "Version for the dylib " + xml + " successfully obtained");

  // Only the parts the text has are set; a passed logger object takes the line.
  CaptureLogger object;
  PackageVersion w{-1, -1, -1, -1};
  ASSERT_TRUE(GetDynamicLibraryVersion(bin, w, &object));
  EXPECT_EQ(text(w), "7.8.-1.-1");
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[1].module, "<object>");

  // Whatever the conversion makes of the text, a version was found.
  writeFile(xml, dylibWithPlist(versionPlist("")));
  PackageVersion u{5, 5, 5, 5};
  EXPECT_TRUE(GetDynamicLibraryVersion(xml, u, nullptr));
  EXPECT_EQ(text(u), "5.5.5.5");
}

TEST(DylibVersion, WalksCommandsAndSectionsInOrder) {
  const std::string array = infoPlistXml("<array><string>9.9</string></array>");
  const std::string noVersion =
      infoPlistXml("<dict><key>CFBundleName</key><string>x</string></dict>");

  // __info_plist outside __TEXT is not looked at; a list that is not a
  // dictionary, or one without the key, lets the walk go on.
  EXPECT_EQ(
      versionIn(MachOFile()
                    .segment("__DATA", {{"__info_plist", versionPlist("1.0")}})
                    .other(0x22, 48)
                    .segment("__TEXT", {{"__text", "code"}, {"__info_plist", array}})
                    .segment("__TEXT", {{"__info_plist", noVersion}})
                    .segment("__TEXT", {{"__const", ""}, {"__info_plist", versionPlist("3.0")}})
                    .bytes()),
      "3.0");

  // Only the first __info_plist of a segment counts.
  EXPECT_EQ(versionIn(MachOFile()
                          .segment("__TEXT",
                                   {{"__info_plist", array}, {"__info_plist", versionPlist("2.0")}})
                          .bytes()),
            "<none>");

  // Names are whole names: neither prefixes nor longer names match.
  for (const char* seg : {"__TEX", "__TEXT_EXEC", "__text"}) {
    EXPECT_EQ(versionIn(MachOFile().segment(seg, {{"__info_plist", versionPlist("1")}}).bytes()),
              "<none>")
        << seg;
  }
  EXPECT_EQ(
      versionIn(MachOFile().segment("__TEXT", {{"__info_plist_x", versionPlist("1")}}).bytes()),
      "<none>");

  // The first matching command wins; later ones are not needed.
  EXPECT_EQ(versionIn(MachOFile()
                          .segment("__TEXT", {{"__info_plist", versionPlist("4.1")}})
                          .segment("__TEXT", {{"__info_plist", versionPlist("4.2")}})
                          .bytes()),
            "4.1");

  // ncmds bounds the walk even when more commands follow.
  EXPECT_EQ(versionIn(MachOFile()
                          .other(0x19, 32)
                          .segment("__TEXT", {{"__info_plist", versionPlist("5")}})
                          .ncmds(1)
                          .bytes()),
            "<none>");
}

TEST(DylibVersion, OtherFilesGiveTheFailureLine) {
  TempDir dir;
  const std::string path = dir / "lib.dylib";
  std::string bigEndian = dylibWithPlist(versionPlist("1.0"));
  bigEndian.replace(0, 4, "\xfe\xed\xfa\xce");

  const std::string cases[] = {
      dylibWithPlist(versionPlist("1.0"), kMachO64),
      dylibWithPlist(versionPlist("1.0"), kUniversal),
      bigEndian,
      MachOFile().other(0xd, 24).segment("__DATA", {{"__data", "x"}}).bytes(),
      MachOFile().segment("__TEXT", {{"__text", "x"}, {"__cstring", "y"}}).bytes(),
      dylibWithPlist(infoPlistXml("<dict><key>CFBundleShortVersionString</key>"
                                  "<string>1.0</string></dict>")),
      dylibWithPlist(infoPlistXml("<dict><key>CFBundleVersion</key><integer>3</integer></dict>")),
      dylibWithPlist("not a property list"),
      std::string("\xce\xfa\xed\xfe", 4),
  };
  for (const std::string& bytes : cases) {
    writeFile(path, bytes);
    LogCapture log;
    PackageVersion v{1, 2, 3, 4};
    EXPECT_FALSE(GetDynamicLibraryVersion(path, v, nullptr));
    EXPECT_EQ(text(v), "1.2.3.4");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, 50);
    EXPECT_EQ(log.lines()[0].text, "Error Failed to get the dylib " + path + "  version");
  }
}

TEST(DylibVersion, UnreadableFilesGiveTheirOwnLines) {
  TempDir dir;
  writeFile(dir / "empty.dylib", "");
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
  struct Case {
    std::string path, line;
  } cases[] = {
      {dir / "missing.dylib",
       "Error Failed open the dylib " + (dir / "missing.dylib") + " while getting its version"},
      {dir / "empty.dylib",
       "Error Failed map the dylib " + (dir / "empty.dylib") + " while getting its version"},
      {dir.path(), "Error Failed map the dylib " + dir.path() + " while getting its version"},
      // Must not wait for a writer.
      {dir / "fifo", "Error Failed map the dylib " + (dir / "fifo") + " while getting its version"},
  };
  for (const Case& c : cases) {
    LogCapture log;
    PackageVersion v{};
    EXPECT_FALSE(GetDynamicLibraryVersion(c.path, v, nullptr));
    ASSERT_EQ(log.lines().size(), 1u) << c.path;
    EXPECT_EQ(log.lines()[0].level, 50);
    EXPECT_EQ(log.lines()[0].text, c.line);
  }
}

TEST(DylibVersion, TruncatedAndLyingFilesAreReadWithinBounds) {
  const std::string plist = versionPlist("6.0");
  const std::string good = dylibWithPlist(plist);
  const size_t plistEnd = good.find("</plist>") + std::string("</plist>\n").size();
  ASSERT_EQ(versionIn(good), "6.0");
  // Every prefix: the version is there exactly when the whole section is.
  for (size_t n = 0; n < good.size(); ++n) {
    std::string v;
    EXPECT_EQ(versionIn(good.substr(0, n), v), n >= plistEnd) << n;
  }

  for (int64_t offset : {int64_t{0xFFFFFFF0}, int64_t{0x7FFFFFFF}, int64_t(good.size())}) {
    EXPECT_EQ(versionIn(MachOFile().segment("__TEXT", {{"__info_plist", plist, offset}}).bytes()),
              "<none>");
  }
  for (int64_t size : {int64_t{0xFFFFFFFF}, int64_t{0x20}, int64_t(plist.size() + 1)}) {
    EXPECT_EQ(versionIn(MachOFile().segment("__TEXT", {{"__info_plist", plist, -1, size}}).bytes()),
              "<none>");
  }
  // Section records or commands claimed beyond the end of the file.
  EXPECT_EQ(versionIn(MachOFile().segment("__TEXT", {{"__text", ""}}).nsects(0xFFFFFFFF).bytes()),
            "<none>");
  EXPECT_EQ(versionIn(MachOFile().other(0xd, 24).ncmds(0xFFFFFFFF).bytes()), "<none>");
  EXPECT_EQ(versionIn(MachOFile().other(0xd, 24).cmdsize(0xFFFFFFFF).ncmds(3).bytes()), "<none>");
  // A zero-sized command is met ncmds times over, and never what follows
  // it; that must still end quickly.
  EXPECT_EQ(versionIn(MachOFile()
                          .segment("__TEXT", {{"__info_plist", infoPlistXml("<array/>")}})
                          .cmdsize(0)
                          .segment("__TEXT", {{"__info_plist", versionPlist("1")}})
                          .ncmds(0xFFFFFFFF)
                          .bytes()),
            "<none>");
  EXPECT_EQ(versionIn(MachOFile()
                          .segment("__TEXT", {{"__info_plist", versionPlist("0.5")}})
                          .cmdsize(0)
                          .bytes()),
            "0.5");
  // A segment whose records run past its own cmdsize is still read within
  // the file.
  EXPECT_EQ(
      versionIn(
          MachOFile().segment("__TEXT", {{"__info_plist", versionPlist("8")}}).cmdsize(8).bytes()),
      "8");
}

}  // namespace
