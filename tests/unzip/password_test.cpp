// Entries under the traditional PKWARE cipher, from zip and 7zz (format 0) and
// made here (format 1), through both readers and EntryStream itself.
#include "unzip/entry_stream.h"
#include "unzip/fixtures.h"

using namespace velzip_test;

namespace {

const char kPassword[] = "pa55 word";

// How EntryStream fares on the first entry: whether it opened, the last
// read's result and the reason it gave.
struct Outcome {
  bool opened;
  ssize_t last;
  std::string why;
};
Outcome readFirst(const std::string& archive, const char* password, unsigned chunk) {
  unzFile uf = unzOpen64(archive.c_str());
  velzip::ArchiveFile file;
  velzip::ZipEntryRecord rec;
  std::string why;
  EXPECT_TRUE(file.open(archive.c_str()) && unzGoToFirstFile(uf) == UNZ_OK &&
              file.readCentral(unzGetOffset64(uf), rec, why))
      << why;
  unzClose(uf);
  velzip::EntryStream in;
  std::vector<char> buf(chunk);
  Outcome o{in.open(file, rec, password), 0, ""};
  while (o.opened && (o.last = in.read(buf.data(), chunk)) > 0) continue;
  o.why = in.why();
  return o;
}

class Passwords : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!haveTool("zip") || !haveTool("7zz")) GTEST_SKIP() << "zip or 7zz missing";
    ASSERT_EQ(0, mkdir(src_.c_str(), 0755));
    for (const auto& f : files_) {
      writeFile(src_ + "/" + f.first, f.second);
      ASSERT_EQ(0, chmod((src_ + "/" + f.first).c_str(), f.first == "b_small.txt" ? 0750 : 0644));
    }
    ASSERT_EQ(0, symlink("b_small.txt", (src_ + "/link").c_str()));
  }

  // Runs a tool in the source folder on every file and the link (in name order).
  std::string make(const std::string& name, const std::string& tool) {
    const std::string all = " a_multi.txt b_small.txt c_empty.txt d_noise.bin link";
    EXPECT_EQ(0, runQuietly("cd '" + src_ + "' && " + tool + " '" + t_ / name + "'" + all));
    return t_ / name;
  }
  std::string zip(const std::string& name, const std::string& options = "") {
    return make(name, "zip -q -y " + options + " -P '" + kPassword + "'");
  }
  std::string seven(const std::string& name, const std::string& options = "") {
    return make(name, "7zz a -tzip -snl -mem=ZipCrypto " + options + " -p'" + kPassword + "'");
  }
  // Every entry encrypted, a link and an empty file among them.
  std::string format1() {
    ZipBuilder zip(t_ / "one.zip");
    for (const auto& f : files_) {
      zip.encrypted(f.first, f.second, kPassword, f.first == "b_small.txt" ? 0100750 : 0100644);
    }
    zip.encrypted("link", "b_small.txt", kPassword, 0120777);
    return t_ / "one.zip";
  }

  TempDir t_;
  const std::string src_ = t_ / "src";
  const std::vector<std::pair<std::string, std::string>> files_ = velzip_test::mixedFiles();
};

TEST_F(Passwords, EveryWriterExtractsByteExact) {
  const std::string mixed = make("mixed.zip", "zip -q -y");  // then two entries encrypted
  ASSERT_EQ(0, runQuietly("cd '" + src_ + "' && zip -q -y -P '" + kPassword + "' '" + mixed +
                          "' a_multi.txt link"));
  // zip streams (data descriptor): the header is checked against the DOS
  // time; 7zz writes the CRC first and the header is checked against it.
  const std::pair<std::string, int> cases[] = {
      {zip("zd.zip"), 0},   {zip("zs.zip", "-0"), 0},
      {seven("7d.zip"), 0}, {seven("7s.zip", "-mm=Copy"), 0},
      {mixed, 0},           {format1(), 1}};
  for (const auto& [archive, format] : cases) {
    SCOPED_TRACE(archive);
    const std::string out = archive + ".out";
    Recorder rec;
    ASSERT_TRUE(extract(format, archive, out, &rec, kPassword));
    EXPECT_EQ(treeListing(out), treeListing(src_));
    for (const auto& f : files_) EXPECT_EQ(rec.dataBytes()[f.first], f.second.size()) << f.first;
  }
}

TEST_F(Passwords, WrongMissingOrDamagedFail) {
  LogCapture logs;
  int n = 0;
  for (const std::string& archive :
       {zip("zd.zip"), zip("zs.zip", "-0"), seven("7d.zip"), format1()}) {
    SCOPED_TRACE(archive);
    const int format = archive == t_ / "one.zip" ? 1 : 0;
    // Fails on the first entry; counts the open failures logged.
    auto attempt = [&](const char* password) {
      capturedLines().clear();
      const std::string out = t_ / std::to_string(n++);
      withReader(format, archive, [&](auto& r) {
        r.setUnzipPassword(password);
        EXPECT_FALSE(r.unzipTo(out.c_str(), false, kKeep));
        // A failed entry leaves the archive usable.
        EXPECT_TRUE(password != kPassword || r.unzipFile(3, out.c_str(), false, kKeep));
      });
      // Nothing of a failed entry is left, not even an empty file.
      EXPECT_FALSE(exists(out + "/a_multi.txt"));
      return countLines(logs, 50, kOpenFailure);
    };
    ASSERT_EQ(attempt(nullptr), 1u);
    EXPECT_EQ(logs.lines().size(), 1u);
    EXPECT_EQ(logs.lines()[0].text,
              kOpenFailure + t_ / std::to_string(n - 1) + "/a_multi.txt: encrypted; no password");
    EXPECT_EQ(logs.lines()[0].module, format == 1 ? "VELZIP" : "UlvoUtils");
    // The header check is one byte, so now and then a wrong password passes
    // it; the data's CRC then fails the entry.
    size_t refusedAtOpen = 0;
    for (const char* wrong : {"", "pa55 wor", "pa55 word ", "PA55 WORD", "x", "password"}) {
      refusedAtOpen += attempt(wrong);
    }
    EXPECT_GE(refusedAtOpen, 4u);

    // Damage inside the data passes the header check and fails while reading.
    // The first entry's data: after its local header (30 bytes, then the
    // name, the extra field) and the 12-byte encryption header.
    const std::string bytes = readFile(archive);
    const size_t data = 30 + 11 + static_cast<unsigned char>(bytes[28]) +
                        256 * static_cast<unsigned char>(bytes[29]) + 12;
    flipByte(archive, data + 30000, 0x5A);
    EXPECT_EQ(attempt(kPassword), 0u);
    if (archive == t_ / "zs.zip") {  // stored: only the CRC tells
      const Outcome o = readFirst(archive, kPassword, 65536);
      EXPECT_TRUE(o.opened);
      EXPECT_EQ(o.last, -1);
      EXPECT_EQ(o.why, "CRC-32 mismatch");
    }
    flipByte(archive, data + 30000, 0x5A);
  }

  // A central directory that records fewer stored bytes than the deflate
  // stream needs (zip's local headers carry no sizes, so nothing else tells).
  std::string bytes = readFile(t_ / "zd.zip");
  const size_t at = bytes.find("PK\x01\x02") + 20;
  uint32_t size = 0;
  for (int i = 3; i >= 0; --i) size = size << 8 | static_cast<unsigned char>(bytes[at + i]);
  for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>((size / 2) >> (8 * i));
  writeFile(t_ / "zd.zip", bytes);
  for (unsigned chunk : {65536u, 1u}) {
    const Outcome o = readFirst(t_ / "zd.zip", kPassword, chunk);
    EXPECT_TRUE(o.opened);
    EXPECT_EQ(o.last, -1);
    EXPECT_EQ(o.why, "the deflate data is cut short");
  }
}

TEST_F(Passwords, EntryStreamCanBeReopenedAndClosed) {
  const std::string archive = zip("zd.zip");
  unzFile uf = unzOpen64(archive.c_str());
  velzip::ArchiveFile file;
  ASSERT_TRUE(file.open(archive.c_str()));
  velzip::EntryStream in;
  char buf[64];
  std::string why;
  // Opening again starts over on the new entry.
  for (const char* name : {"a_multi.txt", "b_small.txt"}) {
    velzip::ZipEntryRecord rec;
    ASSERT_EQ(UNZ_OK, unzLocateFile(uf, name, 1));
    ASSERT_TRUE(file.readCentral(unzGetOffset64(uf), rec, why)) << why;
    ASSERT_TRUE(in.open(file, rec, kPassword)) << in.why();
    EXPECT_GT(in.read(buf, sizeof buf), 0);
  }
  EXPECT_EQ(files_[1].second, std::string(buf, files_[1].second.size()));
  EXPECT_EQ(0, in.read(buf, sizeof buf));
  EXPECT_EQ(0, in.read(buf, sizeof buf)) << "the end stays the end";
  in.close();
  EXPECT_FALSE(in.isOpen());
  EXPECT_EQ(-1, in.read(buf, sizeof buf));
  unzClose(uf);
}

}  // namespace
