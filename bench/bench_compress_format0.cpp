// Format-0 compression of a folder through the public writer, as the
// one-call ZipFolder does it (names relative to the folder's parent, a
// companion after every file), into a given archive:
//   bench_compress_format0 FOLDER ZIP
// Prints "seconds S entries E bytes B" (E: items in the tree, B: archive size).
#include <libgen.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "velzip/ZipHandler.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: bench_compress_format0 FOLDER ZIP\n");
    return 2;
  }
  std::string folder = argv[1];
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  std::vector<char> copy(folder.begin(), folder.end());
  copy.push_back('\0');
  const std::string parent = dirname(copy.data());

  const auto t0 = std::chrono::steady_clock::now();
  {
    ZipHandler zip(argv[2], parent.c_str(), false);
    if (!zip.addFolderToZip(folder.c_str(), false, false) || !zip.closeZip()) return 1;
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  Z_FileInfo info;
  ZipHandler::GetFolderInfo(folder.c_str(), info);
  struct stat st;
  const long long bytes = stat(argv[2], &st) == 0 ? static_cast<long long>(st.st_size) : -1;
  std::printf("seconds %.3f entries %u bytes %lld\n", seconds, info.fileCount + info.folderCount,
              bytes);
  return 0;
}
