#include "fileutils/disk_image.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "fileutils/internal.h"
#include "frame/log_emit.h"
#include "platform/loop_devices.h"
#include "velzip/FileUtils.h"

namespace velzip {
namespace fileutils {

namespace {

// Absolute paths only: an installer running as root must not pick tools from
// its caller's PATH.
const std::vector<std::string> kMountTool = {"/usr/bin/mount", "/bin/mount", "/usr/sbin/mount",
                                             "/sbin/mount"};
const std::vector<std::string> kUnmountTool = {"/usr/bin/umount", "/bin/umount", "/usr/sbin/umount",
                                               "/sbin/umount"};

// Read-only, no set-user-id programs or device nodes from the image, and no
// file-system check (mount runs none).
constexpr const char* kMountOptions = "loop,ro,nosuid,nodev";

// The images of the report that are dictionaries with a string "image-path"
// naming imagePath, in report order.
template <class Visit>
bool forEachMatchingImage(const PlistValue& report, const std::string& imagePath, Visit visit) {
  const PlistValue* images = report.find("images");
  if (images == nullptr || !images->isArray()) return false;
  const std::string wanted = standardImagePath(imagePath);
  for (const PlistValue& image : images->items()) {
    const std::string* path = image.findString("image-path");
    if (path != nullptr && standardImagePath(*path) == wanted) {
      if (visit(image)) return true;
    }
  }
  return false;
}

}  // namespace

std::string standardImagePath(const std::string& path) {
  std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), &free);
  if (real) return real.get();
  std::string standard = path;
  UlvoUtils::FileUtils::ConvertPathToOSPath(standard);
  return standard;
}

bool attachedImagesReport(PlistValue& report) {
  std::vector<LoopImage> attached;
  if (!listLoopImages(attached)) return false;
  PlistValue built = PlistValue::dictionary();
  PlistValue& images = built.set("images", PlistValue::array());
  for (const LoopImage& loop : attached) {
    PlistValue& image = images.append(PlistValue::dictionary());
    image.set("image-path", PlistValue::string(loop.backingFile));
    PlistValue& entities = image.set("system-entities", PlistValue::array());
    for (const LoopEntity& device : loop.entities) {
      PlistValue& entity = entities.append(PlistValue::dictionary());
      entity.set("dev-entry", PlistValue::string(device.node));
      if (!device.mountPoint.empty()) {
        entity.set("mount-point", PlistValue::string(device.mountPoint));
      }
    }
  }
  report = std::move(built);
  return true;
}

bool reportListsImage(const PlistValue& report, const std::string& imagePath) {
  return forEachMatchingImage(report, imagePath, [](const PlistValue&) { return true; });
}

bool findImageMountPoint(const PlistValue& report, const std::string& imagePath,
                         std::string& mountPoint) {
  // Only the first matching image is looked into.
  bool found = false;
  forEachMatchingImage(report, imagePath, [&](const PlistValue& image) {
    const PlistValue* entities = image.find("system-entities");
    if (entities != nullptr && entities->isArray()) {
      for (const PlistValue& entity : entities->items()) {
        if (const std::string* point = entity.findString("mount-point")) {
          mountPoint = *point;
          found = true;
          break;
        }
      }
    }
    return true;
  });
  return found;
}

int runTool(const std::vector<std::string>& candidates, const std::vector<std::string>& args) {
  std::string program;
  for (const std::string& candidate : candidates) {
    if (access(candidate.c_str(), X_OK) == 0) {
      program = candidate;
      break;
    }
  }
  return program.empty() ? -1 : runAndWait(program, args);
}

}  // namespace fileutils
}  // namespace velzip

namespace UlvoUtils {
namespace FileUtils {

namespace images = velzip::fileutils;
using velzip::PlistValue;
using velzip::fileutils::kComponent;

bool MountDmgAtPath(const std::string& dmgPath, std::string& mountPoint, std::string& mountedPath,
                    bool, bool& didMount, void* logger) {
  // Linux would attach an image a second time; an image that is already
  // attached counts as a failed attach, so the lookup below finds it.
  PlistValue before;
  const bool attached =
      images::attachedImagesReport(before) && images::reportListsImage(before, dmgPath);
  const int status = attached ? -1
                              : images::runTool(images::kMountTool, {"-o", images::kMountOptions,
                                                                     "--", dmgPath, mountPoint});
  if (status == 0) {
    mountedPath = mountPoint;
    didMount = true;
  } else {
    velzip::logUtility(logger, 50, kComponent,
                       "NOTE Failed to mount the package dmg. checking if already mounted...");
    mountedPath.clear();
    PlistValue report;
    if (!images::attachedImagesReport(report)) {
      velzip::logUtility(logger, 50, kComponent,
                         "Error Failed to find the already mounted location ....");
      return false;
    }
    std::string found;
    if (images::findImageMountPoint(report, dmgPath, found)) {
      mountedPath = found;
      didMount = false;
    }
  }
  return !mountedPath.empty();
}

bool UnmountDmgAtPath(const std::string& mountPoint, void* logger) {
  if (images::runTool(images::kUnmountTool, {"--", mountPoint}) == 0) {
    return true;
  }
  velzip::logUtility(logger, 50, kComponent, "Error Failed to unmount");
  return false;
}

}  // namespace FileUtils
}  // namespace UlvoUtils
