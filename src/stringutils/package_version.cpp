#include <cstdlib>
#include <string>

#include "velzip/StringUtils.h"

namespace StringUtils {

// Reads only the first four dot-separated parts, so a long run of dots does not
// build a piece for each; fields without a part keep their values.
bool GetPackageVersionFromPackageVersionString(const std::string& text, PackageVersion& version) {
  if (text.empty()) return true;
  int32_t* fields[] = {&version.major, &version.minor, &version.revision, &version.build};
  size_t start = 0;
  for (int32_t* field : fields) {
    const size_t dot = text.find('.', start);
    *field = std::atoi(text.substr(start, dot == std::string::npos ? dot : dot - start).c_str());
    if (dot == std::string::npos) break;
    start = dot + 1;
  }
  return true;
}

int ComparePackageVersion(const PackageVersion& a, const PackageVersion& b) {
  const int32_t PackageVersion::*order[] = {&PackageVersion::major, &PackageVersion::minor,
                                            &PackageVersion::revision, &PackageVersion::build};
  for (const auto field : order) {
    if (a.*field < b.*field) return -1;
    if (a.*field > b.*field) return 1;
  }
  return 0;
}

}  // namespace StringUtils
