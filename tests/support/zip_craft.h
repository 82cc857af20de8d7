// Zip archives made byte by byte, for what no peer tool writes on request:
// foreign hosts and attributes, zip64 fields on small entries, odd methods,
// extra fields, broken counts.
#ifndef VELZIP_TESTS_SUPPORT_ZIP_CRAFT_H
#define VELZIP_TESTS_SUPPORT_ZIP_CRAFT_H

#include <zlib.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace velzip_test {

inline void put16(std::string& s, uint32_t v) {
  s += static_cast<char>(v & 0xFF);
  s += static_cast<char>((v >> 8) & 0xFF);
}
inline void put32(std::string& s, uint32_t v) {
  put16(s, v & 0xFFFF);
  put16(s, v >> 16);
}
inline void put64(std::string& s, uint64_t v) {
  put32(s, static_cast<uint32_t>(v));
  put32(s, static_cast<uint32_t>(v >> 32));
}
// One extra-field block.
inline std::string extraBlock(uint16_t id, const std::string& data) {
  std::string s;
  put16(s, id);
  put16(s, static_cast<uint32_t>(data.size()));
  return s + data;
}
// An extended-timestamp block holding a modification time.
inline std::string timestampBlock(uint32_t mtime) {
  std::string d(1, '\1');
  put32(d, mtime);
  return extraBlock(0x5455, d);
}
inline uint32_t crcOfBytes(const std::string& data) {
  return static_cast<uint32_t>(
      crc32(0L, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
}
// Raw deflate of data, as zip method 8 stores it.
inline std::string rawDeflate(const std::string& data) {
  z_stream z{};
  deflateInit2(&z, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&z, data.size()), '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, Z_FINISH);
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

struct CraftEntry {
  std::string name;
  std::string stored;  // the bytes as they sit in the archive
  uint32_t crc = 0;    // of the restored content
  uint64_t size = 0;   // restored size
  uint16_t method = 0;
  uint16_t flag = 0;
  uint16_t madeBy = 3 << 8 | 20;  // Unix
  uint32_t external = 0100644u << 16;
  uint32_t dosDate = 0x52915a00;  // 2021-04-17 11:16:00
  std::string localExtra, centralExtra;
  bool zip64Central = false;  // sizes and offset only in a zip64 field
};

// A stored entry of content.
inline CraftEntry storedEntry(const std::string& name, const std::string& content) {
  CraftEntry e;
  e.name = name;
  e.stored = content;
  e.crc = crcOfBytes(content);
  e.size = content.size();
  return e;
}
// A deflated entry of content.
inline CraftEntry deflatedEntry(const std::string& name, const std::string& content) {
  CraftEntry e = storedEntry(name, content);
  e.stored = rawDeflate(content);
  e.method = 8;
  return e;
}

// The archive's bytes. countOverride replaces the entry count of the end
// record when not negative.
inline std::string craftZip(const std::vector<CraftEntry>& entries, long countOverride = -1) {
  std::string out, central;
  for (const CraftEntry& e : entries) {
    const uint64_t offset = out.size();
    out += "PK\3\4";
    put16(out, 20);
    put16(out, e.flag);
    put16(out, e.method);
    put32(out, e.dosDate);
    put32(out, e.crc);
    put32(out, static_cast<uint32_t>(e.stored.size()));
    put32(out, static_cast<uint32_t>(e.size));
    put16(out, static_cast<uint32_t>(e.name.size()));
    put16(out, static_cast<uint32_t>(e.localExtra.size()));
    out += e.name + e.localExtra + e.stored;

    std::string extra = e.centralExtra;
    if (e.zip64Central) {
      std::string z;
      put64(z, e.size);
      put64(z, e.stored.size());
      put64(z, offset);
      extra = extraBlock(0x0001, z) + extra;
    }
    central += "PK\1\2";
    put16(central, e.madeBy);
    put16(central, e.zip64Central ? 45 : 20);
    put16(central, e.flag);
    put16(central, e.method);
    put32(central, e.dosDate);
    put32(central, e.crc);
    put32(central, e.zip64Central ? 0xFFFFFFFFu : static_cast<uint32_t>(e.stored.size()));
    put32(central, e.zip64Central ? 0xFFFFFFFFu : static_cast<uint32_t>(e.size));
    put16(central, static_cast<uint32_t>(e.name.size()));
    put16(central, static_cast<uint32_t>(extra.size()));
    put16(central, 0);  // comment
    put16(central, 0);  // disk
    put16(central, 0);  // internal attributes
    put32(central, e.external);
    put32(central, e.zip64Central ? 0xFFFFFFFFu : static_cast<uint32_t>(offset));
    central += e.name + extra;
  }
  const uint64_t dirOffset = out.size();
  out += central;
  const uint32_t count = countOverride >= 0 ? static_cast<uint32_t>(countOverride)
                                            : static_cast<uint32_t>(entries.size());
  out += "PK\5\6";
  put16(out, 0);
  put16(out, 0);
  put16(out, count);
  put16(out, count);
  put32(out, static_cast<uint32_t>(central.size()));
  put32(out, static_cast<uint32_t>(dirOffset));
  put16(out, 0);
  return out;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_ZIP_CRAFT_H
