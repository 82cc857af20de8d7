// Packs a folder into a format-1 archive and unpacks it again with
// velzip's C++ classes, printing each entry as it is done.
//   pack_unpack FOLDER ARCHIVE DEST
#include <cstdio>
#include <string>
#include <velzip/velzip.hpp>

// Runs on the calling thread: state 1 starts an entry (answer kZLibSkip to
// leave it out), 2 reports bytes, 3 ends it; kZLibAbort stops the work.
ZLibCallbackAction progress(ZLibCBData* d) {
  auto* bytes = static_cast<unsigned long long*>(d->userData);
  if (d->state == kZLibStateEntryData) *bytes += d->bytes;
  if (d->state == kZLibStateEntryDone && d->entryName != nullptr) {
    std::printf("%12llu  %s\n", *bytes, d->entryName);
  }
  return kZLibContinue;
}

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s FOLDER ARCHIVE DEST\n", argv[0]);
    return 2;
  }
  const std::string folder = std::string(argv[1]) + "/";  // names relative to it
  unsigned long long bytes = 0;

  Vel::VelZipHandler writer;
  writer.setCallback(progress, &bytes);
  writer.setCompanionPolicy(CompanionPolicy::kWithMetadata);  // extended attributes
  writer.setThreadCount(2);                                   // same archive, sooner
  if (!writer.openZip(argv[2], folder.c_str(), false) ||
      !writer.addFolderToZip(folder.c_str(), false, false) || !writer.closeZip()) {
    std::fprintf(stderr, "cannot pack %s: %s\n", argv[1], writer.lastError());
    return 1;  // the writer publishes nothing: ARCHIVE is as it was
  }

  bytes = 0;
  Vel::VelUnzipHandler reader;
  reader.setCallback(progress, &bytes);
  if (!reader.unzip(argv[2], argv[3], false, 0xFFFFFFFF)) {  // each entry keeps its mode
    std::fprintf(stderr, "cannot unpack %s (a log sink says why: velzipSetLogger)\n", argv[2]);
    return 1;
  }
  std::printf("packed %s into %s and unpacked it into %s\n", argv[1], argv[2], argv[3]);
  return 0;
}
