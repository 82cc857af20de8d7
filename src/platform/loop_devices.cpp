#include "platform/loop_devices.h"

#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <utility>

#include "frame/handles.h"

namespace velzip {

namespace {

constexpr const char* kSysBlock = "/sys/block";

using DirHandle = UniqueDir;

// One line of a sysfs attribute, without its newline.
bool readAttribute(const std::string& path, std::string& value) {
  std::ifstream in(path);
  if (!in) return false;
  std::getline(in, value);
  return !in.bad();
}

// "loop12" gives 12, "loop12p3" gives 3 after "loop12p"; -1 otherwise.
long numberAfter(const std::string& name, const std::string& prefix) {
  if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0) return -1;
  const std::string digits = name.substr(prefix.size());
  if (digits.find_first_not_of("0123456789") != std::string::npos || digits.size() > 9) return -1;
  return std::strtol(digits.c_str(), nullptr, 10);
}

// mountinfo writes blanks, tabs, newlines and backslashes as \ooo.
std::string unescape(const std::string& field) {
  std::string out;
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() &&
        field.substr(i + 1, 3).find_first_not_of("01234567") == std::string::npos) {
      out += static_cast<char>(std::strtol(field.substr(i + 1, 3).c_str(), nullptr, 8));
      i += 3;
    } else {
      out += field[i];
    }
  }
  return out;
}

// "major:minor" of each mounted device to its first mount of the whole file
// system (bind mounts of a subfolder have another root and are left out).
bool readMounts(std::map<std::string, std::string>& mounts) {
  std::ifstream in("/proc/self/mountinfo");
  if (!in) return false;
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string id, parent, device, root, mountPoint;
    if (!(fields >> id >> parent >> device >> root >> mountPoint) || root != "/") continue;
    mounts.emplace(device, unescape(mountPoint));
  }
  return !in.bad();
}

}  // namespace

bool listLoopImages(std::vector<LoopImage>& images) {
  images.clear();
  std::map<std::string, std::string> mounts;
  if (!readMounts(mounts)) return false;
  DirHandle block(opendir(kSysBlock));
  if (!block) return false;

  std::vector<std::pair<long, std::string>> loops;
  while (const dirent* entry = readdir(block.get())) {
    const long number = numberAfter(entry->d_name, "loop");
    if (number >= 0) loops.emplace_back(number, entry->d_name);
  }
  std::sort(loops.begin(), loops.end());

  for (const auto& loop : loops) {
    const std::string sysPath = std::string(kSysBlock) + "/" + loop.second;
    std::string backing;
    // Unbound devices have no backing file.
    if (!readAttribute(sysPath + "/loop/backing_file", backing) || backing.empty()) continue;

    std::vector<std::pair<long, std::string>> nodes{{0, loop.second}};
    if (DirHandle dir{opendir(sysPath.c_str())}) {
      while (const dirent* entry = readdir(dir.get())) {
        const long part = numberAfter(entry->d_name, loop.second + "p");
        if (part > 0) nodes.emplace_back(part, entry->d_name);
      }
    }
    std::sort(nodes.begin(), nodes.end());

    auto image = std::find_if(images.begin(), images.end(),
                              [&](const LoopImage& i) { return i.backingFile == backing; });
    if (image == images.end()) {
      images.push_back({backing, {}});
      image = images.end() - 1;
    }
    for (const auto& node : nodes) {
      const std::string devFile =
          node.first == 0 ? sysPath + "/dev" : sysPath + "/" + node.second + "/dev";
      std::string device;
      LoopEntity entity{"/dev/" + node.second, ""};
      if (readAttribute(devFile, device)) {
        auto mounted = mounts.find(device);
        if (mounted != mounts.end()) entity.mountPoint = mounted->second;
      }
      image->entities.push_back(std::move(entity));
    }
  }
  return true;
}

}  // namespace velzip
