// Finding the property list a 32-bit Mach-O library carries in its
// __TEXT,__info_plist section. Works on bytes already in memory; every offset
// and count in them is checked against their size.
#ifndef VELZIP_FILEUTILS_DYLIB_VERSION_MACHO_H
#define VELZIP_FILEUTILS_DYLIB_VERSION_MACHO_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace velzip {

// Offers the bytes of each command's first __info_plist section in a __TEXT
// segment, in load-command order, until onSection returns true. False when
// the image is not a little-endian 32-bit Mach-O file or nothing was taken.
// Sections that lie outside the image are passed over.
bool walkInfoPlistSections(const uint8_t* image, size_t size,
                           const std::function<bool(const uint8_t*, size_t)>& onSection);

// The CFBundleVersion string of the first embedded list that is a dictionary
// holding one as a string.
bool findMachOBundleVersion(const uint8_t* image, size_t size, std::string& version);

}  // namespace velzip

#endif  // VELZIP_FILEUTILS_DYLIB_VERSION_MACHO_H
