#include "unzip/zip_record.h"

#include <ctime>

namespace velzip {
namespace {

constexpr uint16_t kZip64Block = 0x0001;
constexpr uint16_t kTimestampBlock = 0x5455;
constexpr uint16_t kWinZipAesBlock = 0x9901;
constexpr size_t kWinZipAesBlockSize = 7;
constexpr uint32_t kMarker32 = 0xFFFFFFFFu;
constexpr uint16_t kMarker16 = 0xFFFFu;

}  // namespace

bool parseCentralHeader(const unsigned char* p, ZipEntryRecord& rec, size_t& nameLength,
                        size_t& extraLength, size_t& commentLength) {
  if (le32(p) != kCentralSignature) return false;
  rec.versionMadeBy = le16(p + 4);
  rec.versionNeeded = le16(p + 6);
  rec.flag = le16(p + 8);
  rec.method = le16(p + 10);
  rec.dosDate = le32(p + 12);
  rec.crc = le32(p + 16);
  rec.compressedSize = le32(p + 20);
  rec.uncompressedSize = le32(p + 24);
  nameLength = le16(p + 28);
  extraLength = le16(p + 30);
  commentLength = le16(p + 32);
  rec.diskStart = le16(p + 34);
  rec.internalAttributes = le16(p + 36);
  rec.externalAttributes = le32(p + 38);
  rec.localHeaderOffset = le32(p + 42);
  return true;
}

bool applyCentralExtra(ZipEntryRecord& rec) {
  // Only the fields whose 32-bit value is the marker are in the block, in
  // this order.
  bool needSize = rec.uncompressedSize == kMarker32;
  bool needPacked = rec.compressedSize == kMarker32;
  bool needOffset = rec.localHeaderOffset == kMarker32;
  bool needDisk = rec.diskStart == kMarker16;
  forEachExtraBlock(rec.extra, [&](uint16_t id, const unsigned char* d, size_t size) {
    if (id != kZip64Block) return;
    size_t at = 0;
    auto take64 = [&](bool& need, uint64_t& field) {
      if (!need || at + 8 > size) return;
      field = le64(d + at);
      at += 8;
      need = false;
    };
    take64(needSize, rec.uncompressedSize);
    take64(needPacked, rec.compressedSize);
    take64(needOffset, rec.localHeaderOffset);
    if (needDisk && at + 4 <= size) {
      rec.diskStart = le32(d + at);
      needDisk = false;
    }
  });
  rec.hasModTime = extendedModTime(rec.extra, rec.modTime);
  // A size can truly be 0xFFFFFFFF without zip64; an offset cannot point
  // past a record that says it needs zip64 without giving it.
  return !needOffset && !needPacked;
}

bool winZipAesField(const std::string& extra, WinZipAesField& field) {
  bool found = false;
  forEachExtraBlock(extra, [&](uint16_t id, const unsigned char* d, size_t size) {
    // The vendor id "AE" tells the block from others that reuse the number.
    if (found || id != kWinZipAesBlock || size < kWinZipAesBlockSize || d[2] != 'A' ||
        d[3] != 'E') {
      return;
    }
    field.version = le16(d);
    field.strength = d[4];
    field.method = le16(d + 5);
    found = true;
  });
  return found;
}

bool extendedModTime(const std::string& extra, int64_t& modTime) {
  bool found = false;
  forEachExtraBlock(extra, [&](uint16_t id, const unsigned char* d, size_t size) {
    if (found || id != kTimestampBlock || size < 5 || (d[0] & 1) == 0) return;
    modTime = static_cast<int32_t>(le32(d + 1));
    found = true;
  });
  return found;
}

int64_t dosDateToTime(uint32_t dosDate) {
  struct tm tm = {};
  tm.tm_year = static_cast<int>((dosDate >> 25) & 0x7F) + 80;
  tm.tm_mon = static_cast<int>((dosDate >> 21) & 0x0F) - 1;
  tm.tm_mday = static_cast<int>((dosDate >> 16) & 0x1F);
  tm.tm_hour = static_cast<int>((dosDate >> 11) & 0x1F);
  tm.tm_min = static_cast<int>((dosDate >> 5) & 0x3F);
  tm.tm_sec = static_cast<int>((dosDate & 0x1F) * 2);
  tm.tm_isdst = -1;
  return static_cast<int64_t>(mktime(&tm));
}

const char* methodName(unsigned method) {
  switch (method) {
    case 0:
      return "stored";
    case 1:
      return "shrink";
    case 2:
    case 3:
    case 4:
    case 5:
      return "reduce";
    case 6:
      return "implode";
    case 8:
      return "deflate";
    case 9:
      return "deflate64";
    case 10:
      return "dcl-implode";
    case 12:
      return "bzip2";
    case 16:
      return "cmpsc";
    case 14:
      return "lzma";
    case 18:
      return "terse";
    case 19:
      return "lz77";
    case 20:
    case 93:
      return "zstd";
    case 95:
      return "xz";
    case 96:
      return "jpeg";
    case 97:
      return "wavpack";
    case 98:
      return "ppmd";
    case 99:
      return "aes";
    default:
      return "unknown";
  }
}

}  // namespace velzip
