// Extraction through the format-0 reader.
//   bench_unzip0 ARCHIVE DEST   extracts; prints "seconds S"
#include <chrono>
#include <cstdio>
#include <string>

#include "velzip/UnzipHandler.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: bench_unzip0 ARCHIVE DEST\n");
    return 2;
  }
  const auto t0 = std::chrono::steady_clock::now();
  UnzipHandler reader(nullptr);
  const bool ok = reader.unzip(argv[1], argv[2], false, 0xFFFFFFFFul);
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - t0;
  std::printf("seconds %.3f\n", spent.count());
  return ok ? 0 : 1;
}
