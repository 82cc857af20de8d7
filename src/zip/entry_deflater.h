// Deflated zip entries made with one zlib stream that lives as long as the
// writer. The zip layer would set a stream up and tear it down for every
// entry; with a metadata companion after every file, that setup (a quarter
// of a megabyte of fresh pages each time) cost more than compressing the
// files. The zip layer is handed the finished raw data with the same method,
// level and window, so entries come out as it would have written them.
#ifndef VELZIP_ZIP_ENTRY_DEFLATER_H
#define VELZIP_ZIP_ENTRY_DEFLATER_H

#include <minizip/zip.h>
#include <zlib.h>

#include <memory>

namespace velzip {

class EntryDeflater {
 public:
  EntryDeflater() = default;
  ~EntryDeflater();
  EntryDeflater(const EntryDeflater&) = delete;
  EntryDeflater& operator=(const EntryDeflater&) = delete;

  // Starts an entry just opened in raw mode. False when zlib cannot be set up.
  bool begin(int level);
  // True between begin and finish.
  bool active() const { return active_; }
  // Deflates data into the open entry; a zip-layer result code.
  int write(zipFile zip, const void* data, unsigned len);
  // Ends the deflate stream and closes the entry with its size and CRC, even
  // after a failed write, so that the archive stays usable. An entry that is
  // not complete gets a CRC that cannot match what it holds, so that every
  // zip tool reports it damaged instead of taking the start of a file for
  // the whole of it.
  int finish(zipFile zip, bool complete = true);

 private:
  int pump(zipFile zip, int flush);

  z_stream stream_{};
  bool ready_ = false;
  bool active_ = false;
  int level_ = 0;
  uLong crc_ = 0;
  ZPOS64_T size_ = 0;
  std::unique_ptr<Bytef[]> out_;
};

}  // namespace velzip

#endif  // VELZIP_ZIP_ENTRY_DEFLATER_H
