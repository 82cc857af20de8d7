#include "display.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

#include "options.h"
#include "velzip/velzip.h"

namespace velzip_tool {
namespace {

using Clock = std::chrono::steady_clock;

// Short jobs finish before a bar would be worth looking at.
constexpr auto kFirstDraw = std::chrono::milliseconds(250);
constexpr auto kRedraw = std::chrono::milliseconds(100);

Display* gDisplay = nullptr;
int32_t gLogThreshold = kLogLevelWarning;

const char* levelName(int32_t level) {
  if (level >= kLogLevelError) return "error";
  if (level >= kLogLevelWarning) return "warning";
  if (level >= kLogLevelInfo) return "info";
  return "detail";
}

int32_t logSink(int32_t level, const char* /*module*/, const char* component, const char* /*tag1*/,
                const char* /*tag2*/, const char* format, ...) {
  if (gDisplay == nullptr || level < gLogThreshold || format == nullptr) return 0;
  char text[4096];
  va_list ap;
  va_start(ap, format);
  vsnprintf(text, sizeof text, format, ap);
  va_end(ap);
  std::string line = "velzip: ";
  line += levelName(level);
  line += ": [";
  line += component != nullptr ? component : "";
  line += "] ";
  line += text;
  gDisplay->err(line);
  return 0;
}

int terminalWidth() {
  struct winsize ws;
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0) return ws.ws_col;
  return 80;
}

}  // namespace

Display::Display(bool quiet, bool verbose)
    : quiet_(quiet), verbose_(verbose), barAllowed_(!quiet && isatty(STDERR_FILENO) == 1) {}

void Display::begin(const char* verb, uint64_t totalBytes, uint64_t totalEntries) {
  verb_ = verb;
  totalBytes_ = totalBytes;
  totalEntries_ = totalEntries;
  bytes_ = entries_ = 0;
  start_ = lastDraw_ = Clock::now();
  active_ = barAllowed_;
}

void Display::progress(uint64_t bytes, uint64_t entries) {
  bytes_ = bytes;
  entries_ = entries;
  drawBar(false);
}

void Display::end() {
  clearBar();
  active_ = false;
}

void Display::out(const std::string& line) {
  if (quiet_) return;
  clearBar();
  std::fputs(line.c_str(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

void Display::detail(const std::string& line) {
  if (verbose_) out(line);
}

void Display::err(const std::string& line) {
  clearBar();
  std::fflush(stdout);
  std::fputs(line.c_str(), stderr);
  std::fputc('\n', stderr);
}

void Display::clearBar() {
  if (!barShown_) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
  barShown_ = false;
}

void Display::drawBar(bool force) {
  if (!active_) return;
  const auto now = Clock::now();
  if (!force) {
    if (now - start_ < kFirstDraw) return;
    if (barShown_ && now - lastDraw_ < kRedraw) return;
  }
  lastDraw_ = now;
  const double elapsed = std::chrono::duration<double>(now - start_).count();

  double fraction = 0;
  if (totalBytes_ > 0) {
    fraction = static_cast<double>(bytes_) / static_cast<double>(totalBytes_);
  } else if (totalEntries_ > 0) {
    fraction = static_cast<double>(entries_) / static_cast<double>(totalEntries_);
  }
  if (fraction > 1) fraction = 1;

  std::string tail = " " + humanBytes(bytes_) + "/" + humanBytes(totalBytes_) + "  " +
                     std::to_string(entries_) + "/" + std::to_string(totalEntries_) + " entries";
  if (elapsed > 0.05 && bytes_ > 0) {
    const double rate = static_cast<double>(bytes_) / elapsed;
    tail += "  " + humanBytes(static_cast<uint64_t>(rate)) + "/s";
    if (totalBytes_ > bytes_) {
      tail += "  ETA " + seconds(static_cast<double>(totalBytes_ - bytes_) / rate);
    }
  }
  char head[32];
  std::snprintf(head, sizeof head, "%s %3d%% ", verb_, static_cast<int>(fraction * 100));

  // A fixed bar, dropped when the terminal is too narrow, so that the line
  // does not jitter as the rate and ETA appear.
  const int width = terminalWidth() - 1;
  std::string line = head;
  const int barWidth = 24;
  if (static_cast<int>(line.size() + tail.size()) + barWidth + 2 <= width) {
    const int filled = static_cast<int>(fraction * barWidth);
    line += "[" + std::string(static_cast<size_t>(filled), '#') +
            std::string(static_cast<size_t>(barWidth - filled), '-') + "]";
  }
  line += tail;
  if (static_cast<int>(line.size()) > width)
    line.resize(static_cast<size_t>(width > 0 ? width : 0));

  std::fputs("\r", stderr);
  std::fputs(line.c_str(), stderr);
  std::fputs("\033[K", stderr);
  std::fflush(stderr);
  barShown_ = true;
}

void installLogSink(Display& display) {
  gDisplay = &display;
  gLogThreshold = display.verbose() ? kLogLevelDetail : kLogLevelWarning;
  velzipSetLogger(reinterpret_cast<void*>(&logSink), nullptr);
}

void muteLibraryErrors() {
  if (gLogThreshold > kLogLevelDetail) gLogThreshold = kLogLevelError + 1;
}

std::string humanBytes(uint64_t bytes) {
  static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 1024 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
    value /= 1024;
    ++unit;
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f %s", value, kUnits[unit]);
  return buf;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string seconds(double s) {
  char buf[32];
  if (s < 60) {
    std::snprintf(buf, sizeof buf, "%.1fs", s);
  } else {
    const long total = static_cast<long>(s + 0.5);
    std::snprintf(buf, sizeof buf, "%ld:%02ld", total / 60, total % 60);
  }
  return buf;
}

int fail(Display& display, const std::string& reason) {
  display.err("velzip: " + reason);
  return kExitFailure;
}

}  // namespace velzip_tool
