#include "unzip/traditional_cipher.h"

#include <zlib.h>

#include <algorithm>
#include <array>

#include "unzip/zip_record.h"

// The key schedule of the traditional cipher; its functions are static, so
// this unit gets its own copy.
#include <minizip/crypt.h>

namespace velzip {
namespace {

constexpr size_t kHeaderSize = 12;

// The key schedule indexes its table as unsigned long, which is wider than
// zlib's z_crc_t here: handing it zlib's table directly would read garbage.
const unsigned long* cryptTable() {
  static const std::array<unsigned long, 256> table = [] {
    std::array<unsigned long, 256> t{};
    const z_crc_t* crc = get_crc_table();
    for (size_t i = 0; i < t.size(); ++i) t[i] = crc[i];
    return t;
  }();
  return table.data();
}

class TraditionalCipher : public ByteSource {
 public:
  TraditionalCipher(ByteSource& cipher, const char* password) : cipher_(cipher) {
    init_keys(password, keys_, cryptTable());
  }
  ~TraditionalCipher() override { std::fill(std::begin(keys_), std::end(keys_), 0ul); }

  ssize_t read(uint8_t* buf, size_t size) override {
    const ssize_t n = cipher_.read(buf, size);
    if (n > 0) decrypt(buf, static_cast<size_t>(n));
    return n;
  }

  void decrypt(uint8_t* data, size_t size) {
    const unsigned long* table = cryptTable();
    for (size_t i = 0; i < size; ++i) {
      const int plain = data[i] ^ decrypt_byte(keys_, table);
      update_keys(keys_, table, plain);
      data[i] = static_cast<uint8_t>(plain);
    }
  }

 private:
  ByteSource& cipher_;
  unsigned long keys_[3] = {};
};

}  // namespace

std::unique_ptr<ByteSource> openTraditionalCipher(ByteSource& cipher, const ZipEntryRecord& rec,
                                                  const char* password, StreamError& error) {
  auto source = std::make_unique<TraditionalCipher>(cipher, password);
  uint8_t header[kHeaderSize];
  const ssize_t got = readFully(cipher, header, sizeof header);
  if (got < 0) return nullptr;
  if (got != static_cast<ssize_t>(sizeof header)) {
    error.fail("the encryption header is cut short");
    return nullptr;
  }
  source->decrypt(header, sizeof header);
  // Writers that stream (data descriptor) do not know the CRC up front and
  // check against the modification time instead.
  const unsigned check =
      (rec.flag & kFlagDescriptor) != 0 ? (rec.dosDate >> 8) & 0xFF : (rec.crc >> 24) & 0xFF;
  if (header[kHeaderSize - 1] != check) {
    error.fail("wrong password");
    return nullptr;
  }
  return source;
}

}  // namespace velzip
