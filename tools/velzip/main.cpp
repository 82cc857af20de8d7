// velzip: pack folders into zip archives and unpack them again, through the
// velzip library.
#include <cstdio>
#include <string>

#include "commands.h"
#include "help.h"

#ifndef VELZIP_VERSION
#define VELZIP_VERSION "unknown"
#endif

int main(int argc, char** argv) {
  using namespace velzip_tool;
  Options opt;
  bool help = false, version = false;
  if (int rc = parseCommandLine(argc, argv, opt, help, version)) return rc;
  if (help) {
    std::fputs(kHelpText, stdout);
    return kExitOk;
  }
  if (version) {
    std::printf("velzip %s\n", VELZIP_VERSION);
    return kExitOk;
  }
  const struct {
    const char* name;
    int (*run)(const Options&, Display&);
  } commands[] = {{"compress", runCompress},
                  {"extract", runExtract},
                  {"test", runTest},
                  {"list", runList},
                  {"gzip", runGzip}};
  for (const auto& c : commands) {
    if (opt.command != c.name) continue;
    Display display(opt.quiet, opt.verbose);
    installLogSink(display);
    return c.run(opt, display);
  }
  return usage("unknown command '" + opt.command + "'");
}
