// velzip gzip: FILE's content as a new gzip member at the end of FILE.gz.
#include <sys/stat.h>
#include <unistd.h>

#include "commands.h"
#include "paths.h"
#include "velzip/VelZipHandler.h"

namespace velzip_tool {

int runGzip(const Options& opt, Display& display) {
  const std::string& file = opt.operands[0];
  struct stat st;
  if (stat(file.c_str(), &st) != 0)
    return fail(display, "cannot gzip " + file + ": " + errnoText());
  if (!S_ISREG(st.st_mode)) return fail(display, "cannot gzip " + file + ": not a regular file");
  const std::string gz = file + ".gz";
  const bool appended = access(gz.c_str(), F_OK) == 0;
  const auto start = std::chrono::steady_clock::now();
  if (!Vel::VelZipHandler::GZipFile(file)) {
    return fail(display,
                "could not gzip " + file + " into " + gz + " (it may hold a partial member)");
  }
  display.out((appended ? "appended " : "gzipped ") + file +
              (appended ? " as a new member to " : " into ") + gz + ": " +
              humanBytes(static_cast<uint64_t>(st.st_size)) + " in, " + humanBytes(fileSize(gz)) +
              " now, " + seconds(secondsSince(start)));
  return kExitOk;
}

}  // namespace velzip_tool
