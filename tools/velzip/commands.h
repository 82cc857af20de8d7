// The tool's commands, one file each.
#ifndef VELZIP_TOOL_COMMANDS_H
#define VELZIP_TOOL_COMMANDS_H

#include "display.h"
#include "options.h"

namespace velzip_tool {

int runCompress(const Options& opt, Display& display);
int runExtract(const Options& opt, Display& display);
int runTest(const Options& opt, Display& display);
int runList(const Options& opt, Display& display);
int runGzip(const Options& opt, Display& display);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_COMMANDS_H
