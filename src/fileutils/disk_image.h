// The attached-images report the disk-image functions walk, and the tools
// they run. Internal.
#ifndef VELZIP_FILEUTILS_DISK_IMAGE_H
#define VELZIP_FILEUTILS_DISK_IMAGE_H

#include <string>
#include <vector>

#include "platform/plist.h"

namespace velzip {
namespace fileutils {

// A dictionary: "images" is an array with, per attached image file, a
// dictionary holding "image-path" and "system-entities" (an array of
// dictionaries with "dev-entry" and, once mounted, "mount-point"). False
// when the system's tables cannot be read.
bool attachedImagesReport(PlistValue& report);

// Absolute with links resolved where the file exists, else standardised as
// ConvertPathToOSPath does; image paths are compared in this form.
std::string standardImagePath(const std::string& path);

// Whether the report lists imagePath at all, mounted or not.
bool reportListsImage(const PlistValue& report, const std::string& imagePath);

// The mount point of the first listed entry for imagePath that has one among
// its entities. Entries of unexpected types are passed over.
bool findImageMountPoint(const PlistValue& report, const std::string& imagePath,
                         std::string& mountPoint);

// Runs the first existing program of candidates (absolute paths) with args,
// standard streams on /dev/null, and waits for it. Its exit status, or -1
// when it could not be run or did not exit normally.
int runTool(const std::vector<std::string>& candidates, const std::vector<std::string>& args);

}  // namespace fileutils
}  // namespace velzip

#endif  // VELZIP_FILEUTILS_DISK_IMAGE_H
