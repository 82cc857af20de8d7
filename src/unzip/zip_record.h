// One entry's central directory record as the readers use it: every field
// at its full width, with the zip64 extra field applied. The system zip
// layer compares its 32-bit markers against a 64-bit (unsigned long)-1 and so
// never applies zip64 fields; velzip reads the records itself.
#ifndef VELZIP_UNZIP_ZIP_RECORD_H
#define VELZIP_UNZIP_ZIP_RECORD_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace velzip {

constexpr size_t kCentralHeaderSize = 46;
constexpr size_t kLocalHeaderSize = 30;
constexpr uint32_t kCentralSignature = 0x02014b50;
constexpr uint32_t kLocalSignature = 0x04034b50;

constexpr uint16_t kFlagEncrypted = 1u << 0;
constexpr uint16_t kFlagLzmaEndMarker = 1u << 1;  // method 14 only
constexpr uint16_t kFlagDescriptor = 1u << 3;
constexpr uint16_t kFlagStrongEncryption = 1u << 6;
constexpr uint16_t kFlagUtf8 = 1u << 11;

struct ZipEntryRecord {
  std::string name;   // whole, as stored
  std::string extra;  // central extra field
  std::string comment;
  uint16_t versionMadeBy = 0;
  uint16_t versionNeeded = 0;
  uint16_t flag = 0;
  uint16_t method = 0;
  uint32_t dosDate = 0;  // date in the upper half, time in the lower
  uint32_t crc = 0;
  uint64_t compressedSize = 0;
  uint64_t uncompressedSize = 0;
  uint64_t localHeaderOffset = 0;
  uint32_t diskStart = 0;
  uint16_t internalAttributes = 0;
  uint32_t externalAttributes = 0;
  bool hasModTime = false;  // from an extended-timestamp field
  int64_t modTime = 0;      // seconds since the epoch, UTC
};

inline uint16_t le16(const unsigned char* p) {
  return static_cast<uint16_t>(p[0] | p[1] << 8);
}
inline uint32_t le32(const unsigned char* p) {
  return static_cast<uint32_t>(le16(p)) | static_cast<uint32_t>(le16(p + 2)) << 16;
}
inline uint64_t le64(const unsigned char* p) {
  return static_cast<uint64_t>(le32(p)) | static_cast<uint64_t>(le32(p + 4)) << 32;
}

// Parses the fixed part of a central header; false when the signature is
// wrong. Sets the lengths of the variable parts that follow it.
bool parseCentralHeader(const unsigned char* p, ZipEntryRecord& rec, size_t& nameLength,
                        size_t& extraLength, size_t& commentLength);

// Applies the extra fields velzip understands (zip64 sizes and offset, the
// extended timestamp) from rec.extra. False when a zip64 field the record
// needs is missing or short.
bool applyCentralExtra(ZipEntryRecord& rec);

// Calls f(id, data, size) for each well-formed block of an extra field; a
// block running past the end ends the walk.
template <class F>
void forEachExtraBlock(const std::string& extra, F f) {
  const auto* p = reinterpret_cast<const unsigned char*>(extra.data());
  size_t at = 0;
  while (at + 4 <= extra.size()) {
    const uint16_t id = le16(p + at), size = le16(p + at + 2);
    if (at + 4 + size > extra.size()) break;
    f(id, p + at + 4, static_cast<size_t>(size));
    at += 4 + size;
  }
}

// The WinZip AES block (0x9901) of an entry whose method is 99.
struct WinZipAesField {
  uint16_t version = 0;  // 1 (AE-1) or 2 (AE-2, which stores no CRC)
  uint8_t strength = 0;  // 1, 2, 3: 128, 192, 256-bit keys
  uint16_t method = 0;   // the method of the data beneath the encryption
};

// The AES block of extra; false when there is none or it is not AES's.
bool winZipAesField(const std::string& extra, WinZipAesField& field);

// The modification time of an extended-timestamp block (0x5455) in extra.
bool extendedModTime(const std::string& extra, int64_t& modTime);

// The time a DOS date and time denote, read as local time.
int64_t dosDateToTime(uint32_t dosDate);

// A zip method's common name, one word ("deflate", "bzip2"); "unknown" for
// others.
const char* methodName(unsigned method);

}  // namespace velzip

#endif  // VELZIP_UNZIP_ZIP_RECORD_H
