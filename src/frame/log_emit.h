// The two log routings every velzip class uses. Arguments are forwarded to
// the host's variadic sink untouched: velzip never formats a line itself,
// and nothing happens at all when no sink is installed.
#ifndef VELZIP_FRAME_LOG_EMIT_H
#define VELZIP_FRAME_LOG_EMIT_H

#include <cstdint>

#include "velzip/log.h"

namespace velzip {

// Archive classes: kLogMessageFnPtr only, module kModuleName.
template <class... Args>
inline void logArchive(int32_t level, const char* component, const char* tag2, const char* format,
                       Args... args) {
  if (LogMessageFn fn = kLogMessageFnPtr)
    fn(level, kModuleName, component, "", tag2, format, args...);
}

// Utilities and the format-0 reader: the caller's handle, else the utilities'
// sink, else the utilities' logger object. Exactly one route per line.
template <class... Args>
inline void logUtility(void* handle, int32_t level, const char* component, const char* format,
                       Args... args) {
  if (handle != nullptr) {
    static_cast<UlvoUtils::Logger*>(handle)->LogMessage(level, "", component, format, args...);
  } else if (LogMessageFn fn = ulvoUtilsLogMessageFnPtr) {
    fn(level, "UlvoUtils", component, "", "", format, args...);
  } else if (void* logger = ulvoUtilsLogger) {
    static_cast<UlvoUtils::Logger*>(logger)->LogMessage(level, "", component, format, args...);
  }
}

}  // namespace velzip

#endif  // VELZIP_FRAME_LOG_EMIT_H
