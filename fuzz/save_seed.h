// Writes one file of a fuzzer's starting corpus.
#ifndef VELZIP_FUZZ_SAVE_SEED_H
#define VELZIP_FUZZ_SAVE_SEED_H

#include <cstdio>
#include <string>

// Bytes: std::string or std::vector<uint8_t>.
template <class Bytes>
bool save(const std::string& path, const Bytes& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  return std::fclose(f) == 0 && ok;
}

#endif  // VELZIP_FUZZ_SAVE_SEED_H
