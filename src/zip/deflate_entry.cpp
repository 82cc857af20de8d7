// Format 0: the source is deflated as it is read, so entries need no
// temporary file and the progress reports count source bytes. Entries say
// they were made on Unix, and non-ASCII names are marked as UTF-8, so that
// other zip tools restore modes, links and names.
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

// Deflated while it is read into the entry.
bool readWhileWriting(EntrySource& source, WriterScratch& /*scratch*/, EntryContent& out) {
  out.source = &source;
  out.zip64 = source.size() >= kZip64Threshold;
  return true;
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
    nullptr,           // logComponent: never logs
    8,                 // method: deflate
    -1,                // level: zlib's default
    1,                 // extraNameSkip: one character beyond the base folder
    false,             // subFolderEntries
    true,              // companionAfterEachFile
    true,              // localTimestamp
    readWhileWriting,  // prepareContent
    kMadeOnUnix,       // versionMadeBy
    utf8NameFlag,      // nameFlags
};

}  // namespace

const WriterFormat& deflateWriterFormat() {
  return kDeflateFormat;
}

}  // namespace velzip
