// Everything the tool prints while the library works goes through here, so
// that a progress bar on the terminal is wiped before a line is written.
#ifndef VELZIP_TOOL_DISPLAY_H
#define VELZIP_TOOL_DISPLAY_H

#include <chrono>
#include <cstdint>
#include <string>

namespace velzip_tool {

class Display {
 public:
  Display(bool quiet, bool verbose);

  // Starts the bar (if stderr is a terminal and not quiet).
  void begin(const char* verb, uint64_t totalBytes, uint64_t totalEntries);
  // Redraws at most a few times a second.
  void progress(uint64_t bytes, uint64_t entries);
  void end();

  // One line on stdout (summary, listing) unless quiet.
  void out(const std::string& line);
  // One line on stdout only with -v.
  void detail(const std::string& line);
  // One line on stderr, always.
  void err(const std::string& line);

  bool verbose() const { return verbose_; }
  bool quiet() const { return quiet_; }

 private:
  void clearBar();
  void drawBar(bool force);

  bool quiet_, verbose_, barAllowed_;
  bool barShown_ = false;
  bool active_ = false;
  const char* verb_ = "";
  uint64_t totalBytes_ = 0, totalEntries_ = 0, bytes_ = 0, entries_ = 0;
  std::chrono::steady_clock::time_point start_, lastDraw_;
};

// Routes the library's log lines to the display: errors and warnings always,
// information and detail with -v.
void installLogSink(Display& display);
// From now on the library's errors reach stderr only with -v: the command
// reports them itself.
void muteLibraryErrors();

std::string humanBytes(uint64_t bytes);
std::string seconds(double s);
double secondsSince(std::chrono::steady_clock::time_point start);

// "velzip: <reason>" on stderr; returns kExitFailure.
int fail(Display& display, const std::string& reason);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_DISPLAY_H
