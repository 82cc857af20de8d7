#include "lzma/entry_layout.h"

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

namespace velzip {

bool fillZipFileInfo(const char* path, zip_fileinfo& zi, struct stat* stOut) {
  std::memset(&zi, 0, sizeof zi);
  struct stat st;
  if (lstat(path, &st) != 0) {
    if (stOut != nullptr) std::memset(stOut, 0, sizeof *stOut);
    return false;
  }
  struct tm local;
  if (localtime_r(&st.st_mtime, &local) != nullptr) {
    zi.tmz_date.tm_sec = static_cast<uInt>(local.tm_sec);
    zi.tmz_date.tm_min = static_cast<uInt>(local.tm_min);
    zi.tmz_date.tm_hour = static_cast<uInt>(local.tm_hour);
    zi.tmz_date.tm_mday = static_cast<uInt>(local.tm_mday);
    zi.tmz_date.tm_mon = static_cast<uInt>(local.tm_mon);
    zi.tmz_date.tm_year = static_cast<uInt>(local.tm_year + 1900);
  }
  zi.external_fa = static_cast<uLong>(st.st_mode & 0xFFFFu) << 16;
  if (stOut != nullptr) *stOut = st;
  return true;
}

EntryKind classifyEntry(const char* name, unsigned long externalAttributes) {
  if ((entryMode(externalAttributes) & kModeTypeMask) == kModeTypeLink) return EntryKind::kLink;
  const size_t len = std::strlen(name);
  if (len > 0 && name[len - 1] == '/') return EntryKind::kDirectory;
  if (!companionTargetName(name).empty()) return EntryKind::kCompanion;
  return EntryKind::kRegular;
}

std::string companionEntryName(const std::string& entryName) {
  std::string out = kCompanionFolder;
  const size_t slash = entryName.rfind('/');
  if (slash == std::string::npos) return out + "._" + entryName;
  return out + entryName.substr(0, slash + 1) + "._" + entryName.substr(slash + 1);
}

std::string companionTargetName(const std::string& name) {
  const size_t prefix = sizeof kCompanionFolder - 1;
  if (name.compare(0, prefix, kCompanionFolder) != 0) return {};
  const size_t slash = name.rfind('/');
  const std::string last = name.substr(slash + 1);
  // "._" alone names nothing: the last component needs at least one more byte.
  if (last.size() < 3 || last.compare(0, 2, "._") != 0) return {};
  return name.substr(prefix, slash + 1 - prefix) + last.substr(2);
}

std::string sizeExtraField(unsigned long long size) {
  std::string text = std::to_string(size);
  text.push_back('\0');
  return text;
}

bool parseSizeExtraField(const char* data, size_t len, long long& size) {
  if (data == nullptr || len < 1) return false;
  // The field is not terminated in the archive: terminate a copy.
  std::string text(data, strnlen(data, len));
  size = std::atoll(text.c_str());
  return true;
}

}  // namespace velzip
