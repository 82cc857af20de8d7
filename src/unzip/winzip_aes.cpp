#include "unzip/winzip_aes.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "unzip/data_layers.h"

namespace velzip {
namespace {

constexpr size_t kBlock = 16;
constexpr size_t kKeystreamBlocks = 256;
constexpr size_t kVerifierSize = 2;
constexpr size_t kCodeSize = 10;
constexpr size_t kMaxKey = 32;
constexpr size_t kSha1Size = 20;
constexpr int kIterations = 1000;

struct FreeCipher {
  void operator()(EVP_CIPHER_CTX* c) const { EVP_CIPHER_CTX_free(c); }
};
struct FreeMac {
  void operator()(EVP_MAC* m) const { EVP_MAC_free(m); }
};
struct FreeMacContext {
  void operator()(EVP_MAC_CTX* c) const { EVP_MAC_CTX_free(c); }
};

size_t saltLength(uint8_t strength) {
  return aesKeyLength(strength) / 2;
}

const EVP_CIPHER* blockCipher(size_t keyLength) {
  switch (keyLength) {
    case 16:
      return EVP_aes_128_ecb();
    case 24:
      return EVP_aes_192_ecb();
    default:
      return EVP_aes_256_ecb();
  }
}

// Key material derived from the password: AES key, HMAC key, verifier.
struct DerivedKeys {
  std::array<uint8_t, 2 * kMaxKey + kVerifierSize> bytes{};
  size_t keyLength = 0;
  ~DerivedKeys() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
  const uint8_t* aesKey() const { return bytes.data(); }
  const uint8_t* macKey() const { return bytes.data() + keyLength; }
  const uint8_t* verifier() const { return bytes.data() + 2 * keyLength; }
};

bool deriveKeys(const char* password, const uint8_t* salt, size_t saltSize, DerivedKeys& keys) {
  const int length = static_cast<int>(2 * keys.keyLength + kVerifierSize);
  return PKCS5_PBKDF2_HMAC(password, static_cast<int>(std::strlen(password)), salt,
                           static_cast<int>(saltSize), kIterations, EVP_sha1(), length,
                           keys.bytes.data()) == 1;
}

class WinZipAesSource : public ByteSource {
 public:
  WinZipAesSource(ByteSource& cipher, uint64_t dataLength, StreamError& error)
      : cipher_(cipher), left_(dataLength), error_(error) {}
  ~WinZipAesSource() override { OPENSSL_cleanse(keystream_.data(), keystream_.size()); }

  bool start(const DerivedKeys& keys) {
    aes_.reset(EVP_CIPHER_CTX_new());
    mac_.reset(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
    macContext_.reset(mac_ ? EVP_MAC_CTX_new(mac_.get()) : nullptr);
    if (!aes_ || !macContext_) return false;
    char digest[] = "SHA1";
    const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                                 OSSL_PARAM_construct_end()};
    return EVP_EncryptInit_ex(aes_.get(), blockCipher(keys.keyLength), nullptr, keys.aesKey(),
                              nullptr) == 1 &&
           EVP_CIPHER_CTX_set_padding(aes_.get(), 0) == 1 &&
           EVP_MAC_init(macContext_.get(), keys.macKey(), keys.keyLength, params) == 1;
  }

  ssize_t read(uint8_t* buf, size_t size) override {
    if (ended_) return 0;
    if (left_ == 0) return checkCode();
    const size_t want = static_cast<size_t>(std::min<uint64_t>(size, left_));
    const ssize_t n = cipher_.read(buf, want);
    if (n < 0) return -1;
    if (n == 0) return error_.fail("the AES data is cut short");
    const size_t got = static_cast<size_t>(n);
    // The code covers the bytes as stored.
    if (EVP_MAC_update(macContext_.get(), buf, got) != 1 || !decrypt(buf, got)) {
      return error_.fail("OpenSSL failed while decrypting");
    }
    left_ -= got;
    return n;
  }

 private:
  bool decrypt(uint8_t* data, size_t size) {
    for (size_t i = 0; i < size; ++i) {
      if (used_ == keystream_.size() && !refillKeystream()) return false;
      data[i] ^= keystream_[used_++];
    }
    return true;
  }

  // Counter mode with WinZip's counter: little-endian, starting at 1. The
  // counter blocks are encrypted in place into the keystream.
  bool refillKeystream() {
    for (size_t b = 0; b < kKeystreamBlocks; ++b) {
      for (size_t i = 0; i < kBlock && ++counter_[i] == 0; ++i) continue;
      std::memcpy(keystream_.data() + b * kBlock, counter_.data(), kBlock);
    }
    int out = 0;
    if (EVP_EncryptUpdate(aes_.get(), keystream_.data(), &out, keystream_.data(),
                          static_cast<int>(keystream_.size())) != 1 ||
        out != static_cast<int>(keystream_.size())) {
      return false;
    }
    used_ = 0;
    return true;
  }

  ssize_t checkCode() {
    uint8_t stored[kCodeSize];
    const ssize_t got = readFully(cipher_, stored, sizeof stored);
    if (got < 0) return -1;
    if (got != static_cast<ssize_t>(sizeof stored)) {
      return error_.fail("the AES authentication code is cut short");
    }
    uint8_t computed[kSha1Size];
    size_t length = 0;
    if (EVP_MAC_final(macContext_.get(), computed, &length, sizeof computed) != 1 ||
        length < kCodeSize) {
      return error_.fail("OpenSSL failed while authenticating");
    }
    if (CRYPTO_memcmp(stored, computed, kCodeSize) != 0) {
      return error_.fail("the AES authentication code does not match: the data is damaged");
    }
    ended_ = true;
    return 0;
  }

  ByteSource& cipher_;
  uint64_t left_;
  StreamError& error_;
  std::unique_ptr<EVP_CIPHER_CTX, FreeCipher> aes_;
  std::unique_ptr<EVP_MAC, FreeMac> mac_;
  std::unique_ptr<EVP_MAC_CTX, FreeMacContext> macContext_;
  std::array<uint8_t, kBlock> counter_{};
  std::array<uint8_t, kBlock * kKeystreamBlocks> keystream_{};
  size_t used_ = kBlock * kKeystreamBlocks;
  bool ended_ = false;
};

// Reads the salt and the verifier and derives keys from the password;
// false when the verifier refuses it or the bytes are not there.
bool checkPassword(ByteSource& cipher, const char* password, DerivedKeys& keys,
                   StreamError& error) {
  uint8_t head[kMaxKey / 2 + kVerifierSize];
  const size_t saltSize = keys.keyLength / 2;
  const ssize_t got = readFully(cipher, head, saltSize + kVerifierSize);
  if (got != static_cast<ssize_t>(saltSize + kVerifierSize)) return false;
  if (!deriveKeys(password, head, saltSize, keys)) {
    error.fail("OpenSSL failed to derive the AES keys");
    return false;
  }
  if (CRYPTO_memcmp(keys.verifier(), head + saltSize, kVerifierSize) != 0) {
    error.fail("wrong password");
    return false;
  }
  return true;
}

}  // namespace

uint64_t winZipAesOverhead(uint8_t strength) {
  return saltLength(strength) + kVerifierSize + kCodeSize;
}

std::unique_ptr<ByteSource> openWinZipAes(ByteSource& cipher, const WinZipAesField& field,
                                          uint64_t storedSize, const char* password,
                                          StreamError& error) {
  DerivedKeys keys;
  keys.keyLength = aesKeyLength(field.strength);
  if (storedSize < winZipAesOverhead(field.strength) ||
      !checkPassword(cipher, password, keys, error)) {
    if (!error.failed()) error.fail("the AES data is cut short");
    return nullptr;
  }
  auto source = std::make_unique<WinZipAesSource>(
      cipher, storedSize - winZipAesOverhead(field.strength), error);
  if (!source->start(keys)) {
    error.fail("OpenSSL failed to set up AES");
    return nullptr;
  }
  return source;
}

}  // namespace velzip
