// The C entry points. Their odd corners are kept on purpose because hosts
// were built against them: format 0 ignores the archive path, and the
// compression callback is installed on a writer that never runs.
#include <cstdint>
#include <string>

#include "velzip/UnzipHandler.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/VelZipHandler.h"
#include "velzip/ZipHandler.h"
#include "velzip/velzip.h"

namespace {

constexpr unsigned long kKeepEntryModes = 0xFFFFFFFFul;

int32_t status(bool ok) {
  return ok ? 0 : 1;
}

int32_t compressCurrent(const char* source, const char* archive, ZLibCallback callback,
                        void* userData) {
  Vel::VelZipHandler writer(nullptr, nullptr, false);
  if (callback != nullptr) writer.setCallback(callback, userData);
  // Names must come out relative to the folder itself, which the writer only
  // does for a base folder ending in "/".
  std::string folder(source);
  if (!folder.empty() && folder.back() != '/') folder += '/';
  return status(Vel::VelZipHandler::ZipFolder(folder.c_str(), archive, false));
}

int32_t compressLegacy(const char* source, ZLibCallback callback, void* userData) {
  ZipHandler writer(nullptr, nullptr, false);
  if (callback != nullptr) writer.setCallback(callback, userData);
  // Always beside the source, as source + ".zip": the archive path the host
  // passed is only checked for null.
  return status(ZipHandler::ZipFolder(source, false));
}

template <class Reader>
int32_t decompressWith(const char* archive, const char* destination, ZLibCallback callback,
                       void* userData) {
  Reader reader(nullptr);
  if (callback != nullptr) reader.setCallback(callback, userData);
  return status(reader.unzip(archive, destination, false, kKeepEntryModes));
}

}  // namespace

extern "C" int32_t velzipCompressFolder(const char* source, const char* archive, int32_t format,
                                        ZLibCallback callback, void* userData) {
  if (source == nullptr || archive == nullptr) return 1;
  try {
    switch (format) {
      case 0:
        return compressLegacy(source, callback, userData);
      case 1:
        return compressCurrent(source, archive, callback, userData);
      default:
        return 1;
    }
  } catch (...) {
    return 1;
  }
}

extern "C" int32_t velzipDecompressFile(const char* archive, const char* destination,
                                        int32_t format, ZLibCallback callback, void* userData) {
  if (archive == nullptr || destination == nullptr) return 1;
  try {
    switch (format) {
      case 0:
        return decompressWith<UnzipHandler>(archive, destination, callback, userData);
      case 1:
        return decompressWith<Vel::VelUnzipHandler>(archive, destination, callback, userData);
      default:
        return 1;
    }
  } catch (...) {
    // A host callback may throw; it must not unwind into C callers.
    return 1;
  }
}
