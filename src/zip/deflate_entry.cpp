// Format 0: a file that fits in memory is deflated whole by libdeflate
// before its entry opens; a larger one is deflated by zlib as it is read.
// Either way the progress reports count source bytes. Entries say they were
// made on Unix, and non-ASCII names are marked as UTF-8, so that other zip
// tools restore modes, links and names.
#include <utf8proc.h>

#include <cstdint>
#include <cstring>

#include "zip/zip_writer.h"

namespace velzip {
namespace {

// Deflate can grow incompressible data by a few bytes per 16 KiB block; keep
// well clear of the 32-bit limit so that the entry's sizes always fit.
constexpr uint64_t kZip64Threshold = 0xFFFFFFFFu - (64u << 20);
constexpr unsigned long kMadeOnUnix = (3u << 8) | 20u;  // zip 2.0
constexpr unsigned long kUtf8NameFlag = 0x800;

constexpr int kDeflate = 8;
constexpr int kStored = 0;
constexpr int kUsualLevel = 6;  // zlib's default

bool deflateContent(EntrySource& source, ContentTools& tools, EntryContent& out) {
  const int level = tools.level < 0 ? kUsualLevel : tools.level;
  out.method = level == 0 ? kStored : kDeflate;
  out.zip64 = source.size() >= kZip64Threshold;
  if (level == 0 || source.size() > WholeDeflater::kMaxSize) {
    out.kind = EntryContent::Kind::kStreamed;
    out.source = &source;
    return true;
  }
  out.kind = EntryContent::Kind::kDeflated;
  if (!tools.deflater.deflate(source, level, out.deflated, out.crc, out.sourceSize)) return false;
  out.zip64 = out.sourceSize >= kZip64Threshold;
  return true;
}

// The file and its deflated bytes, both in memory; a streamed file needs
// only the writer's own buffers.
uint64_t deflateMemory(uint64_t size, int level) {
  if (level == 0 || size > WholeDeflater::kMaxSize) return 1u << 20;
  return 2 * size + (1u << 20);
}

// Plain ASCII needs no mark; bytes that are not UTF-8 must not get one.
unsigned long utf8NameFlag(const char* storedName) {
  const auto* p = reinterpret_cast<const utf8proc_uint8_t*>(storedName);
  utf8proc_ssize_t left = static_cast<utf8proc_ssize_t>(std::strlen(storedName));
  bool ascii = true;
  while (left > 0) {
    utf8proc_int32_t cp;
    const utf8proc_ssize_t n = utf8proc_iterate(p, left, &cp);
    if (n <= 0) return 0;
    ascii = ascii && cp < 0x80;
    p += n;
    left -= n;
  }
  return ascii ? 0 : kUtf8NameFlag;
}

constexpr WriterFormat kDeflateFormat = {
    nullptr,         // logComponent: never logs
    8,               // method: deflate
    -1,              // level: zlib's default
    1,               // extraNameSkip: one character beyond the base folder
    false,           // subFolderEntries
    true,            // companionAfterEachFile
    true,            // localTimestamp
    deflateContent,  // prepareContent
    deflateMemory,   // memoryFor
    kMadeOnUnix,     // versionMadeBy
    utf8NameFlag,    // nameFlags
};

}  // namespace

const WriterFormat& deflateWriterFormat() {
  return kDeflateFormat;
}

}  // namespace velzip
