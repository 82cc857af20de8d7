// Password-protected entries extracted by both readers: archives from zip
// and 7zz for format 0, hand-encrypted format-1 entries (checked against
// unzip), wrong and missing passwords, damaged ciphertext.
#include <gtest/gtest.h>
#include <minizip/unzip.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "unzip/archive_builder.h"
#include "unzip/plain_zip.h"
#include "unzip/recorder.h"
#include "velzip/UnzipHandler.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/velzip.h"

using namespace velzip_test;

namespace {

constexpr unsigned long kKeep = 0xFFFFFFFFul;
const char kPassword[] = "pa55 word";
const char kOpenFailure[] = "Failed to unzOpenCurrentFilePassword: ";

unsigned permissions(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0xFFFFu;
}

std::string linkTarget(const std::string& path) {
  char buf[4096];
  const ssize_t n = readlink(path.c_str(), buf, sizeof buf);
  return n < 0 ? "<none>" : std::string(buf, static_cast<size_t>(n));
}

// Where an entry's stored (encrypted) bytes start in the archive file.
long long dataOffset(const std::string& archive, const std::string& name) {
  unzFile zip = unzOpen64(archive.c_str());
  if (zip == nullptr) return -1;
  long long pos = -1;
  if (unzLocateFile(zip, name.c_str(), 1) == UNZ_OK &&
      unzOpenCurrentFile2(zip, nullptr, nullptr, 1) == UNZ_OK) {
    pos = static_cast<long long>(unzGetCurrentFileZStreamPos64(zip));
    unzCloseCurrentFile(zip);
  }
  unzClose(zip);
  return pos;
}

void flipByte(const std::string& path, long long offset, unsigned char mask) {
  std::string bytes = readFile(path);
  ASSERT_GE(offset, 0);
  ASSERT_LT(offset, static_cast<long long>(bytes.size()));
  bytes[static_cast<size_t>(offset)] ^= static_cast<char>(mask);
  writeFile(path, bytes);
}

size_t countContaining(const LogCapture& logs, const std::string& text) {
  size_t n = 0;
  for (const LogLine& line : logs.lines()) n += line.text.find(text) != std::string::npos;
  return n;
}

class Passwords : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(t_.path().empty());
    src_ = t_ / "src";
    ASSERT_EQ(0, mkdir(src_.c_str(), 0755));
    // Name order is archive order for every tool: the first entry has data.
    files_ = {{"a_multi.txt", sampleBytes(300000, 5)},
              {"b_small.txt", "a few words of plain text\n"},
              {"c_empty.txt", ""},
              {"d_noise.bin", noiseBytes(150000, 8)}};
    for (const auto& f : files_) writeFile(src_ + "/" + f.first, f.second);
    ASSERT_EQ(0, chmod((src_ + "/b_small.txt").c_str(), 0750));
    ASSERT_EQ(0, symlink("b_small.txt", (src_ + "/link").c_str()));
  }

  std::string names() const {
    std::string all;
    for (const auto& f : files_) all += " " + f.first;
    return all;
  }

  std::string make(const std::string& archive, const std::string& command) {
    EXPECT_EQ(0, runQuietly("cd '" + src_ + "' && " + command)) << command;
    return t_ / archive;
  }
  std::string zipArchive(const std::string& name, const std::string& options) {
    return make(name, "zip -q -y " + options + " -P '" + kPassword + "' '" + (t_ / name) + "'" +
                          names() + " link");
  }
  std::string sevenArchive(const std::string& name, const std::string& options) {
    return make(name, "7zz a -tzip -snl " + options + " -p'" + kPassword + "' -mem=ZipCrypto '" +
                          (t_ / name) + "'" + names() + " link");
  }

  // Extracts with the format-0 reader and checks every file and the link.
  void expectExtracted(const std::string& archive, const char* password) {
    SCOPED_TRACE(archive);
    const std::string out = archive + ".out";
    UnzipHandler reader(archive.c_str());
    reader.setUnzipPassword(password);
    Recorder rec;
    reader.setCallback(Recorder::callback, &rec);
    ASSERT_TRUE(reader.unzipTo(out.c_str(), false, kKeep));
    for (const auto& f : files_) {
      EXPECT_TRUE(readFile(out + "/" + f.first) == f.second) << f.first;
    }
    EXPECT_EQ(permissions(out + "/b_small.txt"), 0750u);
    EXPECT_EQ(linkTarget(out + "/link"), "b_small.txt");
    uint64_t data = 0;
    for (const Report& r : rec.reports) data += r.state == 2 ? r.bytes : 0;
    uint64_t total = 0;
    for (const auto& f : files_) total += f.second.size();
    EXPECT_EQ(data, total) << "every decrypted byte is reported once";
  }

  // A format-1 archive whose entries are encrypted (a link and an empty
  // file among them) beside one plain entry.
  std::string format1Archive(const std::string& name) {
    const std::string path = t_ / name;
    PlainZip zip(path);
    for (const auto& f : files_) {
      zip.encrypted(f.first, lzmaPayload(f.second), kPassword, sizeField(f.second.size()),
                    f.first == "b_small.txt" ? 0100750 : 0100644);
    }
    zip.encrypted("link", "b_small.txt", kPassword, "", 0120777);
    zip.withExtra("plain.txt", lzmaPayload("not secret"), sizeField(10));
    return path;
  }

  TempDir t_;
  std::string src_;
  std::vector<std::pair<std::string, std::string>> files_;
};

TEST_F(Passwords, Format0ArchivesFromZipAnd7zzExtractByteExact) {
  if (!haveTool("zip") || !haveTool("7zz")) GTEST_SKIP() << "zip or 7zz missing";
  expectExtracted(zipArchive("zip-deflated.zip", ""), kPassword);
  expectExtracted(zipArchive("zip-stored.zip", "-0"), kPassword);
  expectExtracted(sevenArchive("7zz-deflated.zip", ""), kPassword);
  expectExtracted(sevenArchive("7zz-stored.zip", "-mm=Copy"), kPassword);

  // Encrypted and plain entries side by side.
  const std::string mixed =
      make("mixed.zip", "zip -q -y -P '" + std::string(kPassword) + "' '" + (t_ / "mixed.zip") +
                            "' a_multi.txt link && zip -q '" + (t_ / "mixed.zip") +
                            "' b_small.txt d_noise.bin "
                            "c_empty.txt");
  expectExtracted(mixed, kPassword);
}

TEST_F(Passwords, EncryptedFormat1EntriesExtractByteExact) {
  const std::string archive = format1Archive("one.zip");
  if (haveTool("unzip")) {
    // The hand-made encryption is what other tools call encrypted entries
    // (checked without the size texts, which they take for broken extra fields).
    const std::string check = t_ / "check.zip";
    PlainZip zip(check);
    for (const auto& f : files_) zip.encrypted(f.first, f.second, kPassword);
    zip.close();
    EXPECT_EQ(0, runQuietly("unzip -t -P '" + std::string(kPassword) + "' '" + check + "'"));
    EXPECT_NE(0, runQuietly("unzip -t -P wrong '" + check + "'"));
  }
  Vel::VelUnzipHandler reader(archive.c_str());
  reader.setUnzipPassword(kPassword);
  const std::string out = t_ / "one.out";
  ASSERT_TRUE(reader.unzipTo(out.c_str(), false, kKeep));
  for (const auto& f : files_) {
    EXPECT_TRUE(readFile(out + "/" + f.first) == f.second) << f.first;
  }
  EXPECT_EQ(readFile(out + "/plain.txt"), "not secret");
  EXPECT_EQ(permissions(out + "/b_small.txt"), 0750u);
  EXPECT_EQ(linkTarget(out + "/link"), "b_small.txt");

  // The format-0 reader decrypts the same entries to their stored payloads.
  UnzipHandler legacy(archive.c_str());
  legacy.setUnzipPassword(kPassword);
  const std::string raw = t_ / "raw.out";
  ASSERT_TRUE(legacy.unzipTo(raw.c_str(), false, kKeep));
  EXPECT_TRUE(readFile(raw + "/a_multi.txt") == lzmaPayload(files_[0].second));
}

TEST_F(Passwords, WrongOrMissingPasswordFailsWithTheOpenLine) {
  if (!haveTool("zip") || !haveTool("7zz")) GTEST_SKIP() << "zip or 7zz missing";
  const std::vector<std::string> format0 = {zipArchive("zd.zip", ""), zipArchive("zs.zip", "-0"),
                                            sevenArchive("7d.zip", "")};
  const std::string format1 = format1Archive("one.zip");
  LogCapture logs;

  auto extract = [&](const std::string& archive, const char* password, const std::string& out) {
    capturedLines().clear();
    if (archive == format1) {
      Vel::VelUnzipHandler reader(archive.c_str());
      reader.setUnzipPassword(password);
      return reader.unzipTo(out.c_str(), false, kKeep);
    }
    UnzipHandler reader(archive.c_str());
    reader.setUnzipPassword(password);
    return reader.unzipTo(out.c_str(), false, kKeep);
  };

  std::vector<std::string> all = format0;
  all.push_back(format1);
  int n = 0;
  for (const std::string& archive : all) {
    SCOPED_TRACE(archive);
    const std::string out = t_ / ("missing" + std::to_string(n++));
    EXPECT_FALSE(extract(archive, nullptr, out));
    ASSERT_EQ(1u, logs.lines().size());
    EXPECT_EQ(logs.lines()[0].level, 50);
    EXPECT_EQ(logs.lines()[0].text, kOpenFailure + out + "/a_multi.txt");
    EXPECT_EQ(logs.lines()[0].module, archive == format1 ? "VELZIP" : "UlvoUtils");
    EXPECT_EQ(readFile(out + "/a_multi.txt"), "") << "the opened output stays empty";

    // The header check is a single byte, so now and then a wrong password
    // passes it; the data's CRC then fails the entry.
    int refusedAtOpen = 0;
    for (const char* wrong : {"", "pa55 wor", "pa55 word ", "PA55 WORD", "x", "password"}) {
      const std::string wrongOut = t_ / ("wrong" + std::to_string(n++));
      EXPECT_FALSE(extract(archive, wrong, wrongOut)) << wrong;
      EXPECT_FALSE(readFile(wrongOut + "/a_multi.txt") == files_[0].second) << wrong;
      refusedAtOpen += countContaining(logs, kOpenFailure) == 1;
    }
    EXPECT_GE(refusedAtOpen, 4);
  }

  // The C interface has no password to give.
  EXPECT_EQ(1, velzipDecompressFile(format0[0].c_str(), (t_ / "c0").c_str(), 0, nullptr, nullptr));
  EXPECT_EQ(1, velzipDecompressFile(format1.c_str(), (t_ / "c1").c_str(), 1, nullptr, nullptr));
}

TEST_F(Passwords, DamagedCiphertextFailsCleanly) {
  if (!haveTool("zip")) GTEST_SKIP() << "zip missing";
  const std::string format1 = format1Archive("one.zip");
  LogCapture logs;
  int n = 0;
  for (const std::string& archive :
       {zipArchive("zd.zip", ""), zipArchive("zs.zip", "-0"), format1}) {
    SCOPED_TRACE(archive);
    const long long start = dataOffset(archive, "a_multi.txt");
    ASSERT_GT(start, 0);
    auto extract = [&]() {
      capturedLines().clear();
      const std::string out = t_ / ("damaged" + std::to_string(n++));
      bool ok;
      if (archive == format1) {
        Vel::VelUnzipHandler reader(archive.c_str());
        reader.setUnzipPassword(kPassword);
        ok = reader.unzipTo(out.c_str(), false, kKeep);
      } else {
        UnzipHandler reader(archive.c_str());
        reader.setUnzipPassword(kPassword);
        ok = reader.unzipTo(out.c_str(), false, kKeep);
      }
      EXPECT_FALSE(readFile(out + "/a_multi.txt") == files_[0].second);
      return ok;
    };

    // The last header byte decrypts to the check byte: changed, the
    // password looks wrong.
    flipByte(archive, start + 11, 0x01);
    EXPECT_FALSE(extract());
    EXPECT_EQ(1u, countContaining(logs, kOpenFailure));
    flipByte(archive, start + 11, 0x01);

    // Damage inside the data passes the header and fails while reading.
    flipByte(archive, start + 12 + 30000, 0x5A);
    EXPECT_FALSE(extract());
    EXPECT_EQ(0u, countContaining(logs, kOpenFailure));
    flipByte(archive, start + 12 + 30000, 0x5A);
  }
}

TEST_F(Passwords, PlainArchivesIgnoreThePassword) {
  if (!haveTool("zip") || !haveTool("7zz")) GTEST_SKIP() << "zip or 7zz missing";
  const std::string plainZip =
      make("plain.zip", "zip -q -y '" + (t_ / "plain.zip") + "'" + names() + " link");
  for (const std::string& archive :
       {plainZip,
        make("plain7.zip", "7zz a -tzip -snl '" + (t_ / "plain7.zip") + "'" + names() + " link")}) {
    expectExtracted(archive, "unused");
    expectExtracted(archive, "");
  }

  const std::string format1 = t_ / "plain1.zip";
  ArchiveBuilder(format1).file("a.txt", "plain").link("l", "a.txt");
  Vel::VelUnzipHandler reader(format1.c_str());
  reader.setUnzipPassword(kPassword);
  const std::string out = t_ / "plain1.out";
  ASSERT_TRUE(reader.unzipTo(out.c_str(), false, kKeep));
  EXPECT_EQ(readFile(out + "/a.txt"), "plain");
  EXPECT_EQ(linkTarget(out + "/l"), "a.txt");

  // The C interface passes no password: plain archives read as before.
  const std::string viaC = t_ / "c1.out";
  EXPECT_EQ(0, velzipDecompressFile(format1.c_str(), viaC.c_str(), 1, nullptr, nullptr));
  EXPECT_EQ(readFile(viaC + "/a.txt"), "plain");
  const std::string viaC0 = t_ / "c0.out";
  EXPECT_EQ(0, velzipDecompressFile(plainZip.c_str(), viaC0.c_str(), 0, nullptr, nullptr));
  for (const auto& f : files_) {
    EXPECT_TRUE(readFile(viaC0 + "/" + f.first) == f.second) << f.first;
  }
  EXPECT_EQ(linkTarget(viaC0 + "/link"), "b_small.txt");
}

}  // namespace
