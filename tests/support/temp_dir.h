// A scratch folder for one test, removed with everything in it.
#ifndef VELZIP_TESTS_SUPPORT_TEMP_DIR_H
#define VELZIP_TESTS_SUPPORT_TEMP_DIR_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace velzip_test {

class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/velzip-test.XXXXXX";
    const char* made = mkdtemp(tmpl);
    path_ = made != nullptr ? made : "";
  }
  ~TempDir() {
    std::error_code ec;
    // Make everything writable first: tests create read-only folders.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
      if (it->is_directory(ec) && !it->is_symlink(ec)) chmod(it->path().c_str(), 0700);
    }
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& rel) const { return path_ + "/" + rel; }

 private:
  std::string path_;
};

inline void writeFile(const std::string& path, const std::string& data) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(data.data(), static_cast<std::streamsize>(data.size()));
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline bool exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

// Bytes that compress somewhat, deterministic for a seed.
inline std::string sampleBytes(size_t size, unsigned seed = 1) {
  std::string out(size, '\0');
  unsigned x = seed * 2654435761u + 1;
  for (size_t i = 0; i < size; ++i) {
    x = x * 1103515245u + 12345u;
    out[i] = static_cast<char>((x >> 16) % 23 + 'a');
  }
  return out;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_TEMP_DIR_H
