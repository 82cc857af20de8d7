#include "zip/zip64_end.h"

#include <cstring>

namespace velzip {
namespace {

constexpr uint32_t kEndSignature = 0x06054b50;
constexpr uint32_t kZip64EndSignature = 0x06064b50;
constexpr uint32_t kZip64LocatorSignature = 0x07064b50;
constexpr uint64_t kZip64EndRestSize = 44;  // the record after its size field
constexpr uint16_t kZip64Version = 45;

uint32_t get32(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

void put(std::string& out, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

}  // namespace

bool hasZip64Locator(const uint8_t* tail, size_t size) {
  return size >= kEndRecordSize + kZip64LocatorSize &&
         get32(tail + size - kEndRecordSize - kZip64LocatorSize) == kZip64LocatorSignature;
}

std::string zip64EndRecords(const uint8_t (&end)[kEndRecordSize], uint64_t at, uint64_t entries) {
  if (get32(end) != kEndSignature || end[20] != 0 || end[21] != 0) return {};
  const uint64_t directorySize = get32(end + 12), directoryOffset = get32(end + 16);
  std::string out;
  put(out, kZip64EndSignature, 4);
  put(out, kZip64EndRestSize, 8);
  put(out, (3u << 8) | kZip64Version, 2);  // made by: Unix
  put(out, kZip64Version, 2);
  put(out, 0, 4);  // this disk
  put(out, 0, 4);  // the disk where the central directory starts
  put(out, entries, 8);
  put(out, entries, 8);
  put(out, directorySize, 8);
  put(out, directoryOffset, 8);
  put(out, kZip64LocatorSignature, 4);
  put(out, 0, 4);  // the disk of the zip64 end record
  put(out, at, 8);
  put(out, 1, 4);  // disks in all
  // The end record stays as it was: its counts already say "see zip64".
  out.append(reinterpret_cast<const char*>(end), kEndRecordSize);
  return out;
}

}  // namespace velzip
