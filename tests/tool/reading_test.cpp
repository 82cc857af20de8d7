// The tool on archives other tools made: it lists each entry's method and
// encryption, refuses up front what it cannot read, extracts every method
// it reads, AES with the password, and names the entry that failed.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/method_craft.h"
#include "support/probe.h"
#include "support/zip_craft.h"
#include "tool/tool_run.h"

using namespace velzip_test;

namespace {

const char kPassword[] = "tool pass";

// The listing's row of an entry: size, packed, method, encryption, mode,
// kind, name; empty when it is not listed.
std::vector<std::string> rowOf(const std::string& list, const std::string& name) {
  for (const std::string& line : split(list, true)) {
    const auto words = split(line, false);
    if (words.size() == 7 && words[6] == name) return words;
  }
  return {};
}

class ToolReading : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!haveTool("zip") || !haveTool("7zz")) GTEST_SKIP() << "zip or 7zz missing";
    ASSERT_EQ(mkdir(src_.c_str(), 0755), 0);
    for (const auto& [name, data] : files_) writeFile(src_ + "/" + name, data);
  }

  // Runs command in the source folder on files (names, space separated).
  std::string peer(const std::string& zip, const std::string& command, const std::string& files) {
    EXPECT_EQ(runQuietly("cd '" + src_ + "' && " + command + " '" + dir_ / zip + "' " + files), 0)
        << command;
    return dir_ / zip;
  }

  // xz, zstd and LZMA without an end marker, which no peer here writes.
  std::string crafted(const std::string& zip) {
    const std::string& a = files_[0].second;
    const std::string& b = files_[1].second;
    writeFile(dir_ / zip, craftZip({packedEntry("a.txt", a, xzBytes(a), 95),
                                    packedEntry("b.bin", b, zstdBytes(b), 93),
                                    packedEntry("c.txt", "", lzmaZipBytes("", false), 14)}));
    return dir_ / zip;
  }

  bool sameAsSource(const std::string& out) {
    for (const auto& [name, data] : files_) {
      if (readFile(out + "/" + name) != data) return false;
    }
    return true;
  }

  TempDir dir_;
  const std::string src_ = dir_ / "src";
  const std::vector<std::pair<std::string, std::string>> files_ = {
      {"a.txt", sampleBytes(200000, 3)}, {"b.bin", noiseBytes(100000, 4)}, {"c.txt", ""}};
};

TEST_F(ToolReading, ListShowsEachEntrysMethodAndEncryption) {
  const std::string mixed = peer("mixed.zip", "zip -q -Z bzip2", "a.txt");
  peer("mixed.zip", "zip -q -0", "c.txt");
  writeFile(src_ + "/d.txt", sampleBytes(50000, 9));
  const std::string seven = peer("seven.zip", "7zz a -tzip -m0=PPMd", "a.txt");
  peer("seven.zip", "7zz a -tzip -mem=AES256 -m0=LZMA -p'" + std::string(kPassword) + "'", "d.txt");
  const std::string aes =
      peer("aes.zip", "7zz a -tzip -mem=AES128 -p'" + std::string(kPassword) + "'", "a.txt");
  peer("crypt.zip", "zip -q -P secret", "a.txt");
  CraftEntry strong = storedEntry("s.txt", "s");
  strong.flag = 0x41;
  writeFile(dir_ / "strong.zip", craftZip({strong}));
  const struct {
    std::string zip, name, method, encryption;
  } cases[] = {{mixed, "a.txt", "bzip2", "none"},
               {mixed, "c.txt", "stored", "none"},
               {seven, "a.txt", "ppmd", "none"},
               {seven, "d.txt", "aes+lzma", "aes-256"},
               {aes, "a.txt", "aes+deflate", "aes-128"},
               {dir_ / "crypt.zip", "a.txt", "deflate", "zipcrypto"},
               {crafted("crafted.zip"), "a.txt", "xz", "none"},
               {dir_ / "crafted.zip", "b.bin", "zstd", "none"},
               {dir_ / "crafted.zip", "c.txt", "lzma", "none"},
               {dir_ / "strong.zip", "s.txt", "stored", "strong"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.zip + " " + c.name);
    const Result r = run({"list", c.zip});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto row = rowOf(r.out, c.name);
    ASSERT_EQ(row.size(), 7u) << r.out;
    EXPECT_EQ(row[2], c.method);
    EXPECT_EQ(row[3], c.encryption);
  }
  EXPECT_TRUE(contains(run({"list", seven}).out,
                       "\ncannot read a.txt: unsupported compression method 98 (ppmd)\n"));
  EXPECT_TRUE(contains(run({"list", dir_ / "strong.zip"}).out,
                       "\ncannot read s.txt: PKWARE strong encryption is not supported\n"));
}

TEST_F(ToolReading, ExtractRefusesWhatItCannotReadBeforeWritingAnything) {
  const std::string seven = peer("seven.zip", "7zz a -tzip -m0=PPMd", "a.txt");
  peer("seven.zip", "7zz a -tzip -m0=Copy", "b.bin c.txt");
  CraftEntry strong = storedEntry("s.txt", "s"), noField = storedEntry("n.txt", "n");
  strong.flag = 0x41;
  noField.flag = 1;
  noField.method = 99;
  writeFile(dir_ / "crypt.zip", craftZip({storedEntry("ok.txt", "ok"), strong, noField}));
  const struct {
    std::string zip, why;
  } cases[] = {
      {seven, ": a.txt: unsupported compression method 98 (ppmd)"},
      {dir_ / "crypt.zip",
       ": s.txt: PKWARE strong encryption is not supported (and 1 more entries velzip cannot "
       "read)"}};
  for (const auto& c : cases) {
    for (bool password : {false, true}) {
      SCOPED_TRACE(c.zip + (password ? " with -p" : ""));
      std::vector<std::string> args = {"extract", c.zip, dir_ / "out"};
      if (password) args.insert(args.begin() + 1, {"-p", kPassword});
      const Result r = run(args, dir_.path());
      EXPECT_EQ(r.status, 1);
      EXPECT_EQ(r.err, "velzip: cannot extract " + c.zip + c.why + "\n");
      EXPECT_FALSE(exists(dir_ / "out"));
    }
  }
}

TEST_F(ToolReading, EveryMethodItReadsExtracts) {
  const std::string python =
      "python3 -c \"import sys, zipfile; z = zipfile.ZipFile(sys.argv[1], 'w', "
      "zipfile.ZIP_LZMA); [z.write(f) for f in sys.argv[2:]]; z.close()\"";
  const std::string archives[] = {peer("z.zip", "zip -q -Z bzip2", "a.txt b.bin c.txt"),
                                  peer("b.zip", "7zz a -tzip -m0=BZip2", "a.txt b.bin c.txt"),
                                  peer("l.zip", "7zz a -tzip -m0=LZMA", "a.txt b.bin c.txt"),
                                  peer("p.zip", python, "a.txt b.bin c.txt"), crafted("x.zip")};
  int n = 0;
  for (const std::string& zip : archives) {
    SCOPED_TRACE(zip);
    const std::string out = dir_ / std::to_string(n++);
    const Result r = run({"extract", zip, out});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(sameAsSource(out));
  }
}

TEST_F(ToolReading, AesArchivesNeedTheRightPasswordAndFailNamingTheEntry) {
  const std::string pass = std::string(" -p'") + kPassword + "'";
  const std::string aes128 = peer("128.zip", "7zz a -tzip -mem=AES128" + pass, "a.txt b.bin c.txt");
  const std::string aes256 =
      peer("256.zip", "7zz a -tzip -mm=Copy -mem=AES256" + pass, "a.txt b.bin c.txt");
  for (const std::string& zip : {aes128, aes256}) {
    SCOPED_TRACE(zip);
    const Result ok = run({"extract", "-p", kPassword, zip, zip + ".out"});
    ASSERT_EQ(ok.status, 0) << ok.err;
    EXPECT_TRUE(sameAsSource(zip + ".out"));
    const Result none = run({"extract", zip, zip + ".none"});
    EXPECT_EQ(none.status, 1);
    EXPECT_TRUE(contains(none.err, "give the password with -p")) << none.err;
    EXPECT_FALSE(exists(zip + ".none"));
  }
  // The first entry of 128.zip refuses a wrong password at its open (but for
  // one in 65536, which its authentication code then refuses).
  const Result wrong = run({"extract", "-p", "not it", aes128, dir_ / "wrong"});
  EXPECT_EQ(wrong.status, 1);
  EXPECT_EQ(lastLine(wrong.err).rfind(
                "velzip: could not extract " + aes128 + " into " + dir_ / "wrong" + ": a.txt: ", 0),
            0u)
      << wrong.err;
  EXPECT_FALSE(exists(dir_ / "wrong/a.txt"));
  // Forged: one byte of b.bin's ciphertext changed; the entry before it is
  // written, it is not.
  flipByte(aes256, static_cast<long long>(storedDataAt(aes256, 1) + 5000), 0x01);
  const Result forged = run({"extract", "-p", kPassword, aes256, dir_ / "forged"});
  EXPECT_EQ(forged.status, 1);
  EXPECT_EQ(lastLine(forged.err),
            "velzip: could not extract " + aes256 + " into " + dir_ / "forged" +
                ": b.bin: the AES authentication code does not match: the data is damaged (is the "
                "password right?)")
      << forged.err;
  EXPECT_EQ(readFile(dir_ / "forged/a.txt"), files_[0].second);
  EXPECT_FALSE(exists(dir_ / "forged/b.bin"));
}

TEST_F(ToolReading, AFailureNamesTheEntryThatFailed) {
  const std::string a = files_[0].second;
  std::string cut = bzip2Bytes(a);
  cut.resize(cut.size() / 2);
  writeFile(dir_ / "bad.zip",
            craftZip({storedEntry("dir/", ""), deflatedEntry("ok.txt", "fine"),
                      packedEntry("bad.txt", a, cut, 12), storedEntry("after.txt", "never")}));
  const Result r = run({"extract", dir_ / "bad.zip", dir_ / "out"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(lastLine(r.err), "velzip: could not extract " + dir_ / "bad.zip" + " into " +
                                 dir_ / "out" + ": bad.txt: the bzip2 data is cut short")
      << r.err;
  EXPECT_EQ(readFile(dir_ / "out/ok.txt"), "fine");
  EXPECT_FALSE(exists(dir_ / "out/bad.txt"));
}

}  // namespace
