// Bad archives, hostile names and planted links: clear failures, nothing
// outside the destination, nothing half-written.
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
    const char* why;   // how the failure line ends
  } cases[] = {{"noextra", good, "", false, false, "noextra.out/f"},
               {"nodata", "", sizeField(0), false, false, "the payload has no property byte"},
               {"empty", lzmaPayload(""), sizeField(0), true, true, ""},
               {"prop", badProp, field, false, true, "invalid LZMA2 property byte"},
               {"control", badControl, field, false, true, "damaged LZMA2 payload"},
               {"cut", good.substr(0, good.size() / 2), field, false, true, " of 150000 bytes"},
               {"small", good, sizeField(1000), false, true, "more than its size text"},
               {"large", good, sizeField(data.size() + 10), false, true, "150000 of 150010 bytes"},
               {"trailing", good + "x", field, false, true, "after the payload's end"},
               {"text", good, std::string("abc\0", 4), false, false, "is not a number"},
               {"absurd", good, "99999999999999999999", false, false, "is not a number"},
               {"negative", good, "-70000", false, false, "is not a number"}};
  LogCapture logs;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string zip = t / c.name;
    ZipBuilder(zip).raw("f", c.stored, c.extra, 0100600);
    Recorder rec;
    capturedLines().clear();
    EXPECT_EQ(extract(1, zip, zip + ".out", &rec), c.ok);
    EXPECT_EQ(rec.states().back(), c.decoded ? '3' : '1');
    EXPECT_EQ(exists(zip + ".out/f"), c.ok) << "nothing of a failed entry";
    if (c.ok) continue;
    ASSERT_EQ(logs.lines().size(), 1u);
    const std::string& line = logs.lines()[0].text;
    const std::string why = c.why;
    EXPECT_TRUE(line.size() >= why.size() &&
                line.compare(line.size() - why.size(), why.size(), why) == 0)
        << line;
  }

  // Content that fails the container's CRC is not kept, in either format.
  for (int format : {0, 1}) {
    const std::string zip = t / ("crc" + std::to_string(format));
    ZipBuilder(zip, format).add("f", data);
    std::string bytes = readFile(zip);
    bytes[14] ^= 0x55;  // the local header's CRC, and the central one to agree
    bytes[bytes.find("PK\x01\x02") + 16] ^= 0x55;
    writeFile(zip, bytes);
    Recorder rec;
    capturedLines().clear();
    EXPECT_FALSE(extract(format, zip, zip + ".out", &rec)) << format;
    EXPECT_FALSE(exists(zip + ".out/f")) << format;
    EXPECT_EQ(rec.states(), "123") << format;
    EXPECT_TRUE(logs.contains("Failed to extract " + zip + ".out/f: CRC-32 mismatch"));
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

  // Names are never cut: a long one is written whole.
  std::string lng(1023 - out.size() - 4, 'p');
  for (size_t i = 200; i < lng.size(); i += 200) lng[i] = '/';
  ZipBuilder(t / "long.zip").add({{lng + "/..abc", "x"}, {lng + "/q", "long"}});
  Vel::VelUnzipHandler l((t / "long.zip").c_str());
  EXPECT_TRUE(l.unzipFile(0, out.c_str(), false, kKeep));
  EXPECT_TRUE(l.unzipFile(1, out.c_str(), false, kKeep));
  EXPECT_EQ(readFile(out + "/" + lng + "/..abc"), "x");
  EXPECT_EQ(readFile(out + "/" + lng + "/q"), "long");
  EXPECT_EQ(countLines(logs, 50, "Refusing to extract outside the destination: "), refusals);
}

// Links already in the destination, one level down or more, from an
// earlier extraction or planted: followed while they stay inside, refused
// when they lead out.
TEST(ReaderSafety, PlantedLinksNeverLeadOutside) {
  TempDir t;
  const std::string out = t / "out", outside = t / "outside";
  ASSERT_EQ(mkdir(outside.c_str(), 0755), 0);
  ASSERT_EQ(mkdir(out.c_str(), 0755), 0);
  ASSERT_EQ(mkdir((out + "/real").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((out + "/deep").c_str(), 0755), 0);
  ASSERT_EQ(symlink(outside.c_str(), (out + "/abs").c_str()), 0);
  ASSERT_EQ(symlink("../../outside", (out + "/deep/up").c_str()), 0);
  ASSERT_EQ(symlink((out + "/real").c_str(), (out + "/absinside").c_str()), 0);
  ASSERT_EQ(symlink("../real", (out + "/deep/sideways").c_str()), 0);
  LogCapture logs;
  for (int format : {0, 1}) {
    SCOPED_TRACE(format);
    const std::string zip = t / ("p" + std::to_string(format));
    for (const char* name : {"abs/f", "deep/up/f", "deep/up/sub/f", "absinside/f"}) {
      ZipBuilder(zip, format).add(name, "payload");
      capturedLines().clear();
      EXPECT_FALSE(extract(format, zip, out)) << name;
      EXPECT_TRUE(logs.contains("Failed to CreateFilePath: " + out + "/" + name)) << name;
      EXPECT_TRUE(logs.contains("Invalid cross-device link")) << "the reason is named";
    }
    ZipBuilder(zip, format).add("deep/sideways/f", "inside");
    EXPECT_TRUE(extract(format, zip, out));
    EXPECT_EQ(readFile(out + "/real/f"), "inside") << "a link that stays inside is followed";
  }
  EXPECT_EQ(treeListing(outside), "") << "nothing appeared outside";
}

TEST(ReaderSafety, FolderFailuresSayWhyAndPermanentOnesAreNotRetried) {
  TempDir t;
  LogCapture logs;
  const std::string zip = t / "r.zip", out = t / "out", tooLong = t / std::string(300, 'n');
  ZipBuilder(zip).add({{"x", "data"}, {"a/b", "data"}, {"a/l", "t", 0120777}});
  Vel::VelUnzipHandler r(zip.c_str());
  // A name no file system takes fails at once: waiting would not help.
  EXPECT_FALSE(r.unzipTo(tooLong.c_str(), false, kKeep));
  EXPECT_FALSE(r.unzipTo(nullptr, false, kKeep));
  writeFile(t / "plain", "");
  EXPECT_FALSE(r.unzipFile((t / "plain").c_str(), false, kKeep));
  // A folder at a file's path is not replaced.
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
  EXPECT_EQ(
      logs.texts(),
      (std::vector<std::string>{
          "40 Failed to create directory after 1 retry attempts: " + tooLong +
              " with code Error 36 File name too long",
          "50 Folder creation failed: " + tooLong,
          "50 Folder creation failed: (null)",
          "50 Failed to create destinationFolder '" + t / "plain" + "'.  Error 20 Not a directory",
          "50 Failed to extract " + out + "/x: Error 21 Is a directory",
          "50 Failed to CreateFilePath: " + out + "/a/b. Error 20 Not a directory",
          "50 Failed to CreateFilePath: " + out + "/a/l. Error 20 Not a directory",
      }));
  EXPECT_EQ(treeListing(out),
            "a 644 4:" + std::to_string(std::hash<std::string>()("file")) + "\nx 755/\n")
      << "nothing staged is left";
}
