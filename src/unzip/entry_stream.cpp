#include "unzip/entry_stream.h"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <climits>

#include "unzip/data_layers.h"
#include "unzip/method_decoders.h"
#include "unzip/traditional_cipher.h"
#include "unzip/winzip_aes.h"

namespace velzip {
namespace {

constexpr uint64_t kTraditionalHeaderSize = 12;
constexpr uint16_t kAesWithoutCrc = 2;  // AE-2: the authentication code stands in for it
constexpr size_t kDrainChunk = 4096;

EntryStream::OpenFailure failureOf(const StreamError& error) {
  return error.why == "wrong password" ? EntryStream::OpenFailure::kWrongPassword
                                       : EntryStream::OpenFailure::kDamaged;
}

}  // namespace

bool EntryStream::fail(OpenFailure failure, const std::string& why) {
  const std::string reason = error_.failed() ? error_.why : why;
  close();
  failure_ = failure;
  error_.why = reason;
  return false;
}

std::string EntryStream::unreadable(const ZipEntryRecord& rec) {
  return unreadableLayers(dataLayers(rec));
}

bool EntryStream::openDecryption(const ZipEntryRecord& rec, const DataLayers& layers,
                                 const char* password, ByteSource*& packed, uint64_t& packedSize) {
  if (layers.encryption == Encryption::kNone) return true;
  if (password == nullptr) return fail(OpenFailure::kNeedsPassword, "encrypted; no password");
  if (layers.encryption == Encryption::kAes) {
    plain_ = openWinZipAes(*packed, layers.aes, packedSize, password, error_);
    packedSize -= std::min(packedSize, winZipAesOverhead(layers.aes.strength));
    authenticated_ = true;
    checkCrc_ = layers.aes.version != kAesWithoutCrc;
  } else {
    plain_ = openTraditionalCipher(*packed, rec, password, error_);
    packedSize -= std::min(packedSize, kTraditionalHeaderSize);
  }
  if (!plain_) return fail(failureOf(error_), error_.why);
  packed = plain_.get();
  return true;
}

bool EntryStream::open(const ArchiveFile& file, const ZipEntryRecord& rec, const char* password) {
  close();
  const DataLayers layers = dataLayers(rec);
  const std::string refused = unreadableLayers(layers);
  if (!refused.empty()) return fail(OpenFailure::kUnsupported, refused);
  if (!file.readLocal(rec, local_, error_.why, true))
    return fail(OpenFailure::kDamaged, error_.why);
  stored_ = std::make_unique<RangeSource>(file, local_.dataOffset, rec.compressedSize, error_,
                                          std::move(local_.data));
  ByteSource* packed = stored_.get();
  uint64_t packedSize = rec.compressedSize;
  if (!openDecryption(rec, layers, password, packed, packedSize)) return false;

  MethodInput input;
  input.method = layers.method;
  input.packedSize = packedSize;
  input.size = rec.uncompressedSize;
  input.flag = rec.flag;
  decoded_ = makeMethodDecoder(input, *packed, error_);
  if (!decoded_) return fail(OpenFailure::kDamaged, error_.why);
  top_ = decoded_.get();
  expectedSize_ = rec.uncompressedSize;
  expectedCrc_ = rec.crc;
  crc_ = static_cast<uint32_t>(crc32(0L, Z_NULL, 0));
  return true;
}

// A decoder may stop short of the stored bytes (a stream's end marker comes
// before padding); an authentication code covers all of them, so the rest
// is read through to reach it.
bool EntryStream::drainAuthenticated() {
  if (!authenticated_) return true;
  uint8_t rest[kDrainChunk];
  ssize_t n;
  while ((n = plain_->read(rest, sizeof rest)) > 0) continue;
  return n == 0;
}

ssize_t EntryStream::read(void* buf, size_t size) {
  if (top_ == nullptr) return error_.fail("no entry is open");
  if (error_.failed()) return -1;
  if (done_ || size == 0) return 0;
  // Never more than the record announces: a decoder that runs on is damage.
  const uint64_t room = expectedSize_ - produced_;
  const size_t want = room == 0 ? 1 : static_cast<size_t>(std::min<uint64_t>(size, room));
  auto* out = static_cast<uint8_t*>(buf);
  const ssize_t n = top_->read(out, want);
  if (n < 0) return -1;
  if (n == 0) {
    if (!drainAuthenticated()) return -1;
    if (produced_ != expectedSize_) {
      return error_.fail("the entry holds " + std::to_string(produced_) + " bytes, not the " +
                         std::to_string(expectedSize_) + " its record says");
    }
    if (checkCrc_ && crc_ != expectedCrc_) return error_.fail("CRC-32 mismatch");
    done_ = true;
    return 0;
  }
  if (room == 0) return error_.fail("the entry holds more bytes than its record says");
  for (size_t at = 0; at < static_cast<size_t>(n);) {
    const uInt chunk = static_cast<uInt>(std::min<size_t>(static_cast<size_t>(n) - at, UINT_MAX));
    crc_ = libdeflate_crc32(crc_, out + at, chunk);
    at += chunk;
  }
  produced_ += static_cast<uint64_t>(n);
  return n;
}

void EntryStream::close() {
  top_ = nullptr;
  decoded_.reset();
  plain_.reset();
  stored_.reset();
  local_ = LocalEntry();
  error_ = StreamError();
  failure_ = OpenFailure::kNone;
  expectedSize_ = produced_ = 0;
  expectedCrc_ = crc_ = 0;
  checkCrc_ = true;
  authenticated_ = false;
  done_ = false;
}

}  // namespace velzip
