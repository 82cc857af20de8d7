// AppleDouble companions ("._name" files under "__MACOSX/") carrying a file's
// Mac metadata, mapped onto Linux extended attributes: "user." + name for
// each attribute, "user.com.apple.FinderInfo" for the Finder Info and
// "user.com.apple.ResourceFork" for the resource fork.
//
// The calls follow the result convention of the Mac call they stand in for:
// pack returns a negative value on failure, unpack a non-zero one; errno
// tells why (EINVAL for a malformed companion, else the failing call's).
#ifndef VELZIP_PLATFORM_APPLE_DOUBLE_H
#define VELZIP_PLATFORM_APPLE_DOUBLE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velzip {

// Packs the metadata of sourcePath (a final link is not followed: a link or
// a missing item fails) into a new companion file, created with mode 0600.
// An item without attributes still gets a companion.
int appleDoublePack(const char* sourcePath, const char* companionPath);
// Same, writing the companion at the current position of an open descriptor,
// e.g. one from mkstemp. The descriptor stays open.
int appleDoublePackFd(const char* sourcePath, int fd);
// Restores a companion onto targetPath without following a final link.
// Attributes that the file system refuses are skipped and make the result
// non-zero; the others are still set.
int appleDoubleUnpack(const char* companionPath, const char* targetPath);
// Same, reading the whole companion from offset 0 of an open descriptor.
int appleDoubleUnpackFd(int fd, const char* targetPath);

// What a companion carries, independent of its byte layout.
struct AppleDoubleAttribute {
  std::string name;  // without the "user." prefix
  std::vector<uint8_t> value;
  uint16_t flags = 0;  // the per-entry flags, carried unchanged
};

struct AppleDoubleContents {
  uint8_t finderInfo[32] = {};
  std::vector<AppleDoubleAttribute> attributes;
  std::vector<uint8_t> resourceFork;
};

// Companions larger than this are refused on read and never written; it
// bounds every allocation made from sizes found in untrusted input.
constexpr size_t kAppleDoubleMaxSize = 64u * 1024u * 1024u;
// An attribute name is stored with its NUL in one length byte.
constexpr size_t kAppleDoubleMaxNameLength = 254;

// Parses a whole companion held in memory. False (out unspecified) on any
// malformed input.
bool appleDoubleParse(const uint8_t* data, size_t size, AppleDoubleContents& out);
// Serialises contents the way Mac tools lay them out: Finder Info entry at
// 50 with the attribute block, then the resource fork entry, whose data comes
// last (length 0 when there is none). False when the contents do not fit the
// format (empty, too long or NUL-containing names, too many attributes, more
// than kAppleDoubleMaxSize in total).
bool appleDoubleBuild(const AppleDoubleContents& contents, std::vector<uint8_t>& out);

// True for a resource fork that is only an empty resource map, which Mac
// tools write when a file has no resource fork.
bool appleDoubleIsEmptyResourceFork(const std::vector<uint8_t>& fork);

// Reads the packable metadata of sourcePath (not following a final link).
// Negative on failure.
int appleDoubleCollect(const char* sourcePath, AppleDoubleContents& out);
// Sets contents onto targetPath (not following a final link). Non-zero on
// failure; everything that can be set is set.
int appleDoubleApply(const AppleDoubleContents& contents, const char* targetPath);
// Same, onto exactly the item a descriptor holds (O_PATH descriptors too).
int appleDoubleApplyFd(const AppleDoubleContents& contents, int fd);

}  // namespace velzip

#endif  // VELZIP_PLATFORM_APPLE_DOUBLE_H
