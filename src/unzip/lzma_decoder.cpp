// Method 14: LZMA as zip stores it, a 4-byte header (version, size of the
// properties) and the 5 LZMA properties before a raw LZMA1 stream, which
// liblzma decodes.
#include <cstdlib>
#include <string>

#include "unzip/decoder_makers.h"
#include "unzip/liblzma_source.h"
#include "unzip/zip_record.h"

namespace velzip {
namespace {

constexpr size_t kVersionSize = 2;
constexpr size_t kPropertiesSize = 5;
constexpr size_t kHeaderSize = kVersionSize + 2 + kPropertiesSize;
constexpr uint32_t kSmallestDictionary = 4096;

struct FreeOptions {
  void operator()(void* p) const { std::free(p); }
};

// The properties as liblzma reads them; false when they are invalid.
bool decodeProperties(const uint8_t* properties, lzma_options_lzma& options) {
  lzma_filter filter{LZMA_FILTER_LZMA1, nullptr};
  if (lzma_properties_decode(&filter, nullptr, properties, kPropertiesSize) != LZMA_OK) {
    return false;
  }
  const std::unique_ptr<void, FreeOptions> owned(filter.options);
  // liblzma leaves the extended fields unset; setEnd fills them.
  options = *static_cast<const lzma_options_lzma*>(filter.options);
  return true;
}

// No match reaches further back than the entry's start, so history beyond
// the entry's size is never read: a dictionary the header overstates is cut
// to what the entry can use.
bool fitDictionary(lzma_options_lzma& options, uint64_t size, StreamError& error) {
  const uint64_t usable = size < kSmallestDictionary ? kSmallestDictionary : size;
  if (options.dict_size > usable) options.dict_size = static_cast<uint32_t>(usable);
  if (options.dict_size <= kDecoderMemoryLimit) return true;
  error.fail("the LZMA data needs a dictionary of more than " +
             std::to_string(kDecoderMemoryLimit >> 20) + " MiB");
  return false;
}

// The options the header before the stream gives; false with the reason.
bool readHeader(ByteSource& packed, lzma_options_lzma& options, StreamError& error) {
  uint8_t header[kHeaderSize];
  const ssize_t got = readFully(packed, header, sizeof header);
  if (got < 0) return false;
  if (got != static_cast<ssize_t>(sizeof header)) {
    error.fail("the LZMA header is cut short");
    return false;
  }
  if (le16(header + kVersionSize) != kPropertiesSize ||
      !decodeProperties(header + kHeaderSize - kPropertiesSize, options)) {
    error.fail("damaged LZMA header");
    return false;
  }
  return true;
}

// Flag bit 1 promises an end marker; without it the stream ends after
// exactly the record's size (a marker there is still accepted).
void setEnd(lzma_options_lzma& options, const MethodInput& input) {
  if ((input.flag & kFlagLzmaEndMarker) != 0) {
    options.ext_flags = 0;
    lzma_set_ext_size(options, UINT64_MAX);
  } else {
    options.ext_flags = LZMA_LZMA1EXT_ALLOW_EOPM;
    lzma_set_ext_size(options, input.size);
  }
}

}  // namespace

std::unique_ptr<ByteSource> makeLzmaDecoder(const MethodInput& input, ByteSource& packed,
                                            StreamError& error) {
  lzma_options_lzma options{};
  if (!readHeader(packed, options, error) || !fitDictionary(options, input.size, error)) {
    return nullptr;
  }
  setEnd(options, input);
  const lzma_filter filters[] = {{LZMA_FILTER_LZMA1EXT, &options}, {LZMA_VLI_UNKNOWN, nullptr}};
  auto decoder = std::make_unique<LiblzmaSource>(packed, "LZMA", error);
  if (!decoder->started(lzma_raw_decoder(decoder->stream(), filters))) return nullptr;
  return decoder;
}

}  // namespace velzip
