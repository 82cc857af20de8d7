// Method 95: an xz stream, decoded by liblzma, which also checks the
// stream's own integrity check.
#include "unzip/decoder_makers.h"
#include "unzip/liblzma_source.h"

namespace velzip {

std::unique_ptr<ByteSource> makeXzDecoder(ByteSource& packed, StreamError& error) {
  auto decoder = std::make_unique<LiblzmaSource>(packed, "xz", error);
  if (!decoder->started(lzma_stream_decoder(decoder->stream(), kDecoderMemoryLimit, 0))) {
    return nullptr;
  }
  return decoder;
}

}  // namespace velzip
