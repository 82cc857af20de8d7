#include "zip/entry_deflater.h"

namespace velzip {
namespace {

constexpr unsigned kOutSize = 65536;
constexpr int kMemLevel = 8;  // the zip layer's own choice

}  // namespace

EntryDeflater::~EntryDeflater() {
  if (ready_) deflateEnd(&stream_);
}

bool EntryDeflater::begin(int level) {
  if (ready_ && level != level_) {
    deflateEnd(&stream_);
    ready_ = false;
  }
  if (!ready_) {
    stream_ = z_stream{};
    if (deflateInit2(&stream_, level, Z_DEFLATED, -MAX_WBITS, kMemLevel, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
      return false;
    }
    ready_ = true;
    level_ = level;
  } else if (deflateReset(&stream_) != Z_OK) {
    return false;
  }
  if (!out_) out_ = std::make_unique<Bytef[]>(kOutSize);
  crc_ = crc32(0, nullptr, 0);
  size_ = 0;
  active_ = true;
  return true;
}

int EntryDeflater::pump(zipFile zip, int flush) {
  for (;;) {
    stream_.next_out = out_.get();
    stream_.avail_out = kOutSize;
    const int rc = deflate(&stream_, flush);
    if (rc != Z_OK && rc != Z_STREAM_END && rc != Z_BUF_ERROR) return ZIP_INTERNALERROR;
    const unsigned produced = kOutSize - stream_.avail_out;
    if (produced > 0) {
      const int err = zipWriteInFileInZip(zip, out_.get(), produced);
      if (err != ZIP_OK) return err;
    }
    if (flush == Z_FINISH) {
      if (rc == Z_STREAM_END) return ZIP_OK;
      if (rc == Z_BUF_ERROR) return ZIP_INTERNALERROR;  // no progress with room to spare
    } else if (stream_.avail_in == 0 && stream_.avail_out != 0) {
      return ZIP_OK;
    }
  }
}

int EntryDeflater::write(zipFile zip, const void* data, unsigned len) {
  if (!active_) return ZIP_PARAMERROR;
  crc_ = crc32(crc_, static_cast<const Bytef*>(data), len);
  size_ += len;
  stream_.next_in = static_cast<Bytef*>(const_cast<void*>(data));
  stream_.avail_in = len;
  return pump(zip, Z_NO_FLUSH);
}

int EntryDeflater::finish(zipFile zip, bool complete) {
  if (!active_) return ZIP_PARAMERROR;
  active_ = false;
  stream_.next_in = nullptr;
  stream_.avail_in = 0;
  const int err = pump(zip, Z_FINISH);
  const int closed = zipCloseFileInZipRaw64(zip, size_, complete ? crc_ : crc_ ^ 0xFFFFFFFFu);
  return err != ZIP_OK ? err : closed;
}

}  // namespace velzip
