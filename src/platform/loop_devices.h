// Files attached as loop devices, and where those devices are mounted.
#ifndef VELZIP_PLATFORM_LOOP_DEVICES_H
#define VELZIP_PLATFORM_LOOP_DEVICES_H

#include <string>
#include <vector>

namespace velzip {

struct LoopEntity {
  std::string node;        // "/dev/loop3", "/dev/loop3p1"
  std::string mountPoint;  // empty when the device is not mounted
};

// One backing file with every loop device bound to it (in device order),
// each followed by its partitions.
struct LoopImage {
  std::string backingFile;  // as the kernel records it: absolute, links resolved
  std::vector<LoopEntity> entities;
};

// From /sys/block and /proc/self/mountinfo; false when either cannot be read.
// A device mounted several times reports its first whole-file-system mount.
bool listLoopImages(std::vector<LoopImage>& images);

}  // namespace velzip

#endif  // VELZIP_PLATFORM_LOOP_DEVICES_H
