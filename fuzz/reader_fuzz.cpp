// Arbitrary bytes as an archive, through both readers: describing, testing
// and extracting every entry must fail cleanly or succeed, never crash, leak
// or write outside the destination.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "velzip/UnzipHandler.h"
#include "velzip/VelUnzipHandler.h"

namespace {

const std::string& workDir() {
  static const std::string dir = [] {
    char tmpl[] = "/tmp/velzip-fuzz.XXXXXX";
    const char* made = mkdtemp(tmpl);
    return std::string(made != nullptr ? made : "/tmp");
  }();
  return dir;
}

template <class Reader>
void exercise(const std::string& archive, const std::string& out, unsigned threads) {
  Reader reader(archive.c_str());
  reader.setUnzipPassword("pw");
  for (bool more = reader.gotoFirstFile(nullptr); more; more = reader.gotoNextFile(nullptr)) {
    UZ_FileInfo info;
    UZ_EntryInfo entry;
    std::string why;
    reader.getFileInfo(info);
    reader.getEntryInfo(entry, true);
    reader.testFile(why);
  }
  reader.setThreadCount(threads);
  reader.unzipTo(out.c_str(), false, 0xFFFFFFFFul);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string dir = workDir();
  const std::string archive = dir + "/in.zip", out = dir + "/out";
  FILE* f = std::fopen(archive.c_str(), "wb");
  if (f == nullptr) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  exercise<Vel::VelUnzipHandler>(archive, out, 1);
  exercise<UnzipHandler>(archive, out, 2);
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(dir, ec)) {
    const std::string name = e.path().filename();
    if (name != "in.zip" && name != "out") abort();  // something escaped
  }
  std::filesystem::remove_all(out, ec);
  return 0;
}
