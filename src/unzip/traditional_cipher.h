// The traditional PKWARE cipher ("ZipCrypto"). The system zip layer is built
// without decryption, so velzip decrypts such entries itself.
#ifndef VELZIP_UNZIP_TRADITIONAL_CIPHER_H
#define VELZIP_UNZIP_TRADITIONAL_CIPHER_H

#include <memory>

#include "unzip/byte_source.h"

namespace velzip {

struct ZipEntryRecord;

// Reads and checks the 12-byte encryption header from cipher, then yields
// the plain bytes. Null (why in error) when the password fails the header's
// one-byte check, which about one wrong password in 256 passes; the entry's
// CRC then tells.
std::unique_ptr<ByteSource> openTraditionalCipher(ByteSource& cipher, const ZipEntryRecord& rec,
                                                  const char* password, StreamError& error);

}  // namespace velzip

#endif  // VELZIP_UNZIP_TRADITIONAL_CIPHER_H
