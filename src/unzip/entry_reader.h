// The current entry's data as the readers consume it. The system zip layer is
// built without decryption and refuses every password, so entries protected
// with the traditional PKWARE cipher are opened raw and decrypted, inflated and
// checked here; all other entries go straight to the zip layer.
#ifndef VELZIP_UNZIP_ENTRY_READER_H
#define VELZIP_UNZIP_ENTRY_READER_H

#include <minizip/unzip.h>
#include <zlib.h>

#include <cstdint>
#include <vector>

namespace velzip {

class EntryReader {
 public:
  EntryReader() = default;
  ~EntryReader() { close(); }
  EntryReader(const EntryReader&) = delete;
  EntryReader& operator=(const EntryReader&) = delete;

  // Opens the archive's current entry; closes a previous one first. 0, or the
  // zip layer's negative code: UNZ_PARAMERROR for an encrypted entry without
  // password, a wrong password, or an encryption other than the traditional one.
  int open(unzFile zip, const char* password);
  // Like unzReadCurrentFile: a byte count, 0 at the end, a negative code on
  // error. For decrypted entries a CRC or size mismatch turns the end into
  // UNZ_CRCERROR.
  int read(void* buf, unsigned size);
  // Like unzCloseCurrentFile. UNZ_PARAMERROR when nothing is open. Must run
  // before the archive handle is closed.
  int close();

  bool isOpen() const { return zip_ != nullptr; }
  bool decrypting() const { return decrypting_; }

 private:
  int openEncrypted(unzFile zip, const unz_file_info64& info, const char* password);
  int readStored(unsigned char* out, unsigned size);
  int readDeflated(unsigned char* out, unsigned size);
  int fillInput();
  int finish();
  void decrypt(unsigned char* data, unsigned size);

  unzFile zip_ = nullptr;
  bool decrypting_ = false;
  bool deflated_ = false;
  bool inflating_ = false;  // inflateInit2 succeeded
  bool streamEnded_ = false;
  int error_ = 0;  // sticky once a read failed
  unsigned long keys_[3] = {};
  uint64_t cipherLeft_ = 0;  // encrypted bytes not yet taken from the zip layer
  uint64_t expectedSize_ = 0;
  uint64_t produced_ = 0;
  unsigned long expectedCrc_ = 0;
  unsigned long crc_ = 0;
  z_stream stream_ = {};
  std::vector<unsigned char> input_;
};

}  // namespace velzip

#endif  // VELZIP_UNZIP_ENTRY_READER_H
