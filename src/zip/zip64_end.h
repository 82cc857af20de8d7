// The zip layer counts more than 65,534 entries as 0xFFFF in the end record
// but writes the zip64 end records that hold the real count only for an
// archive past 4 GiB; without them unzip and others find the central
// directory damaged. These build what must stand in place of the end record.
#ifndef VELZIP_ZIP_ZIP64_END_H
#define VELZIP_ZIP_ZIP64_END_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace velzip {

constexpr size_t kEndRecordSize = 22;     // without a comment
constexpr size_t kZip64LocatorSize = 20;  // just before the end record

// True when the bytes that end the archive (at least kEndRecordSize +
// kZip64LocatorSize of them, or all there are) already hold a zip64 locator.
bool hasZip64Locator(const uint8_t* tail, size_t size);

// For the end record (no comment) written at offset `at`: a zip64 end
// record, its locator and the end record again, to be written at `at`. Empty
// when the record is malformed.
std::string zip64EndRecords(const uint8_t (&end)[kEndRecordSize], uint64_t at, uint64_t entries);

}  // namespace velzip

#endif  // VELZIP_ZIP_ZIP64_END_H
