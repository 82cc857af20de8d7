// Entries compressed with the methods other tools write (bzip2, LZMA, xz,
// Zstandard): archives from the peers here and entries made with the
// methods' libraries, through both readers, the entry stream, entry
// descriptions and the C interface; damaged and unsupported ones fail
// without writing anything.
#include <filesystem>
#include <map>

#include "support/method_craft.h"
#include "support/zip_craft.h"
#include "unzip/fixtures.h"
#include "unzip/stream_probe.h"
#include "velzip/velzip.h"

using namespace velzip_test;

namespace {

const char kExtractFailure[] = "Failed to extract ";

struct Method {
  const char* name;  // as getEntryInfo names it
  uint16_t id;
  uint16_t flag;
  std::string (*encode)(const std::string&);
};

std::string lzmaWithMarker(const std::string& d) {
  return lzmaZipBytes(d, true);
}
std::string lzmaWithoutMarker(const std::string& d) {
  return lzmaZipBytes(d, false);
}
std::string zstdTwoFrames(const std::string& d) {
  return zstdBytes(d.substr(0, d.size() / 2)) + zstdBytes(d.substr(d.size() / 2));
}
std::string deflateBytes(const std::string& d) {
  return rawDeflate(d);
}
std::string storedBytes(const std::string& d) {
  return d;
}

const Method kMethods[] = {
    {"stored", 0, 0, storedBytes},      {"deflate", 8, 0, deflateBytes},
    {"bzip2", 12, 0, bzip2Bytes},       {"lzma", 14, kLzmaEndMarkerFlag, lzmaWithMarker},
    {"lzma", 14, 0, lzmaWithoutMarker}, {"xz", 95, 0, xzBytes},
    {"zstd", 93, 0, zstdBytes},         {"zstd", 20, 0, zstdBytes},
    {"zstd", 93, 0, zstdTwoFrames},
};

// Several 64 KiB chunks of text and noise, a line, nothing.
const std::vector<std::pair<std::string, std::string>>& contents() {
  static const std::vector<std::pair<std::string, std::string>> all = {
      {"big.bin", sampleBytes(700000, 4) + noiseBytes(200000, 5)},
      {"line.txt", "one line of text\n"},
      {"empty", ""}};
  return all;
}

// A content's format-1 payload, made once.
const std::string& payloadOf(const std::string& data) {
  static std::map<std::string, std::string> made;
  auto it = made.find(data);
  if (it == made.end()) it = made.emplace(data, lzmaPayload(data)).first;
  return it->second;
}

// The contents under method m: as they are (format 0), or as format-1
// payloads with their size texts (format 1).
std::string craftArchive(const std::string& path, const Method& m, int format) {
  std::vector<CraftEntry> entries;
  for (const auto& [name, data] : contents()) {
    const std::string content = format == 1 ? payloadOf(data) : data;
    CraftEntry e = packedEntry(name, content, m.encode(content), m.id, m.flag);
    if (format == 1) e.localExtra = sizeField(data.size());
    entries.push_back(e);
  }
  writeFile(path, craftZip(entries));
  return path;
}

// Every file below root, relative name to content.
std::map<std::string, std::string> filesIn(const std::string& root) {
  std::map<std::string, std::string> out;
  if (!exists(root)) return out;
  for (auto& item : std::filesystem::recursive_directory_iterator(root)) {
    if (item.is_regular_file()) {
      out[item.path().string().substr(root.size() + 1)] = readFile(item.path().string());
    }
  }
  return out;
}

std::map<std::string, std::string> expectedFiles() {
  return {contents().begin(), contents().end()};
}

}  // namespace

TEST(Methods, CraftedEntriesOfEveryMethodReadThroughBothReaders) {
  TempDir t;
  int n = 0;
  for (const Method& m : kMethods) {
    SCOPED_TRACE(std::string(m.name) + " " + std::to_string(m.id) + " flag " +
                 std::to_string(m.flag) + " case " + std::to_string(n));
    for (int format : {0, 1}) {
      const std::string zip = craftArchive(t / (std::to_string(n) + ".zip"), m, format);
      const std::string out = t / (std::to_string(n++) + ".out");
      ASSERT_TRUE(extract(format, zip, out));
      EXPECT_EQ(filesIn(out), expectedFiles());
      withReader(format, zip, [&](auto& r) {
        UZ_EntryInfo info;
        std::string why;
        ASSERT_TRUE(r.gotoFile(0) && r.getEntryInfo(info));
        EXPECT_EQ(info.methodName, m.name);
        EXPECT_EQ(info.realMethod, m.id);
        EXPECT_TRUE(info.unreadable.empty()) << info.unreadable;
        EXPECT_TRUE(r.testFile(why)) << why;
      });
    }
    // The decoders hand out whatever little is asked of them.
    const StreamOutcome small = readEntry(t / std::to_string(n - 2) + ".zip", 0, nullptr, 7);
    EXPECT_EQ(small.last, 0) << small.why;
    EXPECT_TRUE(small.bytes == contents()[0].second);
    // The C interface reads them too (format 0).
    const std::string viaC = t / (std::to_string(n) + ".c");
    EXPECT_EQ(velzipDecompressFile((t / std::to_string(n - 2) + ".zip").c_str(), viaC.c_str(), 0,
                                   nullptr, nullptr),
              0);
    EXPECT_EQ(filesIn(viaC), expectedFiles());
  }
}

TEST(Methods, PeerArchivesExtractByteExact) {
  if (!haveTool("zip") || !haveTool("7zz") || !haveTool("python3")) {
    GTEST_SKIP() << "zip, 7zz or python3 missing";
  }
  TempDir t;
  const std::string src = t / "src";
  ASSERT_EQ(mkdir(src.c_str(), 0755), 0);
  for (const auto& [name, data] : contents()) writeFile(src + "/" + name, data);
  const std::string python =
      "python3 -c \"import sys, zipfile; z = zipfile.ZipFile(sys.argv[1], 'w', "
      "zipfile.ZIP_%s); [z.write(f) for f in sys.argv[2:]]; z.close()\"";
  auto pythonWith = [&](const char* method) {
    char command[512];
    std::snprintf(command, sizeof command, python.c_str(), method);
    return std::string(command);
  };
  const struct {
    std::string command;
    const char* method;
  } cases[] = {{"zip -q -Z bzip2", "bzip2"},     {"7zz a -tzip -m0=BZip2", "bzip2"},
               {"7zz a -tzip -m0=LZMA", "lzma"}, {"7zz a -tzip -m0=LZMA -mx=9", "lzma"},
               {pythonWith("BZIP2"), "bzip2"},   {pythonWith("LZMA"), "lzma"}};
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.command);
    const std::string zip = t / (std::to_string(n) + ".zip"), out = t / std::to_string(n++);
    ASSERT_EQ(
        runQuietly("cd '" + src + "' && " + c.command + " '" + zip + "' big.bin line.txt empty"),
        0);
    ASSERT_TRUE(extract(0, zip, out + "/reader"));
    EXPECT_EQ(filesIn(out + "/reader"), expectedFiles());
    ASSERT_EQ(velzipDecompressFile(zip.c_str(), (out + "/c").c_str(), 0, nullptr, nullptr), 0);
    EXPECT_EQ(filesIn(out + "/c"), expectedFiles());
    UnzipHandler r(zip.c_str());
    UZ_EntryInfo info;
    ASSERT_TRUE(r.gotoFile(0) && r.getEntryInfo(info));
    EXPECT_EQ(info.methodName, c.method) << "the noise may be stored, the text is not";
  }
}

TEST(Methods, DamagedOrCutShortDataFailsAndWritesNothing) {
  TempDir t;
  const std::string data = sampleBytes(300000, 7);
  auto cut = [](std::string s) { return s.substr(0, s.size() / 2); };
  auto flip = [](std::string s) {
    s[s.size() / 2] ^= 0x55;
    return s;
  };
  auto lzmaHeader = [&](int byte, char value) {
    std::string s = lzmaZipBytes(data, true);
    s[static_cast<size_t>(byte)] = value;
    return s;
  };
  const struct {
    const char* name;
    uint16_t method, flag;
    std::string stored;
    const char* why;  // a part of the reason logged
  } cases[] = {
      {"bzip2 cut", 12, 0, cut(bzip2Bytes(data)), "the bzip2 data is cut short"},
      {"bzip2 flipped", 12, 0, flip(bzip2Bytes(data)), ""},
      {"lzma cut", 14, kLzmaEndMarkerFlag, cut(lzmaZipBytes(data, true)), "cut short"},
      {"lzma flipped", 14, kLzmaEndMarkerFlag, flip(lzmaZipBytes(data, true)), ""},
      {"lzma marker promised, none there", 14, kLzmaEndMarkerFlag, lzmaZipBytes(data, false),
       "the LZMA data is cut short"},
      {"lzma header cut", 14, 0, lzmaZipBytes(data, false).substr(0, 6),
       "the LZMA header is cut short"},
      {"lzma properties size", 14, 0, lzmaHeader(2, 4), "damaged LZMA header"},
      {"lzma properties", 14, 0, lzmaHeader(4, char(225)), "damaged LZMA header"},
      {"xz cut", 95, 0, cut(xzBytes(data)), "the xz data is cut short"},
      {"xz flipped", 95, 0, flip(xzBytes(data)), "xz"},
      {"xz that is not", 95, 0, zstdBytes(data), "not xz data"},
      {"zstd cut", 93, 0, cut(zstdBytes(data)), "the zstd data is cut short"},
      {"zstd flipped", 93, 0, flip(zstdBytes(data)), ""},
      {"zstd followed by junk", 93, 0, zstdBytes(data) + "junk", "damaged zstd data"},
  };
  LogCapture logs;
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string zip = t / (std::to_string(n) + ".zip"), out = t / std::to_string(n++);
    writeFile(zip, craftZip({packedEntry("f", data, c.stored, c.method, c.flag)}));
    capturedLines().clear();
    EXPECT_FALSE(extract(0, zip, out));
    EXPECT_TRUE(filesIn(out).empty()) << "nothing, not even an empty file";
    ASSERT_EQ(logs.lines().size(), 1u);
    const std::string& line = logs.lines()[0].text;
    EXPECT_TRUE(line.rfind(kOpenFailure + out + "/f: ", 0) == 0 ||
                line.rfind(kExtractFailure + out + "/f: ", 0) == 0)
        << line;
    EXPECT_NE(line.find(c.why), std::string::npos) << line;
  }
}

TEST(Methods, LzmaWithoutAnEndMarkerStopsAtTheRecordedSize) {
  TempDir t;
  const std::string data = sampleBytes(200000, 2);
  const struct {
    const char* name;
    std::string stored;
    uint64_t recordedSize;
    bool ok;
  } cases[] = {
      {"padding after the stream", lzmaZipBytes(data, false) + std::string(64, 'x'), data.size(),
       true},
      {"a marker all the same", lzmaZipBytes(data, true), data.size(), true},
      {"a dictionary the header overstates", lzmaZipBytes(data, false, 0xFFFFFFFFu), data.size(),
       true},
      {"a record that says less", lzmaZipBytes(data, false), data.size() - 10, false},
      {"a record that says more", lzmaZipBytes(data, false), data.size() + 10, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CraftEntry e = packedEntry("f", data, c.stored, 14);
    e.size = c.recordedSize;
    writeFile(t / "l.zip", craftZip({e}));
    const StreamOutcome o = readEntry(t / "l.zip", 0, nullptr, 65536);
    EXPECT_TRUE(o.opened) << o.why;
    EXPECT_EQ(o.last, c.ok ? 0 : -1) << o.why;
    EXPECT_TRUE(!c.ok || o.bytes == data);
  }
}

TEST(Methods, UnsupportedMethodsFailAtOpenNamingTheMethod) {
  TempDir t;
  const std::string data = sampleBytes(1000, 1);
  const struct {
    uint16_t id;
    const char* name;
    const char* why;
  } cases[] = {{1, "shrink", "unsupported compression method 1 (shrink)"},
               {3, "reduce", "unsupported compression method 3 (reduce)"},
               {6, "implode", "unsupported compression method 6 (implode)"},
               {9, "deflate64", "unsupported compression method 9 (deflate64)"},
               {98, "ppmd", "unsupported compression method 98 (ppmd)"},
               {42, "method 42", "unsupported compression method 42 (unknown)"}};
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string zip = t / (std::to_string(n) + ".zip");
    writeFile(zip, craftZip({packedEntry("f", data, data, c.id)}));
    expectRefusedAtOpen(zip, t / "", n, nullptr, c.why,
                        [&](const UZ_EntryInfo& info) { EXPECT_EQ(info.methodName, c.name); });
  }
}
