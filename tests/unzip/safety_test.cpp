// Bad archives and hostile names: clear failures, nothing outside the
// destination, nothing half-written that looks complete.
#include "unzip/fixtures.h"

using namespace velzip_test;

TEST(ReaderSafety, BrokenPayloadsFailCleanly) {
  TempDir t;
  const std::string data = sampleBytes(150000, 4), good = lzmaPayload(data);
  const std::string field = sizeField(data.size());
  std::string badProp = good, badControl = good;
  badProp[0] = static_cast<char>(0xFF);
  badControl[1] = 0x05;  // no LZMA2 chunk starts like this
  const struct {
    const char* name;
    std::string stored, extra;
    bool ok, decoded;  // decoded: got far enough for a final report
  } cases[] = {{"noextra", good, "", false, false},
               {"nodata", "", sizeField(0), false, false},  // even size 0 needs its property byte
               {"empty", lzmaPayload(""), sizeField(0), true, true},
               {"prop", badProp, field, false, true},
               {"control", badControl, field, false, true},
               {"cut", good.substr(0, good.size() / 2), field, false, true},
               {"small", good, sizeField(1000), false, true},
               {"text", good, std::string("abc\0", 4), false, true},
               {"large", good, sizeField(data.size() + 10), false, true},
               {"absurd", good, "99999999999999999999", false, false},
               {"negative", good, "-70000", false, false}};
  LogCapture logs;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string zip = t / c.name;
    ZipBuilder(zip).raw("f", c.stored, c.extra, 0100600);
    Recorder rec;
    EXPECT_EQ(extract(1, zip, zip + ".out", &rec), c.ok);
    EXPECT_EQ(rec.states().back(), c.decoded ? '3' : '1');
    EXPECT_EQ(readFile(zip + ".out/f"), "");
  }
  ASSERT_EQ(countLines(logs, 50, ""), 1u) << "decode failures are not logged";
  EXPECT_EQ(logs.lines()[0].text, "Failed to get extra local size for file " + t / "noextra.out/f");

  // Content that fails the container's CRC is not kept, in either format.
  for (int format : {0, 1}) {
    const std::string zip = t / ("crc" + std::to_string(format));
    ZipBuilder(zip, format).add("f", data);
    std::string bytes = readFile(zip);
    bytes[14] ^= 0x55;  // the local header's CRC, and the central one to agree
    bytes[bytes.find("PK\x01\x02") + 16] ^= 0x55;
    writeFile(zip, bytes);
    Recorder rec;
    EXPECT_FALSE(extract(format, zip, zip + ".out", &rec)) << format;
    EXPECT_TRUE(exists(zip + ".out/f") && readFile(zip + ".out/f").empty()) << format;
    EXPECT_EQ(rec.states(), "123") << format;
  }
}

TEST(ReaderSafety, NothingEscapesTheDestination) {
  TempDir t;
  const std::string out = t / "out";
  LogCapture logs;
  const struct {
    const char* name;
    bool link;
  } cases[] = {{"../evil", false}, {"a/../../evil", false},  {"..\\evil", false},
               {"a/..", false},    {"__MACOSX/._..", false}, {"__MACOSX/x/._..", false},
               {"../evil", true},  {"d/../../evil", true}};
  size_t refusals = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string zip = t / "bad.zip";
    ZipBuilder(zip).add(c.name, c.link ? "/" : "x", c.link ? 0120777 : 0100644);
    EXPECT_FALSE(extract(1, zip, out));
    // Junked, a companion is an ordinary file named "._..", harmless.
    const bool junked = std::strncmp(c.name, "__MACOSX", 8) != 0;
    EXPECT_FALSE(junked && extract(1, zip, out, nullptr, nullptr, true));
    refusals += 1 + junked;
  }
  EXPECT_FALSE(exists(t / "evil") || exists(t / "x"));
  EXPECT_TRUE(logs.contains("Refusing to extract outside the destination: ../evil"));

  // A leading "/" is only appended to the destination; link targets may
  // climb, nothing is written through them.
  ZipBuilder(t / "abs.zip").add({{"/abs/file", "inside"}, {"/abs/ln", "../x", 0120777}});
  ASSERT_TRUE(extract(1, t / "abs.zip", out));
  EXPECT_EQ(readFile(out + "/abs/file"), "inside");
  EXPECT_EQ(linkTarget(out + "/abs/ln"), "../x");

  // A name is cut to fit the path buffer; a cut that ends in ".." is refused.
  std::string lng(1023 - out.size() - 4, 'p');
  for (size_t i = 200; i < lng.size(); i += 200) lng[i] = '/';
  ZipBuilder(t / "long.zip").add({{lng + "/..abc", "x"}, {lng + "/q", "long"}});
  Vel::VelUnzipHandler l((t / "long.zip").c_str());
  EXPECT_FALSE(l.unzipFile(0, out.c_str(), false, kKeep));
  EXPECT_TRUE(l.unzipFile(1, out.c_str(), false, kKeep));
  EXPECT_EQ(readFile(out + "/" + lng + "/q"), "long");
  EXPECT_EQ(countLines(logs, 50, "Refusing to extract outside the destination: "), refusals + 1);
}

TEST(ReaderSafety, RetriesAndFolderFailures) {
  TempDir t;
  LogCapture logs;
  const std::string zip = t / "r.zip", out = t / "out", tooLong = t / std::string(300, 'n');
  ZipBuilder(zip).add({{"x", "data"}, {"a/b", "data"}, {"a/l", "t", 0120777}});
  Vel::VelUnzipHandler r(zip.c_str());
  // A name no file system takes: every mkdir fails the same way.
  EXPECT_FALSE(r.unzipTo(tooLong.c_str(), false, kKeep));
  EXPECT_FALSE(r.unzipTo(nullptr, false, kKeep));
  writeFile(t / "plain", "");
  EXPECT_FALSE(r.unzipFile((t / "plain").c_str(), false, kKeep));
  // The output path is a folder: 20 opens, then give up.
  ASSERT_EQ(mkdir(out.c_str(), 0755), 0);
  ASSERT_EQ(mkdir((out + "/x").c_str(), 0755), 0);
  ASSERT_TRUE(r.gotoFirstFile(nullptr));
  EXPECT_FALSE(r.unzipFile(out.c_str(), false, kKeep));
  // A parent that is a file, for a file and for a link.
  writeFile(out + "/a", "file");
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(r.gotoNextFile(nullptr));
    EXPECT_FALSE(r.unzipFile(out.c_str(), false, kKeep));
  }
  const struct {
    int level;
    std::string prefix;
    size_t count;
  } expected[] = {
      {10, "Failed to create directory: " + tooLong + " with code Error ", 19},
      {40,
       "Failed to create directory after 20 retry attempts: " + tooLong + " with code Error 36 ",
       1},
      {50, "Folder creation failed: " + tooLong, 1},
      {50, "Folder creation failed: (null)", 1},
      {50, "Failed to create destinationFolder '" + t / "plain" + "'.  Error", 1},
      {10, "Failed to open file : " + out + "/x with code Error 21 ", 19},
      {40, "Cannot open file '" + out + "/x' after all retries for writing: ", 1},
      {50, "Failed to CreateFilePath: " + out + "/a/b. Error ", 1},
      {50, "Failed to CreateFilePath: " + out + "/a/l", 1},
  };
  for (const auto& e : expected)
    EXPECT_EQ(countLines(logs, e.level, e.prefix), e.count) << e.prefix;
  EXPECT_EQ(logs.lines().size(), 45u) << "nothing else";

  // An existing link at a file's path is never written through.
  writeFile(t / "victim", "safe");
  ASSERT_EQ(mkdir((t / "linked").c_str(), 0755), 0);
  ASSERT_EQ(symlink((t / "victim").c_str(), (t / "linked/x").c_str()), 0);
  ASSERT_TRUE(r.gotoFirstFile(nullptr));
  EXPECT_FALSE(r.unzipFile((t / "linked").c_str(), false, kKeep));
  EXPECT_EQ(readFile(t / "victim"), "safe");
}
