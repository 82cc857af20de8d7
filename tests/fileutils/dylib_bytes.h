// Builds 32-bit Mach-O library files byte by byte, with embedded property
// lists, for the library-version tests and the fuzzer's seeds.
#ifndef VELZIP_TESTS_FILEUTILS_DYLIB_BYTES_H
#define VELZIP_TESTS_FILEUTILS_DYLIB_BYTES_H

#include <cstdint>
#include <string>
#include <vector>

namespace velzip_test {

constexpr uint32_t kMachO32 = 0xfeedface;
constexpr uint32_t kMachO64 = 0xfeedfacf;
constexpr uint32_t kUniversal = 0xcafebabe;

inline void put32(std::string& bytes, size_t at, uint32_t v) {
  if (bytes.size() < at + 4) bytes.resize(at + 4, '\0');
  for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>((v >> (8 * i)) & 0xff);
}

inline void putName(std::string& bytes, size_t at, const std::string& name) {
  if (bytes.size() < at + 16) bytes.resize(at + 16, '\0');
  for (size_t i = 0; i < 16; ++i) bytes[at + i] = i < name.size() ? name[i] : '\0';
}

struct Section {
  std::string name;
  std::string data;     // placed after the load commands
  int64_t offset = -1;  // -1: where data was placed
  int64_t size = -1;    // -1: data's size
};

class MachOFile {
 public:
  explicit MachOFile(uint32_t magic = kMachO32) : magic_(magic) {}

  // A segment command (cmd 1) with its section records.
  MachOFile& segment(const std::string& name, std::vector<Section> sections) {
    commands_.push_back({1, name, std::move(sections), 0, -1, -1});
    return *this;
  }
  // Any other command: just a header and padding.
  MachOFile& other(uint32_t cmd, uint32_t size) {
    commands_.push_back({cmd, "", {}, size, -1, -1});
    return *this;
  }
  // Overrides the cmdsize of the last command added.
  MachOFile& cmdsize(uint32_t size) {
    commands_.back().cmdsizeOverride = size;
    return *this;
  }
  // Overrides nsects of the last segment added.
  MachOFile& nsects(uint32_t count) {
    commands_.back().nsectsOverride = count;
    return *this;
  }
  MachOFile& ncmds(uint32_t count) {
    ncmds_ = static_cast<int64_t>(count);
    return *this;
  }

  std::string bytes() const {
    std::string out(28, '\0');
    size_t commandsSize = 0;
    for (const Command& c : commands_) commandsSize += naturalSize(c);
    put32(out, 0, magic_);
    put32(out, 4, 7);  // x86
    put32(out, 8, 3);
    put32(out, 12, 6);  // a dynamic library
    put32(out, 16,
          ncmds_ >= 0 ? static_cast<uint32_t>(ncmds_) : static_cast<uint32_t>(commands_.size()));
    put32(out, 20, static_cast<uint32_t>(commandsSize));
    std::string payload;
    size_t payloadStart = 28 + commandsSize;
    for (const Command& c : commands_) {
      const size_t at = out.size();
      out.resize(at + naturalSize(c), '\0');
      put32(out, at, c.cmd);
      put32(out, at + 4,
            c.cmdsizeOverride >= 0 ? static_cast<uint32_t>(c.cmdsizeOverride)
                                   : static_cast<uint32_t>(naturalSize(c)));
      if (c.cmd != 1) continue;
      putName(out, at + 8, c.name);
      put32(out, at + 48,
            c.nsectsOverride >= 0 ? static_cast<uint32_t>(c.nsectsOverride)
                                  : static_cast<uint32_t>(c.sections.size()));
      for (size_t s = 0; s < c.sections.size(); ++s) {
        const Section& sect = c.sections[s];
        const size_t rec = at + 56 + 68 * s;
        putName(out, rec, sect.name);
        putName(out, rec + 16, c.name);
        const size_t placed = payloadStart + payload.size();
        payload += sect.data;
        put32(out, rec + 36,
              sect.size >= 0 ? static_cast<uint32_t>(sect.size)
                             : static_cast<uint32_t>(sect.data.size()));
        put32(
            out, rec + 40,
            sect.offset >= 0 ? static_cast<uint32_t>(sect.offset) : static_cast<uint32_t>(placed));
      }
    }
    return out + payload;
  }

 private:
  struct Command {
    uint32_t cmd;
    std::string name;
    std::vector<Section> sections;
    uint32_t otherSize;
    int64_t cmdsizeOverride;  // -1: the natural size
    int64_t nsectsOverride;
  };
  static size_t naturalSize(const Command& c) {
    if (c.cmd != 1) return c.otherSize;
    return 56 + 68 * c.sections.size();
  }

  uint32_t magic_;
  std::vector<Command> commands_;
  int64_t ncmds_ = -1;
};

inline std::string infoPlistXml(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\">\n" +
         body + "\n</plist>\n";
}

inline std::string versionPlist(const std::string& version) {
  return infoPlistXml(
      "<dict>\n<key>CFBundleIdentifier</key><string>com.example.lib</string>\n"
      "<key>CFBundleVersion</key><string>" +
      version + "</string>\n</dict>");
}

// {key: value} as a binary list (key and value under 256 bytes).
inline std::string binaryPlistOneString(const std::string& key, const std::string& value) {
  auto ascii = [](const std::string& text) {
    std::string out;
    if (text.size() < 15) {
      out += static_cast<char>(0x50 | text.size());
    } else {
      out += '\x5F';
      out += '\x10';  // the length follows as a one-byte int
      out += static_cast<char>(text.size());
    }
    return out + text;
  };
  std::string out = "bplist00";
  const size_t dict = out.size();
  out += "\xD1\x01\x02";  // one pair: key object 1, value object 2
  const size_t keyAt = out.size();
  out += ascii(key);
  const size_t valueAt = out.size();
  out += ascii(value);
  const size_t table = out.size();
  out += static_cast<char>(dict);
  out += static_cast<char>(keyAt);
  out += static_cast<char>(valueAt);
  std::string trailer(32, '\0');
  trailer[6] = 1;   // offset width
  trailer[7] = 1;   // reference width
  trailer[15] = 3;  // objects
  trailer[31] = static_cast<char>(table);
  return out + trailer;
}

inline std::string versionPlistBinary(const std::string& version) {
  return binaryPlistOneString("CFBundleVersion", version);
}

// The usual shape: an identification command, then __TEXT with code and the
// list, then __DATA.
inline std::string dylibWithPlist(const std::string& plist, uint32_t magic = kMachO32) {
  return MachOFile(magic)
      .other(0xd, 24)
      .segment("__TEXT", {{"__text", std::string(16, '\x90')}, {"__info_plist", plist}})
      .segment("__DATA", {{"__data", std::string(8, '\0')}})
      .bytes();
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_FILEUTILS_DYLIB_BYTES_H
