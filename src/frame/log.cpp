#include "velzip/log.h"

#include "velzip/velzip.h"

extern "C" {
LogMessageFn kLogMessageFnPtr = nullptr;
const char* kModuleName = "VELZIP";
LogMessageFn ulvoUtilsLogMessageFnPtr = nullptr;
void* ulvoUtilsLogger = nullptr;
}

namespace UlvoUtils {

Logger::~Logger() = default;
void Logger::SetLevel(int) {}
int Logger::GetLevel() const {
  return 0;
}
void Logger::SetEnabled(bool) {}
bool Logger::IsEnabled() const {
  return true;
}
void Logger::Flush() {}

bool SetLogger(void* logFn, void* logger) {
  ulvoUtilsLogMessageFnPtr = reinterpret_cast<LogMessageFn>(logFn);
  ulvoUtilsLogger = logger;
  return true;
}

}  // namespace UlvoUtils

extern "C" int32_t velzipSetLogger(void* logFn, void* logger) {
  // A null function keeps the archive sink but still clears the utilities' one.
  if (logFn != nullptr) kLogMessageFnPtr = reinterpret_cast<LogMessageFn>(logFn);
  UlvoUtils::SetLogger(logFn, logger);
  return 0;
}
