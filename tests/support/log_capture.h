// Captures what velzip logs, through either routing, for assertions.
#ifndef VELZIP_TESTS_SUPPORT_LOG_CAPTURE_H
#define VELZIP_TESTS_SUPPORT_LOG_CAPTURE_H

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "velzip/log.h"

namespace velzip_test {

struct LogLine {
  int level;
  std::string module, component, tag1, tag2, text;
};

inline std::vector<LogLine>& capturedLines() {
  static std::vector<LogLine> lines;
  return lines;
}

inline std::string formatV(const char* format, va_list ap) {
  char buf[8192];
  vsnprintf(buf, sizeof buf, format, ap);
  return buf;
}

inline int32_t captureSink(int32_t level, const char* module, const char* component,
                           const char* tag1, const char* tag2, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  capturedLines().push_back({level, module, component, tag1, tag2, formatV(format, ap)});
  va_end(ap);
  return 0;
}

// A host logger object; records with module "<object>".
class CaptureLogger : public UlvoUtils::Logger {
 public:
  int LogMessage(int level, const char* tag, const char* component, const char* format,
                 ...) override {
    va_list ap;
    va_start(ap, format);
    capturedLines().push_back({level, "<object>", component, tag, "", formatV(format, ap)});
    va_end(ap);
    return 0;
  }
};

// Installs captureSink on both routings for the scope and clears the lines.
class LogCapture {
 public:
  LogCapture()
      : archive_(kLogMessageFnPtr), util_(ulvoUtilsLogMessageFnPtr), obj_(ulvoUtilsLogger) {
    capturedLines().clear();
    kLogMessageFnPtr = captureSink;
    ulvoUtilsLogMessageFnPtr = captureSink;
    ulvoUtilsLogger = nullptr;
  }
  ~LogCapture() {
    kLogMessageFnPtr = archive_;
    ulvoUtilsLogMessageFnPtr = util_;
    ulvoUtilsLogger = obj_;
    capturedLines().clear();
  }
  const std::vector<LogLine>& lines() const { return capturedLines(); }
  bool contains(const std::string& text) const {
    for (const auto& l : capturedLines())
      if (l.text.find(text) != std::string::npos) return true;
    return false;
  }
  // Each line as "level text", so a whole log is compared at once.
  std::vector<std::string> texts() const {
    std::vector<std::string> out;
    for (const auto& l : capturedLines()) out.push_back(std::to_string(l.level) + " " + l.text);
    return out;
  }

 private:
  LogMessageFn archive_, util_;
  void* obj_;
};

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_LOG_CAPTURE_H
