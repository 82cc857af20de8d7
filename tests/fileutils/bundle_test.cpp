#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "fileutils/dylib_bytes.h"
#include "platform/plist.h"
#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

namespace {

using namespace velzip_test;
using UlvoUtils::FileUtils::GetBundleExecutablePath;

std::string infoWithExecutable(const std::string& valueXml) {
  return infoPlistXml(
      "<dict><key>CFBundleIdentifier</key><string>com.example.app</string>"
      "<key>CFBundleExecutable</key>" +
      valueXml + "</dict>");
}

// Makes path/Contents/Info.plist and, if given, the executable file.
void makeBundle(const std::string& path, const std::string& info, const std::string& exe = "") {
  mkdir(path.c_str(), 0755);
  mkdir((path + "/Contents").c_str(), 0755);
  mkdir((path + "/Contents/MacOS").c_str(), 0755);
  writeFile(path + "/Contents/Info.plist", info);
  if (!exe.empty()) writeFile(path + "/Contents/MacOS/" + exe, "#!/bin/sh\n");
}

TEST(Bundles, ExecutableComesFromTheInfoList) {
  TempDir dir;
  makeBundle(dir / "Tool.app", infoWithExecutable("<string>Tool Runner</string>"), "Tool Runner");
  const std::string expected = dir / "Tool.app/Contents/MacOS/Tool Runner";

  std::string exe;
  ASSERT_TRUE(GetBundleExecutablePath(dir / "Tool.app", exe));
  EXPECT_EQ(exe, expected);
  exe.clear();
  ASSERT_TRUE(GetBundleExecutablePath(dir / "Tool.app/", exe));
  EXPECT_EQ(exe, expected);

  // Links and relative parts of the bundle path are resolved.
  ASSERT_EQ(symlink((dir / "Tool.app").c_str(), (dir / "Link.app").c_str()), 0);
  mkdir((dir / "sub").c_str(), 0755);
  exe.clear();
  ASSERT_TRUE(GetBundleExecutablePath(dir / "sub/../Link.app", exe));
  EXPECT_EQ(exe, expected);

  // A binary Info.plist does as well.
  makeBundle(dir / "Bin.app", binaryPlistOneString("CFBundleExecutable", "bin"), "bin");
  ASSERT_TRUE(GetBundleExecutablePath(dir / "Bin.app", exe));
  EXPECT_EQ(exe, dir / "Bin.app/Contents/MacOS/bin");
}

TEST(Bundles, AnythingElseIsNotABundle) {
  TempDir dir;
  writeFile(dir / "file", "x");
  mkdir((dir / "plain").c_str(), 0755);
  makeBundle(dir / "NoExe.app", infoWithExecutable("<string>Gone</string>"));
  makeBundle(dir / "NoKey.app",
             infoPlistXml("<dict><key>CFBundleName</key><string>a</string></dict>"), "a");
  makeBundle(dir / "NotString.app", infoWithExecutable("<integer>1</integer>"), "1");
  makeBundle(dir / "Array.app", infoPlistXml("<array><string>a</string></array>"), "a");
  makeBundle(dir / "Garbage.app", "{ not a list", "a");
  makeBundle(dir / "Escape.app", infoWithExecutable("<string>../../file</string>"));
  makeBundle(dir / "Dots.app", infoWithExecutable("<string>..</string>"));
  makeBundle(dir / "Empty.app", infoWithExecutable("<string></string>"));
  makeBundle(dir / "DirExe.app", infoWithExecutable("<string>D</string>"));
  mkdir((dir / "DirExe.app/Contents/MacOS/D").c_str(), 0755);
  makeBundle(dir / "PlistDir.app", "", "a");
  unlink((dir / "PlistDir.app/Contents/Info.plist").c_str());
  mkdir((dir / "PlistDir.app/Contents/Info.plist").c_str(), 0755);
  ASSERT_EQ(mkfifo((dir / "Fifo.app").c_str(), 0600), 0);

  for (const std::string& path :
       {std::string(), dir / "missing.app", dir / "file", dir / "plain", dir / "NoExe.app",
        dir / "NoKey.app", dir / "NotString.app", dir / "Array.app", dir / "Garbage.app",
        dir / "Escape.app", dir / "Dots.app", dir / "Empty.app", dir / "DirExe.app",
        dir / "PlistDir.app", dir / "Fifo.app"}) {
    std::string exe = "untouched";
    EXPECT_FALSE(GetBundleExecutablePath(path, exe)) << path;
    EXPECT_EQ(exe, "untouched") << path;
  }
}

TEST(PropertyLists, KeepsDictionariesArraysAndStrings) {
  const std::string xml = infoPlistXml(
      "<dict><key>s</key><string>a&amp;b</string><key>n</key><integer>4</integer>"
      "<key>list</key><array><dict/><string>x</string></array></dict>");
  velzip::PlistValue v;
  ASSERT_TRUE(velzip::parsePropertyList(xml.data(), xml.size(), v));
  ASSERT_NE(v.findString("s"), nullptr);
  EXPECT_EQ(*v.findString("s"), "a&b");
  ASSERT_NE(v.find("n"), nullptr);
  EXPECT_EQ(v.findString("n"), nullptr);  // there, but not a string
  const velzip::PlistValue* list = v.find("list");
  ASSERT_TRUE(list != nullptr && list->isArray() && list->items().size() == 2);
  EXPECT_TRUE(list->items()[0].isDictionary());
  EXPECT_EQ(list->items()[1].text(), "x");

  for (const std::string& bad : {std::string(), std::string("plain text"), std::string("bplist00"),
                                 xml.substr(0, xml.size() / 2),
                                 // A NUL in a key would stop the parser dead rather than fail.
                                 binaryPlistOneString(std::string("CFBundle\0Version", 16), "1")}) {
    EXPECT_FALSE(velzip::parsePropertyList(bad.data(), bad.size(), v)) << bad;
  }
}

TEST(PropertyLists, HostileShapesAreRefused) {
  auto nested = [](int depth, const std::string& open) {
    std::string body;
    for (int i = 0; i < depth; ++i) body += open;
    body += "<string>leaf</string>";
    for (int i = 0; i < depth; ++i) body += "</array>";
    return infoPlistXml(body);
  };
  // Binary: arrays each referring `refs` times to the next; the last one
  // refers back to the first when `cycle`.
  auto chain = [](int n, int refs, bool cycle) {
    std::string out = "bplist00", table;
    for (int i = 0; i < n; ++i) {
      table += static_cast<char>(out.size() >> 8);
      table += static_cast<char>(out.size() & 0xff);
      const int next = i + 1 < n ? i + 1 : (cycle ? 0 : -1);
      out += static_cast<char>(next < 0 ? 0xA0 : 0xA0 | refs);
      for (int r = 0; next >= 0 && r < refs; ++r) {
        out += static_cast<char>(next >> 8);
        out += static_cast<char>(next & 0xff);
      }
    }
    std::string trailer(32, '\0');
    trailer[6] = trailer[7] = 2;
    trailer[14] = static_cast<char>(n >> 8);
    trailer[15] = static_cast<char>(n & 0xff);
    trailer[30] = static_cast<char>(out.size() >> 8);
    trailer[31] = static_cast<char>(out.size() & 0xff);
    return out + table + trailer;
  };
  const int max = velzip::kPlistMaxDepth;
  velzip::PlistValue v;
  for (const std::string& fine : {nested(max, "<array>"), chain(max, 1, false)}) {
    EXPECT_TRUE(velzip::parsePropertyList(fine.data(), fine.size(), v));
  }
  for (const std::string& bad :
       {nested(max + 1, "<array>"), nested(100000, "<array>"),
        // Closing tags hidden in comments do not lower the count.
        nested(50000, "<array><!-- </array> -->"), chain(max + 1, 1, false), chain(20000, 1, false),
        chain(3, 1, true),
        // 2^48 nodes once the parser copies what is shared.
        chain(48, 2, false)}) {
    EXPECT_FALSE(velzip::parsePropertyList(bad.data(), bad.size(), v));
  }
}

}  // namespace
