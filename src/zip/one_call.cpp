// The one-call forms, each with its own writer and the default callback.
// The archive is published when it is closed, also after a walk that failed
// part-way, as always; only a failure to write it leaves the path as it was.
#include <zlib.h>

#include <cstdio>
#include <string>

#include "frame/handles.h"
#include "zip/zip_writer.h"

namespace velzip {

bool zipSingleFile(const WriterFormat& format, const char* path) {
  if (path == nullptr) return false;
  const std::string zipPath = std::string(path) + ".zip";
  ZipWriter writer(format);
  if (!writer.open(zipPath.c_str(), nullptr, false)) return false;
  const bool added = writer.addFile(path, nullptr, false);
  return writer.close() && added;
}

bool zipFolderBeside(const WriterFormat& format, const char* path, bool flatten) {
  if (path == nullptr) return false;
  const std::string zipPath = std::string(path) + ".zip";
  ZipWriter writer(format);
  if (!writer.open(zipPath.c_str(), nullptr, false)) return false;
  const bool added = writer.addFolder(path, flatten, false);
  return writer.close() && added;
}

bool zipFolderInto(const WriterFormat& format, const char* path, const char* zipPath,
                   bool flatten) {
  if (path == nullptr || zipPath == nullptr) return false;
  ZipWriter writer(format);
  if (!writer.open(zipPath, path, false)) {
    if (format.logComponent != nullptr) {
      logArchive(kLogLevelError, format.logComponent, "", "opening zip %s failed ", zipPath);
    }
    return false;
  }
  const bool added = writer.addFolder(path, flatten, false);
  return writer.close() && added;
}

bool gzipFile(const std::string& path) {
  const std::string gzPath = path + ".gz";
  gzFile gz = gzopen(gzPath.c_str(), "ab");
  if (gz == nullptr) return false;
  bool result = false;
  {
    UniqueFile in(std::fopen(path.c_str(), "rb"));
    if (in) {
      char block[1024];
      for (;;) {
        const size_t n = std::fread(block, 1, sizeof block, in.get());
        if (n == 0) {
          result = std::feof(in.get()) != 0;
          break;
        }
        if (gzwrite(gz, block, static_cast<unsigned>(n)) == 0) {
          result = false;
          break;
        }
        if (n < sizeof block) {
          result = std::feof(in.get()) != 0;
          break;
        }
      }
    }
  }
  gzclose(gz);
  return result;
}

}  // namespace velzip
