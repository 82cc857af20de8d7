// WinZip AES encryption (method 99): a salt and a password verifier before
// the data, AES in counter mode over it, an HMAC-SHA1 code after it.
#ifndef VELZIP_UNZIP_WINZIP_AES_H
#define VELZIP_UNZIP_WINZIP_AES_H

#include <cstdint>
#include <memory>

#include "unzip/byte_source.h"
#include "unzip/zip_record.h"

namespace velzip {

// Bytes the encryption adds around the data: salt, verifier and code.
uint64_t winZipAesOverhead(uint8_t strength);

// Reads the salt and verifier from cipher (storedSize bytes in all), derives
// the keys and checks the password; then yields the plain data and, before
// it reports the end, checks the authentication code over all of it. Null
// (why in error: "wrong password" when the verifier says so) when the entry
// cannot be opened. The strength must be one aesKeyLength knows.
std::unique_ptr<ByteSource> openWinZipAes(ByteSource& cipher, const WinZipAesField& field,
                                          uint64_t storedSize, const char* password,
                                          StreamError& error);

}  // namespace velzip

#endif  // VELZIP_UNZIP_WINZIP_AES_H
