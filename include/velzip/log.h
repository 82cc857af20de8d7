/* velzip: log sinks.
 *
 * The archive classes log through kLogMessageFnPtr (module kModuleName,
 * "VELZIP"). The string and file utilities and the format-0 reader log
 * through a logger handle when one is given, else ulvoUtilsLogMessageFnPtr
 * (module "UlvoUtils"), else the logger object ulvoUtilsLogger. When no sink
 * is set nothing is formatted. The library never formats text itself. */
#ifndef VELZIP_LOG_H
#define VELZIP_LOG_H

#include <stdint.h>

#include "velzip/export.h"

typedef int32_t (*LogMessageFn)(int32_t level, const char* module, const char* component,
                                const char* tag1, const char* tag2, const char* format, ...);

enum { kLogLevelDetail = 10, kLogLevelInfo = 30, kLogLevelWarning = 40, kLogLevelError = 50 };

#ifdef __cplusplus
extern "C" {
#endif

VELZIP_API extern LogMessageFn kLogMessageFnPtr;
VELZIP_API extern const char* kModuleName;
VELZIP_API extern LogMessageFn ulvoUtilsLogMessageFnPtr;
VELZIP_API extern void* ulvoUtilsLogger;

#ifdef __cplusplus
}

namespace UlvoUtils {

/* A host's logger object. velzip calls only LogMessage, the seventh virtual
 * member; a host derives and overrides it. The others exist for the host's
 * own use and have empty default bodies. */
class VELZIP_API Logger {
 public:
  virtual ~Logger();
  virtual void SetLevel(int level);
  virtual int GetLevel() const;
  virtual void SetEnabled(bool enabled);
  virtual bool IsEnabled() const;
  virtual void Flush();
  virtual int LogMessage(int level, const char* tag, const char* component, const char* format,
                         ...) = 0;
};

/* Installs the utilities' sink and logger object; null clears. Always true. */
VELZIP_API bool SetLogger(void* logFn, void* logger);

}  // namespace UlvoUtils
#endif

#endif /* VELZIP_LOG_H */
