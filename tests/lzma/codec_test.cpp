#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "lzma/lzma2_codec.h"
#include "support/temp_dir.h"
#include "velzip/VelLzmaHelper.h"

using velzip_test::readFile;
using velzip_test::sampleBytes;
using velzip_test::TempDir;
using velzip_test::writeFile;

namespace {

// Decodes a whole payload into size + 65536 bytes, feeding blocks of `block`.
int decodePayload(const std::string& payload, size_t size, std::string& out, size_t block = 65536) {
  Vel::VelLzmaHelper helper;
  std::vector<char> buf(size + 65536);
  std::string copy = payload;
  helper.initDecoder(&copy[0], buf.data(), buf.size());
  unsigned long total = 0;
  int rc = 0;
  for (size_t pos = 1; pos < copy.size() && rc == 0; pos += block) {
    const size_t n = std::min(block, copy.size() - pos);
    rc = helper.decodeLZMA2(&copy[pos], n, buf.size(), total);
  }
  helper.exitDecoder();
  out.assign(buf.data(), total);
  return rc;
}

std::string encodeBytes(const TempDir& dir, const std::string& data) {
  writeFile(dir / "in", data);
  Vel::VelLzmaHelper helper;
  EXPECT_TRUE(helper.encodeFileWithLZMA2(dir / "in", dir / "out"));
  return readFile(dir / "out");
}

int run(const std::string& command) {
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(Lzma2Codec, RoundTripsSizesAcrossDictionaryBoundaries) {
  TempDir dir;
  for (size_t size :
       {size_t{0}, size_t{1}, size_t{4095}, size_t{4097}, size_t{300000}, size_t{3} << 20}) {
    const std::string data = sampleBytes(size, static_cast<unsigned>(size));
    const std::string payload = encodeBytes(dir, data);
    ASSERT_GE(payload.size(), 2u);
    EXPECT_EQ(static_cast<unsigned char>(payload[0]), 24) << "property byte always 24";
    EXPECT_EQ(payload.back(), '\0') << "LZMA2 end byte";
    if (size == 0) {
      EXPECT_EQ(payload, std::string("\x18\x00", 2));
    }
    std::string out;
    EXPECT_EQ(decodePayload(payload, size, out, 1000), 0);
    EXPECT_EQ(out, data) << size;
  }
}

TEST(Lzma2Codec, DecoderErrorsLeaveTotalAlone) {
  TempDir dir;
  const std::string data = sampleBytes(200000);
  std::string payload = encodeBytes(dir, data);

  // Truncated: no error by itself, just fewer bytes.
  std::string out;
  EXPECT_EQ(decodePayload(payload.substr(0, payload.size() / 2), data.size(), out), 0);
  EXPECT_LT(out.size(), data.size());
  EXPECT_EQ(out, data.substr(0, out.size()));

  // A corrupt chunk header: non-zero code, total keeps its previous value.
  Vel::VelLzmaHelper helper;
  std::vector<char> buf(data.size() + 65536);
  std::string bad = payload;
  bad[1] = static_cast<char>(0xFF);  // not a valid LZMA2 control byte
  helper.initDecoder(&bad[0], buf.data(), buf.size());
  unsigned long total = 12345;
  EXPECT_NE(helper.decodeLZMA2(&bad[1], bad.size() - 1, buf.size(), total), 0);
  EXPECT_EQ(total, 12345u);
  helper.exitDecoder();

  // Invalid property byte: reported by the first decode, not by init.
  std::string badProp = payload;
  badProp[0] = 41;
  EXPECT_TRUE(helper.initDecoder(&badProp[0], buf.data(), buf.size()));
  EXPECT_NE(helper.decodeLZMA2(&badProp[1], badProp.size() - 1, buf.size(), total), 0);
  helper.exitDecoder();

  // Data after the end mark in a later block: a stalled stream.
  helper.initDecoder(&payload[0], buf.data(), buf.size());
  EXPECT_EQ(helper.decodeLZMA2(&payload[1], payload.size() - 1, buf.size(), total), 0);
  EXPECT_EQ(total, data.size());
  char extra[4] = {1, 2, 3, 4};
  EXPECT_EQ(helper.decodeLZMA2(extra, sizeof extra, buf.size(), total), 1);
  EXPECT_EQ(total, data.size());
  helper.exitDecoder();

  // A buffer too small for the entry stops at the limit without overflowing.
  std::vector<char> small(1000 + 16, 'Z');
  helper.initDecoder(&payload[0], small.data(), 1000);
  EXPECT_EQ(helper.decodeLZMA2(&payload[1], payload.size() - 1, 1000, total), 0);
  EXPECT_EQ(total, 1000u);
  EXPECT_EQ(small[1000], 'Z');
  helper.exitDecoder();
}

TEST(Lzma2Codec, EncoderFailuresCreateNothing) {
  TempDir dir;
  Vel::VelLzmaHelper helper;
  EXPECT_FALSE(helper.encodeFileWithLZMA2(dir / "missing", dir / "out"));
  EXPECT_FALSE(velzip_test::exists(dir / "out"));
  writeFile(dir / "in", "data");
  EXPECT_FALSE(helper.encodeFileWithLZMA2(dir / "in", dir / "no/such/folder/out"));
}

namespace {
struct MemIn {
  Vel::ISeqInStream vt;
  const std::string* data;
  size_t pos;
};
struct MemOut {
  Vel::ISeqOutStream vt;
  std::string data;
  size_t limit;
};
int memRead(void* p, void* buf, size_t* size) {
  auto* s = static_cast<MemIn*>(p);
  // Short reads on purpose: the encoder must keep asking.
  const size_t n = std::min({*size, s->data->size() - s->pos, size_t{777}});
  std::memcpy(buf, s->data->data() + s->pos, n);
  s->pos += n;
  *size = n;
  return 0;
}
size_t memWrite(void* p, const void* buf, size_t size) {
  auto* s = static_cast<MemOut*>(p);
  const size_t n = std::min({size, s->limit - s->data.size(), size_t{333}});
  s->data.append(static_cast<const char*>(buf), n);
  return n;
}
}  // namespace

TEST(Lzma2Codec, StreamEncoderHandlesShortReadsAndWrites) {
  const std::string data = sampleBytes(100000, 9);
  MemIn in{{memRead}, &data, 0};
  MemOut out{{memWrite}, {}, SIZE_MAX};
  Vel::VelLzmaHelper helper;
  ASSERT_TRUE(helper.encodeStreamWithLZMA2(&in, &out));
  std::string decoded;
  EXPECT_EQ(decodePayload(out.data, data.size(), decoded), 0);
  EXPECT_EQ(decoded, data);

  MemIn in2{{memRead}, &data, 0};
  MemOut full{{memWrite}, {}, 10};
  EXPECT_FALSE(helper.encodeStreamWithLZMA2(&in2, &full)) << "a zero-byte write fails";
}

TEST(Lzma2Codec, InteroperatesWithXzRawStreams) {
  if (run("command -v xz >/dev/null") != 0) GTEST_SKIP() << "xz not installed";
  TempDir dir;
  const std::string data = sampleBytes(1 << 20, 3) + std::string(100000, 'a');
  const std::string payload = encodeBytes(dir, data);
  writeFile(dir / "raw", payload.substr(1));
  ASSERT_EQ(run("xz --format=raw --lzma2=dict=16MiB -d -c '" + (dir / "raw") + "' > '" +
                (dir / "xzout") + "'"),
            0);
  EXPECT_EQ(readFile(dir / "xzout"), data);

  ASSERT_EQ(run("xz --format=raw --lzma2=preset=5,dict=16MiB -c '" + (dir / "in") + "' > '" +
                (dir / "xzraw") + "'"),
            0);
  std::string decoded;
  EXPECT_EQ(decodePayload("\x18" + readFile(dir / "xzraw"), data.size(), decoded), 0);
  EXPECT_EQ(decoded, data);

  // The same settings give the same bytes, with the whole 16 MiB dictionary
  // (not liblzma's level-5 preset of 8 MiB): the input repeats its first
  // 256 KiB 9 MiB further on.
  const std::string head = sampleBytes(256 << 10, 5);
  std::string large = head;
  const std::string period = sampleBytes(4096, 6);
  while (large.size() < (9u << 20)) large += period;
  large += head;
  const std::string largePayload = encodeBytes(dir, large);
  ASSERT_EQ(run("xz --format=raw -T1 --lzma2=preset=5,dict=16MiB,lc=3,lp=0,pb=2,mode=normal,"
                "nice=32,mf=bt4,depth=32 -c '" +
                (dir / "in") + "' > '" + (dir / "xzlarge") + "'"),
            0);
  EXPECT_TRUE(largePayload.substr(1) == readFile(dir / "xzlarge"))
      << "payload differs from xz's with the format's settings";
}

TEST(Lzma2Codec, WorkingDictionaryAndPropertyMapping) {
  EXPECT_EQ(velzip::workingDictSize(0), 4096u);
  EXPECT_EQ(velzip::workingDictSize(4097), 8192u);
  EXPECT_EQ(velzip::workingDictSize(1ull << 40), 1u << 24);
  EXPECT_EQ(velzip::dictSizeFromProp(24), 1u << 24);
  EXPECT_EQ(velzip::dictSizeFromProp(0), 4096u);
  EXPECT_EQ(velzip::dictSizeFromProp(41), 0u);
}
