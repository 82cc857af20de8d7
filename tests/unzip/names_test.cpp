// Entry names from hosts that did not write UTF-8: code page 437 from MS-DOS
// and Windows hosts, the Info-ZIP Unicode Path field, and names that are
// kept byte for byte. Descriptions, navigation and extraction agree.
#include "support/zip_craft.h"
#include "unzip/fixtures.h"

using namespace velzip_test;

namespace {

constexpr uint16_t kDos = 0 << 8 | 20;
constexpr uint16_t kNtfs = 11 << 8 | 20;
constexpr uint16_t kVfat = 14 << 8 | 20;
constexpr uint16_t kUnix = 3 << 8 | 20;
constexpr uint16_t kUtf8Flag = 1u << 11;

// An Info-ZIP Unicode Path block naming utf8, written for the stored name
// whose CRC-32 is nameCrc.
std::string unicodePath(const std::string& utf8, uint32_t nameCrc, uint8_t version = 1) {
  std::string d(1, static_cast<char>(version));
  put32(d, nameCrc);
  return extraBlock(0x7075, d + utf8);
}

CraftEntry named(const std::string& stored, uint16_t madeBy, uint16_t flag = 0,
                 const std::string& extra = "") {
  CraftEntry e = storedEntry(stored, "content of " + stored);
  e.madeBy = madeBy;
  e.flag = flag;
  e.centralExtra = extra;
  e.external = madeBy == kUnix ? 0100644u << 16 : 0x20;
  return e;
}

// What Python's zipfile makes of each name in an archive, one a line.
std::string pythonNames(const std::string& zip) {
  const std::string out = zip + ".names";
  runQuietly(
      "python3 -c \"import sys, zipfile; open(sys.argv[2], 'w', encoding='utf-8')"
      ".write(''.join(n + chr(10) for n in zipfile.ZipFile(sys.argv[1]).namelist()))\" '" +
      zip + "' '" + out + "'");
  return readFile(out);
}

}  // namespace

TEST(Names, LegacyNamesAreReadAsTheirHostsWroteThem) {
  TempDir t;
  const std::string gruesse =
      "Gr\x81\xE1"
      "e.txt";  // "Grüße.txt" in code page 437
  const uint32_t gruesseCrc = crcOfBytes(gruesse);
  const struct {
    const char* name;
    CraftEntry entry;
    std::string expected;
    bool asPython;  // Python's zipfile reads it the same way
  } cases[] = {
      {"MS-DOS, code page 437", named(gruesse, kDos), "Grüße.txt", true},
      {"NTFS, '\\' after conversion", named("caf\x82\\men\x81.txt", kNtfs), "café/menü.txt", true},
      {"VFAT, box drawing", named("\xC9\xCD\xBB box \xB1", kVfat), "╔═╗ box ▒", true},
      {"Unix keeps its bytes", named(gruesse, kUnix), gruesse, false},
      {"valid UTF-8 is kept", named("Grüße.txt", kDos), "Grüße.txt", false},
      {"the UTF-8 flag keeps the bytes", named("x\x81.txt", kDos, kUtf8Flag), "x\x81.txt", false},
      {"a matching Unicode Path wins",
       named(gruesse, kDos, 0, unicodePath("Grüße-u.txt", gruesseCrc)), "Grüße-u.txt", false},
      {"a stale one does not", named(gruesse, kDos, 0, unicodePath("other.txt", gruesseCrc ^ 1)),
       "Grüße.txt", true},
      {"over the UTF-8 flag on Unix too",
       named("plain.txt", kUnix, kUtf8Flag, unicodePath("日本.txt", crcOfBytes("plain.txt"))),
       "日本.txt", false},
      {"its '\\' turned too", named(gruesse, kDos, 0, unicodePath("dir\\ü.txt", gruesseCrc)),
       "dir/ü.txt", false},
      {"an unknown version is ignored",
       named(gruesse, kDos, 0, unicodePath("v2.txt", gruesseCrc, 2)), "Grüße.txt", true},
  };
  const bool python = haveTool("python3");
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string zip = t / (std::to_string(n) + ".zip"), out = t / std::to_string(n++);
    writeFile(zip, craftZip({c.entry}));
    for (int format : {0, 1}) {
      withReader(format, zip, [&](auto& r) {
        UZ_FileInfo info;
        UZ_EntryInfo entry;
        ASSERT_TRUE(r.getFileInfo(0, info) && r.getEntryInfo(entry));
        EXPECT_EQ(std::string(info.fileName), c.expected);
        EXPECT_EQ(entry.name, c.expected);
      });
    }
    ASSERT_TRUE(extract(0, zip, out));
    EXPECT_EQ(readFile(out + "/" + c.expected), "content of " + c.entry.name);
    if (python && c.asPython) {
      std::string theirs = pythonNames(zip);
      for (char& ch : theirs) ch = ch == '\\' ? '/' : ch;
      EXPECT_EQ(theirs, c.expected + "\n");
    }
  }
}

TEST(Names, NavigationFindsConvertedNames) {
  TempDir t;
  writeFile(t / "nav.zip",
            craftZip({named("docs\\Re\x84"
                            "dme.txt",
                            kDos),
                      named("docs\\men\x81.txt", kNtfs),
                      named("x.txt", kDos, 0, unicodePath("ü/ß.txt", crcOfBytes("x.txt")))}));
  for (int format : {0, 1}) {
    withReader(format, t / "nav.zip", [&](auto& r) {
      UZ_FileInfo info;
      EXPECT_TRUE(r.gotoFile("MENü.TXT", true)) << "ASCII letters in any case";
      EXPECT_TRUE(r.gotoFile("menü.txt", true) && r.getFileInfo(info));
      EXPECT_EQ(std::string(info.fileName), "docs/menü.txt");
      EXPECT_TRUE(r.gotoFile("ß.txt", true) && r.getFileInfo(info));
      EXPECT_EQ(std::string(info.fileName), "ü/ß.txt");
      EXPECT_TRUE(r.gotoFirstFile("TXT") && r.getFileInfo(info));
      EXPECT_EQ(std::string(info.fileName), "docs/Reädme.txt");
      // Whole names too, as they read, not as they are stored.
      EXPECT_TRUE(r.gotoFile("DOCS/MENü.txt", false) && r.getFileInfo(info));
      EXPECT_EQ(std::string(info.fileName), "docs/menü.txt");
      EXPECT_TRUE(r.gotoFile("ü/ß.txt", false) && r.getFileInfo(info));
      EXPECT_EQ(std::string(info.fileName), "ü/ß.txt");
      EXPECT_FALSE(r.gotoFile("ß.txt", false)) << "a base name needs matchBaseName";
    });
  }
}
