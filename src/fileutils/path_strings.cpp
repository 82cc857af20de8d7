#include <libgen.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

#include "velzip/FileUtils.h"

namespace UlvoUtils {
namespace FileUtils {

bool RemoveSeparatorAtEnd(std::string& path) {
  if (path.empty()) return false;
  size_t keep = path.find_last_not_of('/');
  path.erase(keep == std::string::npos ? 0 : keep + 1);
  return true;
}

bool getAbsoluteFilePath(const std::string& path, std::string& absolutePath) {
  // Linux paths may run to PATH_MAX, so the result is not cut to a fixed buffer.
  std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), &free);
  if (!resolved) {
    absolutePath = path;
    return false;
  }
  absolutePath = resolved.get();
  return true;
}

bool GetParentDirectory(std::string& path) {
  if (path.empty()) return false;
  std::vector<char> buf(path.c_str(), path.c_str() + path.size() + 1);
  const char* parent = dirname(buf.data());
  path = parent != nullptr ? parent : "";
  return true;
}

bool AppendPath(std::string& path, const std::string& component, void* /*logger*/) {
  if (path.empty() || component.empty()) return false;
  size_t start = component.find_first_not_of('/');
  if (path.back() != '/') path += '/';
  if (start != std::string::npos) path.append(component, start, std::string::npos);
  return true;
}

bool GetFileNameFromPath(const std::string& path, std::string& fileName, void* /*logger*/) {
  size_t slash = path.find_last_of('/');
  if (slash != std::string::npos) fileName = path.substr(slash + 1);
  return true;
}

}  // namespace FileUtils
}  // namespace UlvoUtils
