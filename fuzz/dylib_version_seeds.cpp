// Writes a few well-formed library files and property lists as the
// library-version fuzzer's starting corpus.
#include <string>

#include "fileutils/dylib_bytes.h"
#include "save_seed.h"

int main(int argc, char** argv) {
  using namespace velzip_test;
  if (argc != 2) return 2;
  const std::string dir = argv[1];
  const std::string xml = versionPlist("1.2.3.4");
  const std::string bin = versionPlistBinary("5.6");
  bool ok = save(dir + "/xml-list", xml);
  ok = save(dir + "/binary-list", bin) && ok;
  ok = save(dir + "/dylib-xml", dylibWithPlist(xml)) && ok;
  ok = save(dir + "/dylib-binary", dylibWithPlist(bin)) && ok;
  ok = save(dir + "/dylib-walk",
            MachOFile()
                .segment("__DATA", {{"__info_plist", xml}})
                .other(0x22, 48)
                .segment("__TEXT", {{"__text", "code"},
                                    {"__info_plist", infoPlistXml("<array><dict/></array>")}})
                .segment("__TEXT", {{"__info_plist", bin}})
                .bytes()) &&
       ok;
  return ok ? 0 : 1;
}
