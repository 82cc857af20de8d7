// Decoders of the zip compression methods velzip reads, one place for both
// readers. Each decodes the (decrypted) stored bytes into the entry's bytes
// as a pull stream; the CRC and size checks sit above them.
#ifndef VELZIP_UNZIP_METHOD_DECODERS_H
#define VELZIP_UNZIP_METHOD_DECODERS_H

#include <cstdint>
#include <memory>

#include "unzip/byte_source.h"

namespace velzip {

// What a decoder may know of its entry before it starts.
struct MethodInput {
  unsigned method = 0;
  uint64_t packedSize = 0;  // bytes in, after decryption headers
  uint64_t size = 0;        // bytes out, as the record says
  uint16_t flag = 0;        // general-purpose flags (LZMA's end marker)
};

// A decoder for the method over packed, or null with the reason in error
// ("unsupported compression method 9 (deflate64)") when velzip cannot decode
// it or the method's own header is damaged.
std::unique_ptr<ByteSource> makeMethodDecoder(const MethodInput& input, ByteSource& packed,
                                              StreamError& error);

// True when makeMethodDecoder would give a decoder for method.
bool methodSupported(unsigned method);

}  // namespace velzip

#endif  // VELZIP_UNZIP_METHOD_DECODERS_H
