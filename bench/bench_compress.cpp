// Format-1 compression through the public writer:
//   bench_compress folder FOLDER ZIP   the whole tree, as the C interface does it
//   bench_compress file FILE ZIP       one file
//   bench_compress tiny N DIR          N one-line files: the fixed cost per entry
// Each prints "seconds S entries E bytes B" (B: archive size).
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "velzip/VelZipHandler.h"

namespace {

double now() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

long long fileSize(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

int report(double seconds, unsigned long entries, const std::string& zip) {
  std::printf("seconds %.3f entries %lu bytes %lld\n", seconds, entries, fileSize(zip));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: bench_compress folder|file|tiny ARG ZIP-or-DIR\n");
    return 2;
  }
  const std::string mode = argv[1];
  if (mode == "folder") {
    std::string folder = argv[2];
    if (folder.back() != '/') folder += '/';
    const double t0 = now();
    if (!Vel::VelZipHandler::ZipFolder(folder.c_str(), argv[3], false)) return 1;
    const double seconds = now() - t0;
    Z_FileInfo info;
    Vel::VelZipHandler::GetFolderInfo(folder.c_str(), info);
    return report(seconds, info.fileCount + info.folderCount, argv[3]);
  }
  if (mode == "file") {
    const double t0 = now();
    Vel::VelZipHandler zip(argv[3], "", false);
    if (!zip.addFileToZip(argv[2], "file", false) || !zip.closeZip()) return 1;
    return report(now() - t0, 1, argv[3]);
  }
  if (mode == "tiny") {
    const unsigned long count = std::strtoul(argv[2], nullptr, 10);
    const std::string dir = argv[3];
    for (unsigned long i = 0; i < count; ++i) {
      std::ofstream(dir + "/f" + std::to_string(i)) << "line " << i << "\n";
    }
    const std::string zip = dir + ".zip";
    const double t0 = now();
    if (!Vel::VelZipHandler::ZipFolder((dir + "/").c_str(), zip.c_str(), false)) return 1;
    const double seconds = now() - t0;
    report(seconds, count, zip);
    unlink(zip.c_str());
    return 0;
  }
  std::fprintf(stderr, "unknown mode %s\n", mode.c_str());
  return 2;
}
