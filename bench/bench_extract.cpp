// Extraction through the format-1 reader.
//   bench_extract pack SOURCE ARCHIVE   packs a file or folder tree (untimed)
//   bench_extract unzip ARCHIVE DEST    extracts; prints "seconds S"
// The packer lays entries out as the writer does but is independent of it,
// so the reader can be measured on its own.
#include <minizip/zip.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "lzma/entry_layout.h"
#include "velzip/VelLzmaHelper.h"
#include "velzip/VelUnzipHandler.h"

namespace fs = std::filesystem;

namespace {

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

bool addEntry(zipFile zip, const std::string& path, const std::string& name,
              const std::string& payloadPath) {
  zip_fileinfo zi;
  struct stat st;
  velzip::fillZipFileInfo(path.c_str(), zi, &st);
  std::string data, extra;
  if (S_ISLNK(st.st_mode)) {
    data = fs::read_symlink(path).string();
  } else if (!S_ISDIR(st.st_mode)) {
    Vel::VelLzmaHelper helper;
    if (!helper.encodeFileWithLZMA2(path, payloadPath)) return false;
    data = slurp(payloadPath);
    extra = velzip::sizeExtraField(static_cast<unsigned long long>(st.st_size));
  }
  if (zipOpenNewFileInZip64(zip, name.c_str(), &zi, extra.empty() ? nullptr : extra.data(),
                            static_cast<uInt>(extra.size()), nullptr, 0, nullptr, 0, 0,
                            data.size() >= 0xFFFFFFFFu) != ZIP_OK) {
    return false;
  }
  const bool ok = data.empty() || zipWriteInFileInZip(zip, data.data(),
                                                      static_cast<unsigned>(data.size())) == ZIP_OK;
  return zipCloseFileInZip(zip) == ZIP_OK && ok;
}

int pack(const std::string& source, const std::string& archive) {
  const std::string payload = "/tmp/velzip-bench-extract." + std::to_string(getpid());
  zipFile zip = zipOpen64(archive.c_str(), APPEND_STATUS_CREATE);
  if (zip == nullptr) return 1;
  bool ok = true;
  if (fs::is_directory(source)) {
    std::vector<fs::path> items;
    for (const auto& e : fs::recursive_directory_iterator(source)) items.push_back(e.path());
    std::sort(items.begin(), items.end());
    for (const auto& item : items) {
      std::string name = fs::relative(item, source).string();
      if (fs::is_directory(fs::symlink_status(item))) name += "/";
      ok = ok && addEntry(zip, item.string(), name, payload);
    }
  } else {
    ok = addEntry(zip, source, fs::path(source).filename().string(), payload);
  }
  unlink(payload.c_str());
  return zipClose(zip, nullptr) == ZIP_OK && ok ? 0 : 1;
}

int unzip(const std::string& archive, const std::string& dest) {
  const auto t0 = std::chrono::steady_clock::now();
  Vel::VelUnzipHandler reader(nullptr);
  const bool ok = reader.unzip(archive.c_str(), dest.c_str(), false, 0xFFFFFFFFul);
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - t0;
  std::printf("seconds %.3f\n", spent.count());
  return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "pack") return pack(argv[2], argv[3]);
  if (argc == 4 && std::string(argv[1]) == "unzip") return unzip(argv[2], argv[3]);
  std::fprintf(stderr, "usage: bench_extract pack SOURCE ARCHIVE | unzip ARCHIVE DEST\n");
  return 2;
}
