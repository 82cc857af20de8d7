// velzip test: decodes and checks every entry, writing nothing.
#include "archive_open.h"
#include "commands.h"
#include "entry_test.h"
#include "interrupt.h"
#include "name_text.h"
#include "paths.h"

namespace velzip_tool {
namespace {

using Clock = std::chrono::steady_clock;

struct Bad {
  size_t index;
  std::string why;
};

// Every entry's verdict in archive order: those velzip cannot read without
// decoding, the others through the reader.
std::vector<Bad> testArchive(const Options& opt, Display& display, const std::string& archive,
                             const ArchiveScan& scan, int format, size_t& tested) {
  std::vector<EntryToTest> readable;
  uint64_t totalBytes = 0;
  for (size_t i = 0; i < scan.entries.size(); ++i) {
    if (!scan.entries[i].unreadable.empty()) continue;
    const uint64_t bytes = ArchiveScan::restoredSize(scan.entries[i], format);
    readable.push_back({i, bytes});
    totalBytes += bytes;
  }
  display.begin("test", totalBytes, readable.size());
  const char* password = opt.has(kOptPassword) ? opt.password.c_str() : nullptr;
  const auto verdicts = testEntries(archive, format, password, readable, opt.threads,
                                    [&](uint64_t entries, uint64_t bytes) {
                                      display.progress(bytes, entries);
                                      return gInterrupted == 0;
                                    });
  display.end();

  std::vector<Bad> bad;
  tested = 0;
  size_t next = 0;  // in readable
  for (size_t i = 0; i < scan.entries.size(); ++i) {
    const ScannedEntry& e = scan.entries[i];
    if (!e.unreadable.empty()) {
      bad.push_back({i, e.unreadable});
      continue;
    }
    const EntryVerdict& v = verdicts[next++];
    if (!v.tested) continue;
    ++tested;
    if (v.ok) {
      display.detail("  testing: " + printable(e.name) + "  OK");
    } else {
      bad.push_back({i, v.why});
    }
  }
  return bad;
}

}  // namespace

int runTest(const Options& opt, Display& display) {
  const std::string archive = absolutePath(opt.operands[0]);
  int rc = kExitOk;
  ArchiveScan scan;
  if (!openArchive(opt, display, archive, false, scan, rc)) return rc;
  if (refuseWithoutPassword(
          opt, display, scan, [](size_t) { return true; }, rc))
    return rc;
  const int format = readingFormat(opt, display, scan);

  installInterruptHandler();
  muteLibraryErrors();
  const auto start = Clock::now();
  size_t tested = 0;
  const std::vector<Bad> bad = testArchive(opt, display, archive, scan, format, tested);
  const double elapsed = secondsSince(start);
  for (const Bad& b : bad) {
    display.err("velzip: " + opt.operands[0] + ": " + printable(scan.entries[b.index].name) + ": " +
                b.why);
  }
  const size_t total = scan.entries.size();
  if (gInterrupted != 0) {
    return fail(display, "interrupted: " + std::to_string(tested) + " of " + std::to_string(total) +
                             " entries tested");
  }
  if (!bad.empty()) {
    return fail(display, opt.operands[0] + ": " + std::to_string(bad.size()) + " of " +
                             std::to_string(total) + " entries failed the test");
  }
  display.out("tested " + opt.operands[0] + " (format " + std::to_string(format) +
              "): " + std::to_string(total) + " entries OK, " +
              humanBytes(scan.contentBytes(format)) + ", " + seconds(elapsed));
  return kExitOk;
}

}  // namespace velzip_tool
