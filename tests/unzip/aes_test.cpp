// WinZip AES entries: 7zz's archives (format 0) and their encrypted bytes
// moved into format-1 entries, through both readers and the entry stream. A
// wrong password fails the open; damaged or forged data fails before
// anything is published; what velzip cannot decrypt fails with the reason.
#include "support/zip_craft.h"
#include "unzip/fixtures.h"
#include "unzip/stream_probe.h"
#include "velzip/velzip.h"

using namespace velzip_test;

namespace {

const char kPassword[] = "s3cret pass";
const char kCodeMismatch[] = "the AES authentication code does not match: the data is damaged";
constexpr uint16_t kAesMethod = 99;

// The 0x9901 block for an AES version, key strength and real method.
std::string aesBlock(uint16_t version, uint8_t strength, uint16_t method) {
  std::string d;
  put16(d, version);
  d += "AE";
  d += static_cast<char>(strength);
  put16(d, method);
  return extraBlock(0x9901, d);
}

// An entry's record and stored bytes, as an archive holds them.
struct RawEntry {
  velzip::ZipEntryRecord rec;
  std::string stored;
};
RawEntry rawEntry(const std::string& archive, const std::string& name) {
  RawEntry raw;
  unzFile uf = unzOpen64(archive.c_str());
  velzip::ArchiveFile file;
  velzip::LocalEntry local;
  std::string why;
  EXPECT_TRUE(
      uf != nullptr && file.open(archive.c_str()) && unzLocateFile(uf, name.c_str(), 1) == UNZ_OK &&
      file.readCentral(unzGetOffset64(uf), raw.rec, why) && file.readLocal(raw.rec, local, why))
      << why;
  if (uf != nullptr) unzClose(uf);
  raw.stored.resize(raw.rec.compressedSize);
  file.readAt(local.dataOffset, raw.stored.data(), raw.stored.size());
  return raw;
}

class Aes : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!haveTool("7zz")) GTEST_SKIP() << "7zz missing";
    ASSERT_EQ(0, mkdir(src_.c_str(), 0755));
    for (const auto& f : files_) writeFile(src_ + "/" + f.first, f.second);
    ASSERT_EQ(0, symlink("b_small.txt", (src_ + "/link").c_str()));
  }

  // 7zz's AES archive of every file and the link, in name order.
  std::string seven(const std::string& name, const std::string& options) {
    const std::string zip = t_ / name;
    const std::string all = " a_multi.txt b_small.txt c_empty.txt d_noise.bin link";
    EXPECT_EQ(0, runQuietly("cd '" + src_ + "' && 7zz a -tzip -snl " + options + " -p'" +
                            kPassword + "' '" + zip + "'" + all));
    return zip;
  }

  // A format-1 archive of one file whose encrypted bytes 7zz made: the
  // payload stored under AES, with the size text and the AES block velzip
  // reads laid out here. AE-1 keeps the payload's CRC (crcFlip spoils it).
  std::string formatOne(const std::string& name, uint16_t version, uint32_t crcFlip = 0) {
    const std::string& data = files_[0].second;
    const std::string payload = lzmaPayload(data), folder = t_ / (name + ".src");
    EXPECT_EQ(0, mkdir(folder.c_str(), 0755));
    writeFile(folder + "/payload", payload);
    EXPECT_EQ(0, runQuietly("cd '" + folder + "' && 7zz a -tzip -mm=Copy -mem=AES256 -p'" +
                            kPassword + "' 7z.zip payload"));
    const RawEntry raw = rawEntry(folder + "/7z.zip", "payload");
    CraftEntry e = storedEntry("a_multi.txt", payload);
    e.stored = raw.stored;
    e.method = kAesMethod;
    e.flag = 1;
    e.crc = version == 1 ? crcOf(payload) ^ crcFlip : 0;
    e.localExtra = sizeField(data.size());
    e.centralExtra = aesBlock(version, 3, 0);
    writeFile(t_ / name, craftZip({e}));
    return t_ / name;
  }

  TempDir t_;
  const std::string src_ = t_ / "src";
  const std::vector<std::pair<std::string, std::string>> files_ = velzip_test::mixedFiles();
};

TEST_F(Aes, EveryStrengthAndMethodExtractsByteExact) {
  const struct {
    const char* options;
    UZ_Encryption encryption;
    const char* method;  // of a_multi.txt
  } cases[] = {{"-mem=AES128", UZ_Encryption::kAes128, "aes+deflate"},
               {"-mem=AES192 -mm=Copy", UZ_Encryption::kAes192, "aes+stored"},
               {"-mem=AES256 -mm=BZip2", UZ_Encryption::kAes256, "aes+bzip2"},
               {"-mem=AES256 -mm=LZMA", UZ_Encryption::kAes256, "aes+lzma"}};
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.options);
    const std::string zip = seven(std::to_string(n) + ".zip", c.options);
    const std::string out = t_ / std::to_string(n++);
    Recorder rec;
    ASSERT_TRUE(extract(0, zip, out, &rec, kPassword));
    EXPECT_EQ(treeListing(out), treeListing(src_));
    for (const auto& f : files_) EXPECT_EQ(rec.dataBytes()[f.first], f.second.size()) << f.first;
    UnzipHandler r(zip.c_str());
    UZ_EntryInfo info;
    ASSERT_TRUE(r.gotoFile(0) && r.getEntryInfo(info));
    EXPECT_EQ(info.encryption, c.encryption);
    EXPECT_EQ(info.methodName, c.method);
    EXPECT_EQ(info.method, kAesMethod);
    EXPECT_TRUE(info.encrypted && info.unreadable.empty()) << info.unreadable;
  }
  // Format 1, with and without the CRC.
  for (uint16_t version : {1, 2}) {
    SCOPED_TRACE(version);
    const std::string out = t_ / ("one" + std::to_string(version));
    ASSERT_TRUE(extract(1, formatOne("ae" + std::to_string(version) + ".zip", version), out,
                        nullptr, kPassword));
    EXPECT_EQ(readFile(out + "/a_multi.txt"), files_[0].second);
  }
}

TEST_F(Aes, WrongOrMissingPasswordsFailTheOpen) {
  const std::string zip = seven("w.zip", "-mem=AES256");
  LogCapture logs;
  int n = 0;
  size_t refusedAtOpen = 0;
  // The verifier is two bytes: now and then a wrong password passes it, and
  // the authentication code fails the entry instead.
  for (const char* wrong : {"", "s3cret pas", "s3cret pass ", "S3CRET PASS", "x", "password"}) {
    SCOPED_TRACE(wrong);
    const std::string out = t_ / std::to_string(n++);
    capturedLines().clear();
    EXPECT_FALSE(extract(0, zip, out, nullptr, wrong));
    EXPECT_FALSE(exists(out + "/a_multi.txt"));
    ASSERT_EQ(logs.lines().size(), 1u);
    refusedAtOpen += logs.lines()[0].text == kOpenFailure + out + "/a_multi.txt: wrong password";
  }
  EXPECT_GE(refusedAtOpen, 5u);
  capturedLines().clear();
  EXPECT_FALSE(extract(0, zip, t_ / "none"));
  EXPECT_EQ(logs.texts(),
            std::vector<std::string>{"50 " + std::string(kOpenFailure) +
                                     t_ / "none/a_multi.txt: encrypted; no password"});
  // The C interface has no password to give.
  EXPECT_EQ(velzipDecompressFile(zip.c_str(), (t_ / "c").c_str(), 0, nullptr, nullptr), 1);
  EXPECT_FALSE(exists(t_ / "c/a_multi.txt"));
}

TEST_F(Aes, DamagedOrForgedDataFailsBeforeAnythingIsPublished) {
  // Copy: AE-2 stores no CRC, so only the authentication code can tell.
  // Deflate: the decoder stops at its stream's end, before the code.
  const std::string copy = seven("copy.zip", "-mem=AES256 -mm=Copy");
  const std::string deflate = seven("deflate.zip", "-mem=AES128");
  const std::string ae1 = formatOne("ae1.zip", 1, 1);
  auto dataAt = [](const std::string& zip, size_t salt) {
    const std::string bytes = readFile(zip);
    return 30 + 11 + static_cast<unsigned char>(bytes[28]) +
           256 * static_cast<unsigned char>(bytes[29]) + salt + 2;
  };
  const size_t copyData = dataAt(copy, 16), deflateData = dataAt(deflate, 8);
  const size_t deflateEnd = deflateData + rawEntry(deflate, "a_multi.txt").stored.size() - 8 - 2;
  const struct {
    const char* name;
    std::string zip;
    int format;
    long long at;  // the byte to flip; -1 for none
    std::string why;
  } cases[] = {
      {"ciphertext", copy, 0, static_cast<long long>(copyData + 1000), kCodeMismatch},
      {"last byte of the code", copy, 0,
       static_cast<long long>(copyData + files_[0].second.size() + 9), kCodeMismatch},
      {"first byte of the code", deflate, 0, static_cast<long long>(deflateEnd - 10),
       kCodeMismatch},
      {"salt", deflate, 0, static_cast<long long>(deflateData - 3), "wrong password"},
      {"AE-1 with the wrong CRC", ae1, 1, -1, "CRC-32 mismatch"},
  };
  LogCapture logs;
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.at >= 0) flipByte(c.zip, c.at, 0x20);
    const std::string out = t_ / std::to_string(n++);
    capturedLines().clear();
    EXPECT_FALSE(extract(c.format, c.zip, out, nullptr, kPassword));
    EXPECT_FALSE(exists(out + "/a_multi.txt"));
    ASSERT_FALSE(logs.lines().empty());
    EXPECT_NE(logs.lines()[0].text.find(out + "/a_multi.txt: " + c.why), std::string::npos)
        << logs.lines()[0].text;
    // The stream itself never reports an end.
    const StreamOutcome o = readEntry(c.zip, 0, kPassword, 65536);
    EXPECT_EQ(o.last, o.opened ? -1 : 0);
    EXPECT_EQ(o.why, c.why);
    if (c.at >= 0) flipByte(c.zip, c.at, 0x20);
  }
  // Put back, each reads again: the flips were the only faults.
  for (const std::string& zip : {copy, deflate}) {
    EXPECT_EQ(readEntry(zip, 0, kPassword, 65536).last, 0) << zip;
  }
}

TEST_F(Aes, EncryptionVelzipCannotReadFailsAtOpenWithTheReason) {
  const RawEntry raw = rawEntry(seven("r.zip", "-mem=AES256 -mm=Copy"), "b_small.txt");
  auto entry = [&](uint16_t flag, uint16_t method, const std::string& extra) {
    CraftEntry e = storedEntry("f", files_[1].second);
    e.stored = raw.stored;
    e.flag = flag;
    e.method = method;
    e.crc = 0;
    e.centralExtra = extra;
    return e;
  };
  const struct {
    const char* name;
    CraftEntry entry;
    UZ_Encryption encryption;
    const char* method;
    const char* why;
  } cases[] = {
      {"no AES block", entry(1, kAesMethod, ""), UZ_Encryption::kAes, "aes",
       "AES encryption without its 0x9901 extra field"},
      {"strength 4", entry(1, kAesMethod, aesBlock(2, 4, 0)), UZ_Encryption::kAes, "aes+stored",
       "unknown AES key strength 4"},
      {"version 3", entry(1, kAesMethod, aesBlock(3, 3, 0)), UZ_Encryption::kAes256, "aes+stored",
       "unknown AES encryption version 3"},
      {"PPMd beneath", entry(1, kAesMethod, aesBlock(2, 3, 98)), UZ_Encryption::kAes256, "aes+ppmd",
       "unsupported compression method 98 (ppmd)"},
      {"strong encryption", entry(0x41, 0, ""), UZ_Encryption::kStrong, "stored",
       "PKWARE strong encryption is not supported"},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string zip = t_ / (std::to_string(n) + ".zip");
    writeFile(zip, craftZip({c.entry}));
    expectRefusedAtOpen(zip, t_ / "", n, kPassword, c.why, [&](const UZ_EntryInfo& info) {
      EXPECT_EQ(info.encryption, c.encryption);
      EXPECT_EQ(info.methodName, c.method);
    });
  }
  // The same bytes under a sound block read.
  writeFile(t_ / "ok.zip", craftZip({entry(1, kAesMethod, aesBlock(2, 3, 0))}));
  const StreamOutcome ok = readEntry(t_ / "ok.zip", 0, kPassword, 3);
  EXPECT_TRUE(ok.last == 0 && ok.bytes == files_[1].second) << ok.why;
}

}  // namespace
