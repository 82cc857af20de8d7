// velzip list: every entry as a table row, or as one JSON object a line.
#include <cinttypes>
#include <cstdio>
#include <ctime>

#include "archive_open.h"
#include "commands.h"
#include "name_text.h"
#include "paths.h"

namespace velzip_tool {
namespace {

std::string modeString(uint32_t mode) {
  char s[11] = "----------";
  switch (mode & 0xF000) {
    case 0x4000:
      s[0] = 'd';
      break;
    case 0xA000:
      s[0] = 'l';
      break;
    case 0x1000:
      s[0] = 'p';
      break;
    case 0x2000:
      s[0] = 'c';
      break;
    case 0x6000:
      s[0] = 'b';
      break;
    case 0xC000:
      s[0] = 's';
      break;
    default:
      break;
  }
  static const char kRwx[] = "rwxrwxrwx";
  for (int i = 0; i < 9; ++i) {
    if (mode & (0400u >> i)) s[1 + i] = kRwx[i];
  }
  if (mode & 04000) s[3] = (mode & 0100) ? 's' : 'S';
  if (mode & 02000) s[6] = (mode & 0010) ? 's' : 'S';
  if (mode & 01000) s[9] = (mode & 0001) ? 't' : 'T';
  return s;
}

std::string formatted(const char* format, uint64_t value) {
  char buf[32];
  std::snprintf(buf, sizeof buf, format, value);
  return buf;
}

std::string isoTime(int64_t seconds) {
  const time_t t = static_cast<time_t>(seconds);
  struct tm utc;
  char buf[32];
  if (gmtime_r(&t, &utc) == nullptr || strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &utc) == 0)
    return "";
  return buf;
}

// "key": "text", and beside it "key_hex" with the exact bytes when the text
// is not UTF-8 (the string then has U+FFFD in their place).
std::string textField(const char* key, const std::string& text) {
  std::string field = std::string("\"") + key + "\": " + jsonString(text);
  if (!isUtf8(text)) field += std::string(", \"") + key + "_hex\": \"" + hexBytes(text) + "\"";
  return field;
}

std::string jsonLine(const ScannedEntry& e, int format) {
  std::string line = "{" + textField("name", e.name);
  line += ", \"kind\": \"" + std::string(kindName(e.kind)) + "\"";
  line += ", \"size\": " + std::to_string(ArchiveScan::restoredSize(e, format));
  line += ", \"packed\": " + std::to_string(e.packedSize);
  line += ", " + textField("method", e.methodName);
  line += ", " + textField("encryption", e.encryptionName);
  line += std::string(", \"encrypted\": ") + (e.encrypted ? "true" : "false");
  line += ", \"mode\": \"" + formatted("%04" PRIo64, e.mode & 07777) + "\"";
  line += ", \"mtime\": \"" + isoTime(e.modTime) + "\"";
  line += ", \"crc\": \"" + formatted("%08" PRIx64, e.crc) + "\"";
  if (e.kind == EntryKind::kLink && !e.linkTargetHidden) {
    line += ", " + textField("link_target", e.linkTarget);
  } else {
    line += ", \"link_target\": null";
  }
  line += ", \"unreadable\": " + (e.unreadable.empty() ? "null" : jsonString(e.unreadable));
  return line + "}";
}

void printTable(const std::string& shown, const ArchiveScan& scan) {
  std::printf("%s: format %d\n", shown.c_str(), scan.format);
  std::printf("%12s %12s  %-13s %-10s  %-10s  %-5s  %s\n", "Size", "Packed", "Method", "Encryption",
              "Mode", "Kind", "Name");
  uint64_t size = 0, packed = 0;
  for (const auto& e : scan.entries) {
    const uint64_t restored = ArchiveScan::restoredSize(e, scan.format);
    size += restored;
    packed += e.packedSize;
    std::string name = printable(e.name);
    if (e.kind == EntryKind::kLink) {
      name += " -> " + (e.linkTargetHidden ? std::string("(encrypted)") : printable(e.linkTarget));
    }
    const std::string kind = std::string(kindName(e.kind)) + (e.encrypted ? "*" : "");
    std::printf("%12" PRIu64 " %12" PRIu64 "  %-13s %-10s  %-10s  %-5s  %s\n", restored,
                e.packedSize, printable(e.methodName).c_str(), e.encryptionName.c_str(),
                modeString(e.mode).c_str(), kind.c_str(), name.c_str());
  }
  std::printf("%12" PRIu64 " %12" PRIu64 "  %zu entries\n", size, packed, scan.entries.size());
  if (const size_t n = scan.encryptedCount()) {
    std::printf("* %zu encrypted (extract with -p PASSWORD)\n", n);
  }
  for (const ScannedEntry* e : scan.unreadableEntries()) {
    std::printf("cannot read %s: %s\n", printable(e->name).c_str(), e->unreadable.c_str());
  }
}

}  // namespace

int runList(const Options& opt, Display& display) {
  const std::string archive = absolutePath(opt.operands[0]);
  int rc = kExitOk;
  ArchiveScan scan;
  if (!openArchive(opt, display, archive, true, scan, rc)) return rc;
  // The listing is the command's output: -q does not hide it.
  if (opt.json) {
    for (const auto& e : scan.entries) std::printf("%s\n", jsonLine(e, scan.format).c_str());
  } else {
    printTable(opt.operands[0], scan);
  }
  return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

}  // namespace velzip_tool
