// The writer's reusable encoder produces the payload codec's bytes exactly,
// whatever came before it.
#include "lzma/payload_encoder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "frame/handles.h"
#include "support/temp_dir.h"
#include "velzip/VelLzmaHelper.h"

using namespace velzip_test;

TEST(PayloadEncoder, MatchesTheCodecAcrossReuse) {
  TempDir tmp;
  std::string noise(200000, '\0');
  unsigned x = 99;
  for (char& c : noise) {
    x = x * 1664525u + 1013904223u;
    c = static_cast<char>(x >> 24);
  }
  const std::string inputs[] = {sampleBytes(300000, 1),    "", "tiny", noise, sampleBytes(70000, 5),
                                std::string(1 << 20, 'z'), "x"};
  velzip::PayloadEncoder encoder;
  velzip::UniqueFd out(open((tmp / "payload").c_str(), O_RDWR | O_CREAT, 0600));
  ASSERT_TRUE(out.ok());
  Vel::VelLzmaHelper codec;
  int i = 0;
  for (const auto& input : inputs) {
    const std::string src = tmp / ("in" + std::to_string(i++));
    writeFile(src, input);
    uint64_t in = 0, stored = 0;
    ASSERT_TRUE(encoder.encodeFile(src.c_str(), out.get(), in, stored));
    EXPECT_EQ(input.size(), in);
    ASSERT_TRUE(codec.encodeFileWithLZMA2(src, tmp / "expected"));
    const std::string expected = readFile(tmp / "expected");
    const std::string got = readFile(tmp / "payload");  // cut to this payload
    EXPECT_EQ(expected.size(), stored);
    EXPECT_TRUE(expected == got) << "input " << i - 1;
  }
  uint64_t in = 0, stored = 0;
  EXPECT_FALSE(encoder.encodeFile((tmp / "missing").c_str(), out.get(), in, stored));
  encoder.release();
  ASSERT_TRUE(encoder.encodeFile((tmp / "in2").c_str(), out.get(), in, stored));
  EXPECT_EQ(4u, in);
}
