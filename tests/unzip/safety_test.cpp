#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "unzip/archive_builder.h"
#include "unzip/recorder.h"
#include "velzip/VelUnzipHandler.h"

using namespace velzip_test;

namespace {

constexpr unsigned long kKeep = 0xFFFFFFFFul;

size_t countLines(const LogCapture& logs, int level, const std::string& prefix) {
  size_t n = 0;
  for (const auto& l : logs.lines())
    if (l.level == level && l.text.rfind(prefix, 0) == 0) ++n;
  return n;
}

struct Outcome {
  bool ok;
  std::string states;
};

// Extracts a one-entry archive holding the given stored bytes and extra field.
Outcome extractRaw(const TempDir& t, const std::string& stored, const std::string& extra,
                   const std::string& dest) {
  const std::string zip = t / (dest + ".zip");
  ArchiveBuilder(zip).raw("f", stored, extra, 0100600);
  Vel::VelUnzipHandler r(zip.c_str());
  Recorder rec;
  r.setCallback(Recorder::callback, &rec);
  const bool ok = r.unzipTo((t / dest).c_str(), false, kKeep);
  return {ok, rec.states()};
}

}  // namespace

TEST(VelUnzipSafety, BrokenPayloadsFailCleanly) {
  TempDir t;
  const std::string data = sampleBytes(150000, 4);
  const std::string good = lzmaPayload(data);
  const std::string field = sizeField(data.size());
  LogCapture logs;

  Outcome o = extractRaw(t, good, "", "noextra");
  EXPECT_FALSE(o.ok);
  EXPECT_EQ(o.states, "1") << "no final report before data";
  EXPECT_TRUE(logs.contains("Failed to get extra local size for file " + t / "noextra/f"));
  EXPECT_EQ(readFile(t / "noextra/f"), "");

  EXPECT_EQ(extractRaw(t, "", sizeField(0), "nodata").states, "1");
  EXPECT_FALSE(extractRaw(t, "", sizeField(0), "nodata2").ok) << "even size 0 needs its byte";
  EXPECT_TRUE(extractRaw(t, lzmaPayload(""), sizeField(0), "empty").ok);

  std::string badProp = good;
  badProp[0] = static_cast<char>(0xFF);
  std::string badControl = good;
  badControl[1] = 0x05;  // no LZMA2 chunk starts like this
  std::string cut = good.substr(0, good.size() / 2);
  for (const auto& [name, stored, extra] :
       {std::tuple<std::string, std::string, std::string>{"prop", badProp, field},
        {"control", badControl, field},
        {"cut", cut, field},
        {"small", good, sizeField(1000)},
        {"text", good, std::string("abc\0", 4)},
        {"large", good, sizeField(data.size() + 10)},
        {"absurd", good, "99999999999999999999"},
        {"negative", good, "-70000"}}) {
    o = extractRaw(t, stored, extra, name);
    EXPECT_FALSE(o.ok) << name;
    EXPECT_EQ(readFile(t / (name + "/f")), "") << name;
    const bool allocated = name != "absurd" && name != "negative";
    EXPECT_EQ(o.states.back(), allocated ? '3' : '1') << name;
  }
  EXPECT_EQ(countLines(logs, 50, ""), 1u) << "decode failures are not logged";

  // A payload that decodes but fails the container's CRC is not kept.
  const std::string zip = t / "crc.zip";
  ArchiveBuilder(zip).file("f", data, 0100600);
  std::string bytes = readFile(zip);
  const size_t local = bytes.find("PK\x03\x04"), central = bytes.find("PK\x01\x02");
  ASSERT_NE(central, std::string::npos);
  bytes[local + 14] = static_cast<char>(bytes[local + 14] ^ 0x55);  // both headers agree
  bytes[central + 16] = static_cast<char>(bytes[central + 16] ^ 0x55);
  writeFile(zip, bytes);
  Vel::VelUnzipHandler r(zip.c_str());
  Recorder rec;
  r.setCallback(Recorder::callback, &rec);
  EXPECT_FALSE(r.unzipTo((t / "crc").c_str(), false, kKeep));
  EXPECT_EQ(readFile(t / "crc/f"), "");
  EXPECT_EQ(rec.states().back(), '3');
}

TEST(VelUnzipSafety, NothingEscapesTheDestination) {
  TempDir t;
  const std::string out = t / "out";
  LogCapture logs;
  for (const std::string name :
       {"../evil", "a/../../evil", "..\\evil", "a/..", "__MACOSX/._..", "__MACOSX/x/._.."}) {
    const std::string zip = t / "bad.zip";
    ArchiveBuilder(zip).file(name, "x");
    Vel::VelUnzipHandler r(zip.c_str());
    EXPECT_FALSE(r.unzipTo(out.c_str(), false, kKeep)) << name;
    // Junked, a companion is an ordinary file named "._.." and harmless.
    if (name.rfind("__MACOSX", 0) != 0) {
      EXPECT_FALSE(r.unzipTo(out.c_str(), true, kKeep)) << name << " (junked)";
    }
  }
  for (const std::string name : {"../evil", "d/../../evil"}) {
    const std::string zip = t / "badlink.zip";
    ArchiveBuilder(zip).link(name, "/");
    Vel::VelUnzipHandler r(zip.c_str());
    EXPECT_FALSE(r.unzipTo(out.c_str(), false, kKeep)) << name;
  }
  EXPECT_FALSE(exists(t / "evil"));
  EXPECT_FALSE(exists(t / "x"));
  EXPECT_EQ(countLines(logs, 50, "Refusing to extract outside the destination: "), 12u);
  EXPECT_TRUE(logs.contains("Refusing to extract outside the destination: ../evil"));

  // A leading "/" is only appended to the destination.
  const std::string zip = t / "abs.zip";
  ArchiveBuilder(zip).file("/abs/file", "inside").link("/abs/ln", "../x");
  Vel::VelUnzipHandler r(zip.c_str());
  ASSERT_TRUE(r.unzipTo(out.c_str(), false, kKeep));
  EXPECT_EQ(readFile(out + "/abs/file"), "inside");
  EXPECT_TRUE(exists(out + "/abs/ln")) << "link targets may climb; nothing is written through them";

  // A name is cut to fit the path buffer; a cut that ends in ".." is refused.
  const std::string prefix = out + "/";
  std::string lng(1023 - prefix.size() - 3, 'p');
  for (size_t i = 200; i < lng.size(); i += 200) lng[i] = '/';
  ArchiveBuilder(t / "long.zip").file(lng + "/..abc", "x").file(lng + "/q", "long");
  Vel::VelUnzipHandler l((t / "long.zip").c_str());
  EXPECT_FALSE(l.unzipFile(0, out.c_str(), false, kKeep));
  EXPECT_TRUE(l.unzipFile(1, out.c_str(), false, kKeep));
  EXPECT_TRUE(exists(prefix + lng + "/q"));
}

TEST(VelUnzipSafety, RetriesAndFolderFailures) {
  TempDir t;
  LogCapture logs;
  const std::string zip = t / "r.zip";
  ArchiveBuilder(zip).file("x", "data").file("a/b", "data").link("a/l", "t");
  Vel::VelUnzipHandler r(zip.c_str());

  // A name no file system takes: every mkdir fails the same way.
  const std::string tooLong = t / std::string(300, 'n');
  EXPECT_FALSE(r.unzipTo(tooLong.c_str(), false, kKeep));
  EXPECT_EQ(countLines(logs, 10, "Failed to create directory: " + tooLong + " with code Error "),
            19u);
  EXPECT_EQ(countLines(logs, 40,
                       "Failed to create directory after 20 retry attempts: " + tooLong +
                           " with code Error 36 "),
            1u);
  EXPECT_EQ(countLines(logs, 50, "Folder creation failed: " + tooLong), 1u);
  writeFile(t / "plain", "");
  EXPECT_FALSE(r.unzipFile((t / "plain").c_str(), false, kKeep));
  EXPECT_EQ(
      countLines(logs, 50, "Failed to create destinationFolder '" + t / "plain" + "'.  Error"), 1u);
  for (const auto& l : logs.lines()) {
    EXPECT_EQ(l.module, "VELZIP");
    EXPECT_EQ(l.component, "VelUnzipHandler");
    EXPECT_EQ(l.tag2, "");
  }

  // The output path is a folder: 20 opens, then give up.
  const std::string out = t / "out";
  ASSERT_EQ(mkdir(out.c_str(), 0755), 0);
  ASSERT_EQ(mkdir((out + "/x").c_str(), 0755), 0);
  ASSERT_TRUE(r.gotoFirstFile(nullptr));
  EXPECT_FALSE(r.unzipFile(out.c_str(), false, kKeep));
  EXPECT_EQ(countLines(logs, 10, "Failed to open file : " + out + "/x with code Error 21 "), 19u);
  EXPECT_EQ(
      countLines(logs, 40, "Cannot open file '" + out + "/x' after all retries for writing: "), 1u);

  // A parent that is a file.
  writeFile(out + "/a", "file");
  ASSERT_TRUE(r.gotoNextFile(nullptr));
  EXPECT_FALSE(r.unzipFile(out.c_str(), false, kKeep));
  EXPECT_EQ(countLines(logs, 50, "Failed to CreateFilePath: " + out + "/a/b. Error "), 1u);
  ASSERT_TRUE(r.gotoNextFile(nullptr));
  EXPECT_FALSE(r.unzipFile(out.c_str(), false, kKeep));
  EXPECT_EQ(countLines(logs, 50, "Failed to CreateFilePath: " + out + "/a/l"), 1u);

  // An existing link at a file's path is never written through.
  writeFile(t / "victim", "safe");
  const std::string linked = t / "linked";
  ASSERT_EQ(mkdir(linked.c_str(), 0755), 0);
  ASSERT_EQ(symlink((t / "victim").c_str(), (linked + "/x").c_str()), 0);
  ASSERT_TRUE(r.gotoFirstFile(nullptr));
  EXPECT_FALSE(r.unzipFile(linked.c_str(), false, kKeep));
  EXPECT_EQ(readFile(t / "victim"), "safe");
}

TEST(VelUnzipSafety, EmptyAndMissingArchives) {
  TempDir t;
  LogCapture logs;
  // The zip layer refuses to open an archive without entries.
  const std::string zip = t / "empty.zip";
  ArchiveBuilder(zip).close();
  Vel::VelUnzipHandler r(zip.c_str());
  EXPECT_EQ(r.getFileCount(), 0u);
  EXPECT_FALSE(r.gotoFirstFile(nullptr));
  EXPECT_FALSE(r.unzipTo((t / "out").c_str(), false, kKeep));
  EXPECT_FALSE(r.unzip(zip.c_str(), (t / "out").c_str(), false, kKeep));

  writeFile(t / "junk.zip", "this is not a zip archive at all");
  EXPECT_FALSE(r.unzip((t / "junk.zip").c_str(), (t / "o").c_str(), false, kKeep));
  EXPECT_TRUE(logs.lines().empty());

  ArchiveBuilder(t / "one.zip").file("f", "1");
  ASSERT_TRUE(r.openZip((t / "one.zip").c_str()));
  EXPECT_FALSE(r.unzipTo(nullptr, false, kKeep));
  EXPECT_TRUE(logs.contains("Folder creation failed: "));
}
