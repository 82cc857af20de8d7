// Encode and decode throughput of the format-1 payload codec, one file at a
// time: `bench_codec FILE...` prints the total seconds and bytes for each
// direction (scripts/bench compares them with xz).
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "velzip/VelLzmaHelper.h"

namespace {

double now() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bench_codec FILE...  (or - to read names from stdin)\n");
    return 2;
  }
  std::vector<std::string> files;
  if (std::string(argv[1]) == "-") {
    for (std::string line; std::getline(std::cin, line);) files.push_back(line);
  } else {
    files.assign(argv + 1, argv + argc);
  }
  const std::string payload = "/tmp/velzip-bench-codec." + std::to_string(getpid());
  Vel::VelLzmaHelper helper;
  double encodeSeconds = 0, decodeSeconds = 0;
  unsigned long long in = 0, out = 0;
  for (const auto& file : files) {
    double t0 = now();
    if (!helper.encodeFileWithLZMA2(file, payload)) {
      std::fprintf(stderr, "encode failed: %s\n", file.c_str());
      unlink(payload.c_str());
      return 1;
    }
    encodeSeconds += now() - t0;
    struct stat st;
    stat(file.c_str(), &st);
    std::string bytes = slurp(payload);
    in += static_cast<unsigned long long>(st.st_size);
    out += bytes.size();

    t0 = now();
    std::vector<char> buf(static_cast<size_t>(st.st_size) + 65536);
    helper.initDecoder(&bytes[0], buf.data(), buf.size());
    unsigned long total = 0;
    for (size_t pos = 1; pos < bytes.size(); pos += 65536) {
      const size_t n = std::min<size_t>(65536, bytes.size() - pos);
      if (helper.decodeLZMA2(&bytes[pos], n, buf.size(), total) != 0) break;
    }
    helper.exitDecoder();
    decodeSeconds += now() - t0;
    if (total != static_cast<unsigned long>(st.st_size)) {
      std::fprintf(stderr, "decode mismatch: %s\n", file.c_str());
      unlink(payload.c_str());
      return 1;
    }
  }
  unlink(payload.c_str());
  std::printf("files %zu in %llu out %llu encode %.3f decode %.3f\n", files.size(), in, out,
              encodeSeconds, decodeSeconds);
  return 0;
}
