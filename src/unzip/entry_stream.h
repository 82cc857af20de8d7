// One entry's bytes, decrypted, decoded and checked: what both readers
// extract, test and list from. Reads go through the archive file by
// position, so separate streams may read one archive at once.
#ifndef VELZIP_UNZIP_ENTRY_STREAM_H
#define VELZIP_UNZIP_ENTRY_STREAM_H

#include <cstdint>
#include <memory>
#include <string>

#include "unzip/archive_file.h"
#include "unzip/byte_source.h"
#include "unzip/data_layers.h"
#include "unzip/zip_record.h"

namespace velzip {

class EntryStream {
 public:
  enum class OpenFailure { kNone, kDamaged, kUnsupported, kNeedsPassword, kWrongPassword };

  EntryStream() = default;
  ~EntryStream() = default;
  EntryStream(const EntryStream&) = delete;
  EntryStream& operator=(const EntryStream&) = delete;

  // Opens rec's data. False, with why() and failure(), when it cannot be
  // read: a method or an encryption velzip does not read, no or a wrong
  // password, a damaged local header. The password is used only when the
  // entry is encrypted.
  bool open(const ArchiveFile& file, const ZipEntryRecord& rec, const char* password);
  // Up to size bytes: the count; 0 once every byte was read and the CRC-32
  // (unless AE-2 leaves it out), the size and any authentication code
  // matched; -1 on failure (why()).
  ssize_t read(void* buf, size_t size);
  void close();

  // Why velzip cannot read rec whatever the password; empty when it can.
  static std::string unreadable(const ZipEntryRecord& rec);

  bool isOpen() const { return top_ != nullptr; }
  OpenFailure failure() const { return failure_; }
  const std::string& why() const { return error_.why; }
  // The local header's extra field (format 1 keeps the size text there).
  const std::string& localExtra() const { return local_.extra; }
  uint64_t produced() const { return produced_; }
  // How many bytes read() yields in all (the entry's uncompressed size).
  uint64_t size() const { return expectedSize_; }

 private:
  bool fail(OpenFailure failure, const std::string& why);
  // Puts the entry's decryption, if any, over packed.
  bool openDecryption(const ZipEntryRecord& rec, const DataLayers& layers, const char* password,
                      ByteSource*& packed, uint64_t& packedSize);
  bool drainAuthenticated();

  StreamError error_;
  OpenFailure failure_ = OpenFailure::kNone;
  LocalEntry local_;
  std::unique_ptr<RangeSource> stored_;
  std::unique_ptr<ByteSource> plain_;    // decryption, when encrypted
  std::unique_ptr<ByteSource> decoded_;  // the method's decoder
  ByteSource* top_ = nullptr;
  uint64_t expectedSize_ = 0;
  uint32_t expectedCrc_ = 0;
  uint32_t crc_ = 0;
  uint64_t produced_ = 0;
  bool checkCrc_ = true;
  bool authenticated_ = false;  // plain_ checks a code at its end
  bool done_ = false;
};

}  // namespace velzip

#endif  // VELZIP_UNZIP_ENTRY_STREAM_H
