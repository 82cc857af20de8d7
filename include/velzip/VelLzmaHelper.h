// velzip: the format-1 payload codec.
//
// A payload is one LZMA2 dictionary property byte followed by a raw LZMA2
// chunk stream ending with its end byte. There is no magic, length or
// checksum: the restored size travels in the zip entry's local extra field.
#ifndef VELZIP_VELLZMAHELPER_H
#define VELZIP_VELLZMAHELPER_H

#include <cstddef>
#include <memory>
#include <string>

#include "velzip/export.h"

namespace Vel {

// Sequential streams in the classic LZMA SDK shape. p is the stream itself.
// Read sets *size to the bytes read (0 at the end) and returns 0, or non-zero
// on error. Write returns the number of bytes written (0 is an error).
struct ISeqInStream {
  int (*Read)(void* p, void* buf, size_t* size);
};
struct ISeqOutStream {
  size_t (*Write)(void* p, const void* buf, size_t size);
};

constexpr int kVelLzmaPropsSize = 1;

class VELZIP_API VelLzmaHelper {
 public:
  VelLzmaHelper();
  ~VelLzmaHelper();
  VelLzmaHelper(const VelLzmaHelper&) = delete;
  VelLzmaHelper& operator=(const VelLzmaHelper&) = delete;

  // Encodes the file inPath into a new payload file outPath (created or
  // truncated). Streams; memory does not grow with the file size.
  bool encodeFileWithLZMA2(const std::string& inPath, const std::string& outPath);
  // Encodes inStream (ISeqInStream*) into outStream (ISeqOutStream*).
  bool encodeStreamWithLZMA2(void* inStream, void* outStream);

  // Prepares decoding into dictBuffer, which must hold the whole entry.
  // props points to the payload's first byte. Always true; a bad property
  // byte is reported by decodeLZMA2.
  bool initDecoder(char* props, char* dictBuffer, unsigned long dictBufferSize);
  // Decodes one block of the stream (the bytes after the property byte).
  // 0: decodedTotal is the count decoded since initDecoder. Otherwise an
  // LZMA SDK style code (1 data error, 2 memory, 4 unsupported) and
  // decodedTotal is left alone.
  int decodeLZMA2(char* src, unsigned long srcLen, unsigned long dicLimit,
                  unsigned long& decodedTotal);
  // Releases the decoder. Always true; the caller's buffer is untouched.
  bool exitDecoder();

 private:
  struct Decoder;
  std::unique_ptr<Decoder> decoder_;
};

}  // namespace Vel

#endif  // VELZIP_VELLZMAHELPER_H
