// Builds 32-bit Mach-O library files byte by byte, with embedded property
// lists, for the library-version tests and the fuzzer's seeds.
#ifndef VELZIP_TESTS_FILEUTILS_DYLIB_BYTES_H
#define VELZIP_TESTS_FILEUTILS_DYLIB_BYTES_H

#include <cstdint>
#include <string>
#include <vector>

namespace velzip_test {

constexpr uint32_t kMachO32 = 0xfeedface, kMachO64 = 0xfeedfacf, kUniversal = 0xcafebabe;

inline void put32(std::string& bytes, size_t at, uint64_t v) {
  if (bytes.size() < at + 4) bytes.resize(at + 4, '\0');
  for (size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(v >> (8 * i));
}

// data is placed after the load commands; -1: where it was placed, its size.
struct Section {
  std::string name, data;
  int64_t offset = -1, size = -1;
};

class MachOFile {
 public:
  explicit MachOFile(uint32_t magic = kMachO32) : magic_(magic) {}
  // A segment command (cmd 1) with its section records (names under 16 bytes).
  MachOFile& segment(const std::string& name, std::vector<Section> sections) {
    const uint32_t size = 56 + 68 * static_cast<uint32_t>(sections.size());
    return commands_.push_back({1, size, name, std::move(sections)}), *this;
  }
  // Any other command: a header and padding.
  MachOFile& other(uint32_t cmd, uint32_t n) {
    return commands_.push_back({cmd, n, "", {}}), *this;
  }
  // Lies: the last command's cmdsize, the last segment's nsects, the header's ncmds.
  MachOFile& cmdsize(uint32_t v) { return commands_.back().cmdsize = v, *this; }
  MachOFile& nsects(uint32_t v) { return commands_.back().nsects = v, *this; }
  MachOFile& ncmds(uint32_t v) { return ncmds_ = v, *this; }

  std::string bytes() const {
    uint64_t total = 0;
    for (const Command& c : commands_) total += c.size;
    // magic, x86, its subtype, a dynamic library, ncmds, sizeofcmds, flags
    std::string out, payload;
    for (int64_t v : {int64_t{magic_}, int64_t{7}, int64_t{3}, int64_t{6},
                      ncmds_ >= 0 ? ncmds_ : int64_t(commands_.size()), int64_t(total), int64_t{0}})
      put32(out, out.size(), v);
    for (const Command& c : commands_) {
      const size_t at = out.size();
      put32(out, at, c.cmd);
      put32(out, at + 4, c.cmdsize >= 0 ? c.cmdsize : c.size);
      out.resize(at + c.size, '\0');
      if (c.cmd != 1) continue;
      out.replace(at + 8, c.name.size(), c.name);
      put32(out, at + 48, c.nsects >= 0 ? c.nsects : int64_t(c.sections.size()));
      for (size_t s = 0; s < c.sections.size(); ++s) {
        const Section& sect = c.sections[s];
        const size_t rec = at + 56 + 68 * s;
        out.replace(rec, sect.name.size(), sect.name);
        out.replace(rec + 16, c.name.size(), c.name);
        put32(out, rec + 36, sect.size >= 0 ? sect.size : int64_t(sect.data.size()));
        put32(out, rec + 40, sect.offset >= 0 ? sect.offset : int64_t(28 + total + payload.size()));
        payload += sect.data;
      }
    }
    return out + payload;
  }

 private:
  struct Command {
    uint32_t cmd, size;
    std::string name;
    std::vector<Section> sections;
    int64_t cmdsize = -1, nsects = -1;  // -1: the natural values
  };
  uint32_t magic_;
  std::vector<Command> commands_;
  int64_t ncmds_ = -1;
};

inline std::string infoPlistXml(const std::string& body) {
  return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + body + "</plist>";
}

inline std::string versionPlist(const std::string& version) {
  return infoPlistXml("<dict><key>CFBundleVersion</key><string>" + version + "</string></dict>");
}

// {key: value} as a binary list (key and value under 256 bytes): a dictionary
// of key object 1 and value object 2, strings with a one-byte length.
inline std::string binaryPlistOneString(const std::string& key, const std::string& value) {
  const std::string out = "bplist00\xD1\x01\x02\x5F\x10" + std::string(1, char(key.size())) + key +
                          "\x5F\x10" + char(value.size()) + value;
  std::string trailer(32, '\0');
  trailer[6] = trailer[7] = 1;  // offset and reference widths
  trailer[15] = 3;              // objects
  trailer[31] = static_cast<char>(out.size());
  return out + std::string("\x08\x0B", 2) + char(14 + key.size()) + trailer;
}

inline std::string versionPlistBinary(const std::string& version) {
  return binaryPlistOneString("CFBundleVersion", version);
}

// The usual shape: an identification command, __TEXT with code and the list, __DATA.
inline std::string dylibWithPlist(const std::string& plist, uint32_t magic = kMachO32) {
  return MachOFile(magic)
      .other(0xd, 24)
      .segment("__TEXT", {{"__text", std::string(16, '\x90')}, {"__info_plist", plist}})
      .segment("__DATA", {{"__data", std::string(8, '\0')}})
      .bytes();
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_FILEUTILS_DYLIB_BYTES_H
