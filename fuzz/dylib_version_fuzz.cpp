// Arbitrary bytes into the library-version reader: as a Mach-O file, and as
// a property list on their own. Sections the walk offers must lie inside the
// input; everything else is for the sanitizers to judge.
#include <cstdlib>
#include <string>

#include "fileutils/dylib_version_macho.h"
#include "platform/plist.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  velzip::walkInfoPlistSections(data, size, [&](const uint8_t* bytes, size_t length) {
    if (bytes < data || length > size || static_cast<size_t>(bytes - data) > size - length) abort();
    return false;
  });
  std::string version;
  velzip::findMachOBundleVersion(data, size, version);
  velzip::PlistValue list;
  velzip::parsePropertyList(data, size, list);
  return 0;
}
