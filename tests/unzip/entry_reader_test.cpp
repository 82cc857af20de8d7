// Password-protected entries, read through the zip layer and EntryReader from
// archives that zip and 7zz make at run time.
#include "unzip/entry_reader.h"

#include <gtest/gtest.h>
#include <minizip/unzip.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace {

using velzip::EntryReader;
using velzip_test::TempDir;

const char kPassword[] = "s3cret pass";

int run(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str());
}

bool haveTool(const char* tool) {
  return run(std::string("command -v ") + tool) == 0;
}

// Incompressible bytes, so that 7zz keeps them stored and deflate gains nothing.
std::string noiseBytes(size_t size, unsigned seed) {
  std::string out(size, '\0');
  unsigned long long x = seed * 0x9E3779B97F4A7C15ull + 7;
  for (auto& c : out) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    c = static_cast<char>(x >> 24);
  }
  return out;
}

struct Entry {
  int openRc = 0;
  int readRc = 0;  // last read result: 0 at a clean end
  int closeRc = 0;
  std::string data;
  bool ok() const { return openRc == UNZ_OK && readRc == 0 && closeRc == UNZ_OK; }
};

class Archive {
 public:
  explicit Archive(const std::string& path) : zip_(unzOpen64(path.c_str())) {}
  ~Archive() {
    if (zip_ != nullptr) unzClose(zip_);
  }
  unzFile get() const { return zip_; }

  bool locate(const std::string& name) { return unzLocateFile(zip_, name.c_str(), 1) == UNZ_OK; }

  unsigned long flags(const std::string& name) {
    unz_file_info64 info{};
    if (!locate(name)) return ~0ul;
    unzGetCurrentFileInfo64(zip_, &info, nullptr, 0, nullptr, 0, nullptr, 0);
    return info.flag;
  }

  Entry read(const std::string& name, const char* password, unsigned chunk = 65536) {
    Entry e;
    if (!locate(name)) {
      e.openRc = UNZ_END_OF_LIST_OF_FILE;
      return e;
    }
    EntryReader reader;
    e.openRc = reader.open(zip_, password);
    if (e.openRc != UNZ_OK) return e;
    std::vector<char> buf(chunk);
    int got;
    while ((got = reader.read(buf.data(), chunk)) > 0) e.data.append(buf.data(), got);
    e.readRc = got;
    e.closeRc = reader.close();
    return e;
  }

  // Where the entry's stored (encrypted) bytes start in the file.
  long long dataOffset(const std::string& name) {
    if (!locate(name) || unzOpenCurrentFile2(zip_, nullptr, nullptr, 1) != UNZ_OK) return -1;
    const long long pos = static_cast<long long>(unzGetCurrentFileZStreamPos64(zip_));
    unzCloseCurrentFile(zip_);
    return pos;
  }

 private:
  unzFile zip_;
};

void flipByte(const std::string& path, long long offset, unsigned char mask) {
  std::string bytes = velzip_test::readFile(path);
  ASSERT_LT(offset, static_cast<long long>(bytes.size()));
  bytes[static_cast<size_t>(offset)] ^= static_cast<char>(mask);
  velzip_test::writeFile(path, bytes);
}

class EntryReaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!haveTool("zip") || !haveTool("7zz")) GTEST_SKIP() << "zip or 7zz missing";
    ASSERT_FALSE(dir_.path().empty());
    files_ = {{"small.txt", "a few words of plain text\n"},
              {"empty.txt", ""},
              {"multi.txt", velzip_test::sampleBytes(300000, 3)},
              {"noise.bin", noiseBytes(230000, 5)}};
    for (const auto& f : files_) velzip_test::writeFile(dir_ / f.first, f.second);
  }

  std::string names() const {
    std::string all;
    for (const auto& f : files_) all += " " + f.first;
    return all;
  }

  // Runs command in the scratch folder and returns the archive's path.
  std::string make(const std::string& archive, const std::string& command) {
    EXPECT_EQ(0, run("cd '" + dir_.path() + "' && " + command)) << command;
    return dir_ / archive;
  }

  void expectAllReadBack(const std::string& archivePath, const char* label) {
    Archive zip(archivePath);
    ASSERT_NE(zip.get(), nullptr) << label;
    for (const auto& f : files_) {
      for (unsigned chunk : {65536u, 4093u}) {
        const Entry e = zip.read(f.first, kPassword, chunk);
        EXPECT_TRUE(e.ok()) << label << " " << f.first << " open " << e.openRc << " read "
                            << e.readRc << " close " << e.closeRc;
        EXPECT_TRUE(e.data == f.second) << label << " " << f.first << " chunk " << chunk;
      }
    }
  }

  TempDir dir_;
  std::vector<std::pair<std::string, std::string>> files_;
};

TEST_F(EntryReaderTest, CorrectPasswordReadsByteExact) {
  // zip streams its encrypted entries (data descriptor): the header is
  // checked against the DOS time. 7zz writes the CRC up front and the header
  // is checked against it.
  const std::string zipDeflated =
      make("zd.zip", "zip -q -P '" + std::string(kPassword) + "' zd.zip" + names());
  const std::string zipStored =
      make("zs.zip", "zip -q -0 -P '" + std::string(kPassword) + "' zs.zip" + names());
  const std::string sevenDeflated = make(
      "7d.zip", "7zz a -tzip -p'" + std::string(kPassword) + "' -mem=ZipCrypto 7d.zip" + names());
  const std::string sevenStored = make("7s.zip", "7zz a -tzip -p'" + std::string(kPassword) +
                                                     "' -mem=ZipCrypto -mm=Copy 7s.zip" + names());

  {
    Archive zd(zipDeflated);
    Archive sd(sevenDeflated);
    for (const auto& f : files_) {
      EXPECT_EQ(0x9ul, zd.flags(f.first) & 0x9ul) << f.first;
      EXPECT_EQ(0x1ul, sd.flags(f.first) & 0x9ul) << f.first;
    }
  }
  expectAllReadBack(zipDeflated, "zip deflated");
  expectAllReadBack(zipStored, "zip stored");
  expectAllReadBack(sevenDeflated, "7zz deflated");
  expectAllReadBack(sevenStored, "7zz stored");
}

TEST_F(EntryReaderTest, WrongOrMissingPasswordFails) {
  const std::string zd =
      make("zd.zip", "zip -q -P '" + std::string(kPassword) + "' zd.zip" + names());
  const std::string sd = make(
      "7d.zip", "7zz a -tzip -p'" + std::string(kPassword) + "' -mem=ZipCrypto 7d.zip" + names());

  for (const std::string& path : {zd, sd}) {
    Archive zip(path);
    for (const auto& f : files_) {
      EXPECT_EQ(UNZ_PARAMERROR, zip.read(f.first, nullptr).openRc) << path << " " << f.first;

      // The header check is one byte, so about one wrong password in 256
      // passes it; past it, the CRC catches every entry that has data (an
      // empty one has nothing to tell a wrong key by).
      int refusedAtOpen = 0;
      const char* wrong[] = {"",       "s3cret pas", "s3cret pass ", "S3cret pass",
                             "secret", "x",          "s3cret_pass",  "pass s3cret"};
      for (const char* password : wrong) {
        const Entry e = zip.read(f.first, password);
        if (!f.second.empty()) {
          EXPECT_FALSE(e.ok()) << path << " " << f.first << " " << password;
        }
        if (e.openRc == UNZ_PARAMERROR) ++refusedAtOpen;
      }
      EXPECT_GE(refusedAtOpen, 6) << path << " " << f.first;
    }
  }
}

TEST_F(EntryReaderTest, WrongPasswordPastTheHeaderCheckFailsWhileReading) {
  const std::string zd =
      make("zd.zip", "zip -q -P '" + std::string(kPassword) + "' zd.zip" + names());
  const std::string zs =
      make("zs.zip", "zip -q -0 -P '" + std::string(kPassword) + "' zs.zip" + names());
  for (const std::string& path : {zd, zs}) {
    Archive zip(path);
    ASSERT_TRUE(zip.locate("multi.txt"));
    // Search for a wrong password whose decrypted check byte matches by chance.
    std::string lucky;
    for (int i = 0; i < 20000 && lucky.empty(); ++i) {
      const std::string candidate = "wrong" + std::to_string(i);
      EntryReader reader;
      if (reader.open(zip.get(), candidate.c_str()) == UNZ_OK) lucky = candidate;
    }
    ASSERT_FALSE(lucky.empty());
    const Entry e = zip.read("multi.txt", lucky.c_str());
    EXPECT_EQ(UNZ_OK, e.openRc);
    EXPECT_LT(e.readRc, 0) << path << " " << lucky;
    if (path == zs) {
      EXPECT_EQ(UNZ_CRCERROR, e.readRc);
      EXPECT_EQ(UNZ_CRCERROR, e.closeRc);
      EXPECT_EQ(files_[2].second.size(), e.data.size());
    }
  }
}

TEST_F(EntryReaderTest, CorruptCiphertextFailsCleanly) {
  const std::string zd =
      make("zd.zip", "zip -q -P '" + std::string(kPassword) + "' zd.zip" + names());
  const std::string zs =
      make("zs.zip", "zip -q -0 -P '" + std::string(kPassword) + "' zs.zip" + names());
  const std::string& multi = files_[2].second;

  for (const std::string& path : {zd, zs}) {
    long long start;
    {
      Archive zip(path);
      start = zip.dataOffset("multi.txt");
    }
    ASSERT_GT(start, 0);

    // A changed last header byte changes the decrypted check byte.
    flipByte(path, start + 11, 0x01);
    {
      Archive zip(path);
      EXPECT_EQ(UNZ_PARAMERROR, zip.read("multi.txt", kPassword).openRc) << path;
      EXPECT_TRUE(zip.read("small.txt", kPassword).ok()) << path;
    }
    flipByte(path, start + 11, 0x01);

    // Damage in the middle of the data: the header still passes.
    flipByte(path, start + 12 + 40000, 0x5A);
    {
      Archive zip(path);
      for (unsigned chunk : {65536u, 777u}) {
        const Entry e = zip.read("multi.txt", kPassword, chunk);
        EXPECT_EQ(UNZ_OK, e.openRc) << path;
        EXPECT_LT(e.readRc, 0) << path;
        EXPECT_NE(e.data, multi) << path;
        if (path == zs) {
          EXPECT_EQ(UNZ_CRCERROR, e.readRc);
        }
      }
      // A failed entry leaves the archive usable.
      EXPECT_TRUE(zip.read("noise.bin", kPassword).ok()) << path;
    }
    flipByte(path, start + 12 + 40000, 0x5A);
  }

  // A central directory that records fewer stored bytes than the deflate
  // stream needs (zip's local headers carry no sizes, so nothing else tells).
  std::string bytes = velzip_test::readFile(zd);
  const std::string central = std::string("PK\x01\x02", 4);
  size_t at = 0;
  while ((at = bytes.find(central, at)) != std::string::npos &&
         bytes.compare(at + 46, 9, "multi.txt") != 0) {
    ++at;
  }
  ASSERT_NE(std::string::npos, at);
  const uint32_t recorded = static_cast<unsigned char>(bytes[at + 20]) |
                            static_cast<unsigned char>(bytes[at + 21]) << 8 |
                            static_cast<unsigned char>(bytes[at + 22]) << 16 |
                            static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 23])) << 24;
  const uint32_t cut = recorded / 2;
  for (int i = 0; i < 4; ++i) bytes[at + 20 + i] = static_cast<char>(cut >> (8 * i));
  velzip_test::writeFile(zd, bytes);
  Archive zip(zd);
  for (unsigned chunk : {65536u, 1u}) {
    const Entry e = zip.read("multi.txt", kPassword, chunk);
    EXPECT_EQ(UNZ_OK, e.openRc);
    EXPECT_EQ(Z_DATA_ERROR, e.readRc);
    EXPECT_GT(e.data.size(), 0u);
    EXPECT_EQ(0, multi.compare(0, e.data.size(), e.data));
  }
}

TEST_F(EntryReaderTest, MixedAndPlainArchives) {
  const std::string mixed = make("mixed.zip", "zip -q -P '" + std::string(kPassword) +
                                                  "' mixed.zip multi.txt small.txt && "
                                                  "zip -q mixed.zip noise.bin empty.txt");
  {
    Archive zip(mixed);
    EXPECT_EQ(1ul, zip.flags("multi.txt") & 1ul);
    EXPECT_EQ(0ul, zip.flags("noise.bin") & 1ul);
  }
  expectAllReadBack(mixed, "mixed");
  {
    Archive zip(mixed);
    const Entry plain = zip.read("noise.bin", nullptr);
    EXPECT_TRUE(plain.ok());
    EXPECT_TRUE(plain.data == files_[3].second);
    EXPECT_EQ(UNZ_PARAMERROR, zip.read("multi.txt", nullptr).openRc);
  }

  // Any password, or none, reads a plain archive the same.
  const std::string plainZip = make("plain.zip", "zip -q plain.zip" + names());
  const std::string plain7 = make("plain7.zip", "7zz a -tzip plain7.zip" + names());
  for (const std::string& path : {plainZip, plain7}) {
    Archive zip(path);
    for (const auto& f : files_) {
      for (const char* password : {static_cast<const char*>(nullptr), "", "unused", kPassword}) {
        const Entry e = zip.read(f.first, password);
        EXPECT_TRUE(e.ok()) << path << " " << f.first;
        EXPECT_TRUE(e.data == f.second) << path << " " << f.first;
      }
    }
  }
}

TEST_F(EntryReaderTest, AesEntriesAreRefused) {
  const std::string aes = make("aes.zip", "7zz a -tzip -p'" + std::string(kPassword) +
                                              "' -mem=AES256 aes.zip small.txt multi.txt");
  Archive zip(aes);
  for (const char* name : {"small.txt", "multi.txt"}) {
    EXPECT_EQ(UNZ_PARAMERROR, zip.read(name, kPassword).openRc) << name;
    EXPECT_EQ(UNZ_PARAMERROR, zip.read(name, nullptr).openRc) << name;
  }
}

TEST_F(EntryReaderTest, LifecycleFollowsTheZipLayer) {
  const std::string zd =
      make("zd.zip", "zip -q -P '" + std::string(kPassword) + "' zd.zip" + names());
  Archive zip(zd);
  char buf[64];
  EntryReader reader;
  EXPECT_EQ(UNZ_PARAMERROR, reader.read(buf, sizeof buf));
  EXPECT_EQ(UNZ_PARAMERROR, reader.close());
  EXPECT_EQ(UNZ_PARAMERROR, reader.open(nullptr, kPassword));

  // Opening again closes the entry open before; destruction closes the last.
  ASSERT_TRUE(zip.locate("multi.txt"));
  ASSERT_EQ(UNZ_OK, reader.open(zip.get(), kPassword));
  EXPECT_TRUE(reader.decrypting());
  EXPECT_EQ(static_cast<int>(sizeof buf), reader.read(buf, sizeof buf));
  ASSERT_TRUE(zip.locate("small.txt"));
  ASSERT_EQ(UNZ_OK, reader.open(zip.get(), kPassword));
  std::string small;
  int got;
  while ((got = reader.read(buf, sizeof buf)) > 0) small.append(buf, got);
  EXPECT_EQ(0, got);
  EXPECT_EQ(0, reader.read(buf, sizeof buf));
  EXPECT_EQ(0, reader.read(buf, 0));
  EXPECT_EQ(files_[0].second, small);
  EXPECT_EQ(UNZ_OK, reader.close());
  EXPECT_EQ(UNZ_PARAMERROR, reader.close());

  {
    EntryReader scoped;
    ASSERT_TRUE(zip.locate("noise.bin"));
    ASSERT_EQ(UNZ_OK, scoped.open(zip.get(), kPassword));
    EXPECT_GT(scoped.read(buf, sizeof buf), 0);
  }
  EXPECT_TRUE(zip.read("noise.bin", kPassword).ok());
}

}  // namespace
