#include "select.h"

#include <fnmatch.h>
#include <locale.h>

#include "paths.h"

namespace velzip_tool {
namespace {

constexpr char kCompanionFolder[] = "__MACOSX/";

std::vector<std::string> normalised(std::vector<std::string> globs) {
  for (auto& g : globs) g = withoutTrailingSlashes(g);
  return globs;
}

// Names are UTF-8 whatever the user's locale: '?' is one character, not one
// byte. glibc falls back to bytes for names that are not UTF-8.
class Utf8Matching {
 public:
  Utf8Matching() {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
    if (utf8 != static_cast<locale_t>(0)) previous_ = uselocale(utf8);
  }
  ~Utf8Matching() {
    if (previous_ != static_cast<locale_t>(0)) uselocale(previous_);
  }
  Utf8Matching(const Utf8Matching&) = delete;
  Utf8Matching& operator=(const Utf8Matching&) = delete;

 private:
  locale_t previous_ = static_cast<locale_t>(0);
};

}  // namespace

Selection::Selection(std::vector<std::string> includes, std::vector<std::string> excludes)
    : includes_(normalised(std::move(includes))), excludes_(normalised(std::move(excludes))) {}

bool Selection::excluded(const std::string& name) const {
  return !excludes_.empty() && matches(excludes_, name);
}

bool Selection::included(const std::string& name) const {
  return includes_.empty() || matches(includes_, name);
}

// The name itself and each folder on its way.
bool Selection::matches(const std::vector<std::string>& globs, const std::string& name) {
  const std::string whole = withoutTrailingSlashes(name);
  Utf8Matching utf8;
  for (size_t end = whole.find('/');; end = whole.find('/', end + 1)) {
    const std::string part = end == std::string::npos ? whole : whole.substr(0, end);
    for (const auto& glob : globs) {
      if (fnmatch(glob.c_str(), part.c_str(), 0) == 0) return true;
    }
    if (end == std::string::npos) return false;
  }
}

std::string companionTarget(const std::string& name) {
  const size_t prefix = sizeof kCompanionFolder - 1;
  if (name.compare(0, prefix, kCompanionFolder) != 0) return std::string();
  const size_t slash = name.rfind('/');
  if (slash < prefix - 1 || name.compare(slash + 1, 2, "._") != 0 || name.size() <= slash + 3) {
    return std::string();
  }
  return name.substr(prefix, slash + 1 - prefix) + name.substr(slash + 3);
}

}  // namespace velzip_tool
