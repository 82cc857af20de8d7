// What velzip --help prints.
#ifndef VELZIP_TOOL_HELP_H
#define VELZIP_TOOL_HELP_H

namespace velzip_tool {

extern const char kHelpText[];

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_HELP_H
