// The folder walk, its counting twin and the metadata companions.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "lzma/entry_layout.h"
#include "platform/apple_double.h"
#include "zip/failure_text.h"
#include "zip/timestamp_extra.h"
#include "zip/zip_writer.h"

namespace velzip {
namespace {

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Some file systems leave the type to lstat.
bool listedAsDirectory(const dirent* entry, const char* childPath) {
  if (entry->d_type != DT_UNKNOWN) return entry->d_type == DT_DIR;
  struct stat st;
  return lstat(childPath, &st) == 0 && S_ISDIR(st.st_mode);
}

void trimTrailingSeparators(char* path) {
  size_t len = std::strlen(path);
  while (len > 1 && (path[len - 1] == '/' || path[len - 1] == '\\')) path[--len] = '\0';
}

void childPath(char (&child)[kPathBufferSize], const char* folder, const char* name) {
  boundedCopy(child, folder);
  boundedAppend(child, "/");
  boundedAppend(child, name);
}

// Whether path (not following a link) carries a "user." attribute, the only
// ones a companion holds.
bool hasUserAttributes(const char* path) {
  std::vector<char> names(4096);
  for (;;) {
    const ssize_t n = llistxattr(path, names.data(), names.size());
    if (n >= 0) {
      for (size_t at = 0; at < static_cast<size_t>(n); at += std::strlen(names.data() + at) + 1) {
        if (std::strncmp(names.data() + at, "user.", 5) == 0) return true;
      }
      return false;
    }
    if (errno != ERANGE || names.size() > (1u << 20)) return false;
    names.resize(names.size() * 4);
  }
}

// The next listed item; null at the end, or on an error with errno set.
const dirent* nextItem(DIR* dir) {
  errno = 0;
  return readdir(dir);
}

}  // namespace

bool ZipWriter::addFolder(const char* path, bool flatten, bool addRootFolder) {
  if (zip_ == nullptr) return fail("no archive is open");
  if (path == nullptr) return fail("no folder given");
  Operation operation(*this);
  if (threads_ > 1 && depth_ == 1) return addFolderAhead(path, flatten, addRootFolder);
  // One step at a time, as the walk meets them.
  return walk(path, flatten, addRootFolder, [](const Step& step, const char*) { return step(); });
}

// The walk hands every step to sink, with the source path of a file step;
// it goes on while sink answers true. Steps capture what they need by value,
// so that a sink may also keep them to run later.
bool ZipWriter::walk(const char* path, bool flatten, bool addRootFolder, const StepSink& sink) {
  const std::string shown = path;
  sink(
      [this, shown, addRootFolder] {
        log(kLogLevelInfo, "Entering to add folder %s in zip (addrootfolder = %d)", shown.c_str(),
            addRootFolder ? 1 : 0);
        return true;
      },
      nullptr);

  char folder[kPathBufferSize];
  boundedCopy(folder, path);
  prepareSourcePath(folder);

  // Folder names drop one leading "/" (file names keep theirs).
  char name[kPathBufferSize] = "";
  if (!flatten) {
    if (!startsWithBase(folder)) {
      const std::string why =
          std::string("cannot add ") + folder + ": it is outside the base folder " + base_;
      return sink([this, why] { return fail(why); }, nullptr);
    }
    const size_t baseLen = std::strlen(base_);
    const size_t len = std::strlen(folder);
    const char* rest = folder + (baseLen < len ? baseLen : len);
    if (rest[0] == '/') ++rest;
    boundedCopy(name, rest);
  }
  if (addRootFolder) {
    const std::string entry = name, where = folder;
    sink(
        [this, entry, where] {
          addDirectoryEntry(entry.c_str(), where.c_str());
          return true;
        },
        nullptr);
  }

  trimTrailingSeparators(folder);
  const std::string here = folder;
  UniqueDir dir(opendir(folder));
  if (!dir) {
    const std::string why = failureText("cannot read the folder", folder, errno);
    return sink([this, why] { return fail(why); }, nullptr);
  }

  bool result = false;
  while (const dirent* entry = nextItem(dir.get())) {
    if (isDotOrDotDot(entry->d_name)) {
      result = true;
      continue;
    }
    char child[kPathBufferSize];
    childPath(child, folder, entry->d_name);
    const bool isFolder = listedAsDirectory(entry, child);
    if (filter_ != nullptr && !filter_(child, isFolder, filterData_)) {
      result = true;
      continue;
    }
    const std::string item = entry->d_name, source = child;
    if (isFolder) {
      sink(
          [this, item, here] {
            log(kLogLevelDetail, "Found directory %s inside directory %s", item.c_str(),
                here.c_str());
            return true;
          },
          nullptr);
      result = walk(child, flatten, format_.subFolderEntries, sink);
    } else {
      sink(
          [this, item, here] {
            log(kLogLevelDetail, "Found file %s inside directory %s", item.c_str(), here.c_str());
            return true;
          },
          nullptr);
      char childName[kPathBufferSize];
      boundedCopy(childName, name);
      if (name[0] != '\0') boundedAppend(childName, "/");
      boundedAppend(childName, entry->d_name);
      const std::string companion = childName;
      result = sink(
          [this, source, companion, flatten] {
            bool added = addFile(source.c_str(), nullptr, flatten);
            if (added && wantsCompanion(source.c_str())) {
              added = addResourceFork(companion.c_str(), source.c_str());
            }
            return added;
          },
          source.c_str());
    }
    if (!result) return false;
  }
  // A listing cut short would give an archive that silently lacks items.
  if (errno != 0) {
    const std::string why = failureText("cannot read the folder", folder, errno);
    return sink([this, why] { return fail(why); }, nullptr);
  }
  return result;
}

bool ZipWriter::wantsCompanion(const char* path) const {
  switch (companions_) {
    case CompanionPolicy::kNever:
      return false;
    case CompanionPolicy::kWithMetadata:
      return hasUserAttributes(path);
    case CompanionPolicy::kFormatDefault:
      break;
  }
  return format_.companionAfterEachFile;
}

// Packed in memory: a companion is small, and there is no file to clean up.
bool ZipWriter::addResourceFork(const char* entryName, const char* path) {
  if (entryName == nullptr || path == nullptr) return fail("no entry name or file given");
  if (zip_ == nullptr) return fail("no archive is open");
  struct stat st;
  if (lstat(path, &st) == 0 && S_ISLNK(st.st_mode)) return true;

  // Metadata that cannot be read is simply not carried, as always; metadata
  // too large for a companion fails rather than going missing.
  AppleDoubleContents contents;
  if (appleDoubleCollect(path, contents) != 0) return true;
  std::vector<uint8_t> packed;
  if (!appleDoubleBuild(contents, packed)) {
    return fail(std::string("cannot pack the metadata of ") + path +
                ": it does not fit a companion (too large, or a name too long)");
  }

  const std::string name = nativeToUtf8(companionEntryName(entryName).c_str());
  zip_fileinfo zi;
  const bool statOk = fillZipFileInfo(path, zi, &st);
  // Described as the private file a Mac would unpack it from.
  zi.external_fa = static_cast<uLong>(S_IFREG | 0600) << 16;
  const std::string times = statOk ? modificationTimeExtra(st.st_mtime) : std::string();

  const ZLibCallbackAction action = progress_.report(kZLibStateEntryStart, 0, name.c_str(), path);
  if (action == kZLibAbort) return fail(std::string("stopped by the progress callback at ") + name);
  if (action == kZLibSkip) return true;
  EntrySource input = EntrySource::memory(packed.data(), packed.size());
  return addContent(name.c_str(), zi, times, input, name.c_str(), path);
}

bool ZipWriter::folderInfo(const char* path, Z_FileInfo& info) {
  if (path == nullptr) return false;
  char folder[kPathBufferSize];
  boundedCopy(folder, path);
  trimTrailingSeparators(folder);
  UniqueDir dir(opendir(folder));
  if (!dir) return false;

  bool result = true;
  while (const dirent* entry = readdir(dir.get())) {
    if (isDotOrDotDot(entry->d_name)) continue;
    char child[kPathBufferSize];
    childPath(child, folder, entry->d_name);
    if (listedAsDirectory(entry, child)) {
      ++info.folderCount;
      result = folderInfo(child, info);
    } else {
      ++info.fileCount;
      struct stat st;
      if (lstat(child, &st) == 0 && S_ISREG(st.st_mode)) {
        info.totalSize += static_cast<uint64_t>(st.st_size);
      }
    }
    if (!result) break;
  }
  return result;
}

}  // namespace velzip
