// One maker per compression method that a library decodes, each in its own
// file; makeMethodDecoder picks among them. A maker gives null with the
// reason in error when the decoder cannot start.
#ifndef VELZIP_UNZIP_DECODER_MAKERS_H
#define VELZIP_UNZIP_DECODER_MAKERS_H

#include <cstdint>
#include <memory>

#include "unzip/byte_source.h"
#include "unzip/method_decoders.h"

namespace velzip {

// The most memory a decoder may ask for: a dictionary or window beyond it
// fails the entry rather than the host.
constexpr uint64_t kDecoderMemoryLimit = uint64_t{1} << 30;

std::unique_ptr<ByteSource> makeBzip2Decoder(ByteSource& packed, StreamError& error);
// Reads the zip LZMA header (version, properties size, properties) first.
std::unique_ptr<ByteSource> makeLzmaDecoder(const MethodInput& input, ByteSource& packed,
                                            StreamError& error);
std::unique_ptr<ByteSource> makeXzDecoder(ByteSource& packed, StreamError& error);
std::unique_ptr<ByteSource> makeZstdDecoder(ByteSource& packed, StreamError& error);

}  // namespace velzip

#endif  // VELZIP_UNZIP_DECODER_MAKERS_H
