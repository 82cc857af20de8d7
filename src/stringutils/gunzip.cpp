#include <zlib.h>

#include <algorithm>
#include <climits>
#include <new>
#include <string>

#include "velzip/StringUtils.h"

namespace StringUtils {

namespace {

class Inflater {
 public:
  Inflater() { ok_ = inflateInit2(&stream_, 15 + 16) == Z_OK; }  // gzip wrapper only
  ~Inflater() {
    if (ok_) inflateEnd(&stream_);
  }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  bool ok() const { return ok_; }
  z_stream& stream() { return stream_; }
  bool end() {
    ok_ = false;
    return inflateEnd(&stream_) == Z_OK;
  }

 private:
  z_stream stream_{};
  bool ok_ = false;
};

}  // namespace

// Inflate errors (corrupt or truncated data) are not failures: out keeps what
// came out before them.
bool GunzipString(const std::string& compressed, std::string& out) {
  if (compressed.empty()) {
    out = compressed;
    return true;
  }
  out.clear();
  try {
    // The output grows by half the input at a time; std::string's own
    // geometric capacity keeps the copying linear.
    std::string buffer(compressed.size(), '\0');
    const size_t growth = std::max<size_t>(compressed.size() / 2, 1);

    Inflater inflater;
    if (!inflater.ok()) return false;
    z_stream& zs = inflater.stream();
    size_t consumed = 0;  // input handed to zlib so far
    size_t total = 0;     // output so far
    for (;;) {
      if (total >= buffer.size()) buffer.resize(buffer.size() + growth, '\0');
      // zlib counts in 32 bits; larger strings are fed in slices.
      if (zs.avail_in == 0 && consumed < compressed.size()) {
        const size_t slice = std::min<size_t>(compressed.size() - consumed, UINT_MAX);
        zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data() + consumed));
        zs.avail_in = static_cast<uInt>(slice);
        consumed += slice;
      }
      const size_t room = std::min<size_t>(buffer.size() - total, UINT_MAX);
      zs.next_out = reinterpret_cast<Bytef*>(&buffer[total]);
      zs.avail_out = static_cast<uInt>(room);
      const int rc = inflate(&zs, Z_SYNC_FLUSH);
      total += room - zs.avail_out;
      if (rc != Z_OK) break;
    }
    if (!inflater.end()) return false;
    out.assign(buffer, 0, total);
    return true;
  } catch (const std::bad_alloc&) {
    // Output too large to hold.
    out.clear();
    return false;
  }
}

}  // namespace StringUtils
