// User extended attributes of one item (never through a final link).
#ifndef VELZIP_TESTS_SUPPORT_XATTR_H
#define VELZIP_TESTS_SUPPORT_XATTR_H

#include <sys/xattr.h>

#include <cstring>
#include <map>
#include <string>

namespace velzip_test {

using Attributes = std::map<std::string, std::string>;  // full name -> value

inline bool setAttr(const std::string& path, const std::string& name, const std::string& value) {
  return lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0;
}

// Every "user." attribute with its value.
inline Attributes userAttributes(const std::string& path) {
  Attributes out;
  char names[65536];
  const ssize_t n = llistxattr(path.c_str(), names, sizeof names);
  for (ssize_t pos = 0; pos < n; pos += static_cast<ssize_t>(std::strlen(names + pos)) + 1) {
    const std::string name = names + pos;
    if (name.rfind("user.", 0) != 0) continue;
    std::string value(65536, '\0');
    const ssize_t len = lgetxattr(path.c_str(), name.c_str(), &value[0], value.size());
    value.resize(len < 0 ? 0 : static_cast<size_t>(len));
    out[name] = value;
  }
  return out;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_XATTR_H
