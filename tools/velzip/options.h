// The command line of the velzip tool, as parsed.
#ifndef VELZIP_TOOL_OPTIONS_H
#define VELZIP_TOOL_OPTIONS_H

#include <string>
#include <vector>

namespace velzip_tool {

enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

// Each option that only some commands take.
enum OptionBit : unsigned {
  kOptFormat = 1u << 0,
  kOptPassword = 1u << 1,
  kOptKeepSetId = 1u << 2,
  kOptForce = 1u << 3,
  kOptInclude = 1u << 4,
  kOptExclude = 1u << 5,
  kOptOverwrite = 1u << 6,
  kOptKeepExisting = 1u << 7,
  kOptLevel = 1u << 8,
  kOptThreads = 1u << 9,
  kOptNoXattrs = 1u << 10,
  kOptJson = 1u << 11,
};

struct Options {
  std::string command;
  std::vector<std::string> operands;
  unsigned given = 0;  // OptionBit values seen
  std::string format;  // as given with -f; empty when absent
  // The readers borrow it: Options outlives every reader.
  std::string password;
  bool keepSetId = false;  // extract: restore set-user-ID and set-group-ID bits
  bool quiet = false;
  bool verbose = false;
  bool force = false;  // compress: replace ARCHIVE even when it is no zip archive
  std::vector<std::string> includes, excludes;
  bool overwrite = false, keepExisting = false;
  int level = -1;        // -1: the format's usual
  unsigned threads = 1;  // the online processors unless -j
  bool noXattrs = false;
  bool json = false;

  bool has(OptionBit bit) const { return (given & bit) != 0; }
};

// Fills opt from argv, checks it against the command's synopsis and
// returns kExitOk, or prints the usage error and returns kExitUsage.
// help/version: the user asked for that instead of a command.
int parseCommandLine(int argc, char** argv, Options& opt, bool& help, bool& version);

// "velzip: MESSAGE" and the pointer to --help on stderr; kExitUsage.
int usage(const std::string& message);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_OPTIONS_H
