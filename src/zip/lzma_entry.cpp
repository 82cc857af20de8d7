// Format 1: each regular file is encoded into a temporary payload file first,
// so memory stays flat whatever the file's size, and the payload is then
// stored (method 0) with the restored size as text in the local extra field.
// One payload file and one encoder serve every entry of an operation.
#include <unistd.h>

#include <cstdint>
#include <string>

#include "velzip/FileUtils.h"
#include "velzip/StringUtils.h"
#include "zip/zip_writer.h"

namespace velzip {
namespace {

constexpr uint64_t kZip64Threshold = 0xFFFFFFFFu;

bool prepareLzmaPayload(const char* sourcePath, WriterScratch& scratch, EntryContent& out) {
  namespace fu = UlvoUtils::FileUtils;
  TempFile& payload = scratch.payload;
  if (!payload.exists()) {
    std::string temp;
    fu::GetDirectoryPath(fu::kPathTemp, temp, nullptr);
    std::string guid;
    StringUtils::GUIDString(guid);
    fu::AppendPath(temp, guid, nullptr);
    std::string tempUtf8;
    StringUtils::NativeToUTF8(temp, tempUtf8, nullptr);
    if (!payload.create(tempUtf8)) return false;
  }
  std::string sourceUtf8;
  StringUtils::NativeToUTF8(sourcePath, sourceUtf8, nullptr);
  uint64_t size = 0, stored = 0;
  if (!scratch.encoder.encodeFile(sourceUtf8.c_str(), payload.fd(), size, stored)) return false;
  if (lseek(payload.fd(), 0, SEEK_SET) != 0) return false;

  // The size of what was encoded, so that text and payload always agree.
  std::string digits;
  StringUtils::LongToNativeString(static_cast<long long>(size), digits);
  StringUtils::NativeToUTF8(digits, out.localExtra, nullptr);
  out.localExtra.push_back('\0');
  out.zip64 = size >= kZip64Threshold || stored >= kZip64Threshold;
  out.fd = payload.fd();
  return true;
}

constexpr WriterFormat kLzmaFormat = {
    "VelzipHandler",     // logComponent
    0,                   // method: stored
    0,                   // level
    0,                   // extraNameSkip: names keep the separator after the base
    true,                // subFolderEntries
    false,               // companionAfterEachFile: only on request
    prepareLzmaPayload,  // prepareContent
};

}  // namespace

const WriterFormat& lzmaWriterFormat() {
  return kLzmaFormat;
}

}  // namespace velzip
