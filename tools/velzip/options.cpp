#include "options.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace velzip_tool {
namespace {

constexpr unsigned long kMostThreads = 1024;

struct OptionName {
  OptionBit bit;
  const char* name;
};
const OptionName kOptionNames[] = {
    {kOptFormat, "-f"},     {kOptPassword, "-p"},          {kOptKeepSetId, "--keep-setid"},
    {kOptForce, "--force"}, {kOptInclude, "-i"},           {kOptExclude, "-x"},
    {kOptOverwrite, "-o"},  {kOptKeepExisting, "-k"},      {kOptLevel, "-0 ... -9"},
    {kOptThreads, "-j"},    {kOptNoXattrs, "--no-xattrs"}, {kOptJson, "--json"},
};

struct CommandSyntax {
  const char* name;
  size_t least, most;   // operands
  unsigned allowed;     // OptionBit values
  const char* formats;  // what -f takes, for the message
  const char* synopsis;
};
const CommandSyntax kCommands[] = {
    {"compress", 2, 2,
     kOptFormat | kOptForce | kOptExclude | kOptLevel | kOptThreads | kOptNoXattrs, "0 or 1",
     "compress [-f 0|1] [-0 ... -9] [-x GLOB]... [-j N] [--no-xattrs] [--force] FOLDER ARCHIVE"},
    {"extract", 1, 2,
     kOptFormat | kOptPassword | kOptKeepSetId | kOptInclude | kOptExclude | kOptOverwrite |
         kOptKeepExisting | kOptThreads | kOptNoXattrs,
     "auto, 0 or 1",
     "extract [-f auto|0|1] [-p PASSWORD] [-i GLOB]... [-x GLOB]... [-o | -k] [-j N] "
     "[--no-xattrs] [--keep-setid] ARCHIVE [DEST]"},
    {"test", 1, 1, kOptFormat | kOptPassword | kOptThreads, "auto, 0 or 1",
     "test [-f auto|0|1] [-p PASSWORD] [-j N] ARCHIVE"},
    {"list", 1, 1, kOptJson, "", "list [--json] ARCHIVE"},
    {"gzip", 1, 1, 0, "", "gzip FILE"},
};

// "-x VALUE", "-xVALUE", "--long VALUE" or "--long=VALUE"; 0 when arg is not
// the option, 1 when taken, -1 when the value is missing.
int takeValue(int argc, char** argv, int& i, const char* shortName, const char* longName,
              std::string& value) {
  const std::string arg = argv[i];
  const std::string longEq = std::string(longName) + "=";
  if (arg == shortName || arg == longName) {
    if (i + 1 >= argc) return -1;
    value = argv[++i];
  } else if (arg.compare(0, 2, shortName) == 0 && arg.size() > 2) {
    value = arg.substr(2);
  } else if (arg.compare(0, longEq.size(), longEq) == 0) {
    value = arg.substr(longEq.size());
  } else {
    return 0;
  }
  return 1;
}

bool parseThreads(const std::string& text, unsigned& threads) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
  const unsigned long n = std::strtoul(text.c_str(), nullptr, 10);
  if (n < 1 || n > kMostThreads || text.size() > 5) return false;
  threads = static_cast<unsigned>(n);
  return true;
}

// Options without a value; false when arg is none of them.
bool takeFlag(const std::string& arg, Options& opt, bool& help, bool& version) {
  if (arg == "-h" || arg == "--help") {
    help = true;
  } else if (arg == "--version") {
    version = true;
  } else if (arg == "-q" || arg == "--quiet") {
    opt.quiet = true;
  } else if (arg == "-v" || arg == "--verbose") {
    opt.verbose = true;
  } else if (arg == "--force") {
    opt.force = true;
    opt.given |= kOptForce;
  } else if (arg == "--keep-setid") {
    opt.keepSetId = true;
    opt.given |= kOptKeepSetId;
  } else if (arg == "-o" || arg == "--overwrite") {
    opt.overwrite = true;
    opt.given |= kOptOverwrite;
  } else if (arg == "-k" || arg == "--keep-existing") {
    opt.keepExisting = true;
    opt.given |= kOptKeepExisting;
  } else if (arg == "--no-xattrs") {
    opt.noXattrs = true;
    opt.given |= kOptNoXattrs;
  } else if (arg == "--json") {
    opt.json = true;
    opt.given |= kOptJson;
  } else if (arg.size() == 2 && arg[1] >= '0' && arg[1] <= '9') {
    opt.level = arg[1] - '0';
    opt.given |= kOptLevel;
  } else {
    return false;
  }
  return true;
}

// Options with a value: 1 taken, 0 not one of them, or a usage error.
int takeValued(int argc, char** argv, int& i, Options& opt) {
  const std::string arg = argv[i];
  std::string value;
  const struct {
    const char* shortName;
    const char* longName;
    OptionBit bit;
  } valued[] = {{"-f", "--format", kOptFormat},
                {"-p", "--password", kOptPassword},
                {"-i", "--include", kOptInclude},
                {"-x", "--exclude", kOptExclude},
                {"-j", "--threads", kOptThreads}};
  for (const auto& v : valued) {
    const int taken = takeValue(argc, argv, i, v.shortName, v.longName, value);
    if (taken == 0) continue;
    if (taken < 0) return usage("option " + arg + " needs a value");
    opt.given |= v.bit;
    switch (v.bit) {
      case kOptFormat:
        opt.format = value;
        break;
      case kOptPassword:
        opt.password = value;
        break;
      case kOptInclude:
        opt.includes.push_back(value);
        break;
      case kOptExclude:
        opt.excludes.push_back(value);
        break;
      case kOptThreads:
        if (!parseThreads(value, opt.threads)) {
          return usage("option " + arg + " needs a number of threads from 1 to " +
                       std::to_string(kMostThreads) + ", not '" + value + "'");
        }
        break;
      default:
        break;
    }
    return 1;
  }
  return 0;
}

int checkCommand(const Options& opt) {
  const CommandSyntax* syntax = nullptr;
  for (const auto& c : kCommands) {
    if (opt.command == c.name) syntax = &c;
  }
  if (syntax == nullptr) return usage("unknown command '" + opt.command + "'");
  const size_t n = opt.operands.size();
  if (n < syntax->least || n > syntax->most)
    return usage(std::string("usage: velzip ") + syntax->synopsis);
  for (const auto& o : opt.operands) {
    if (o.empty()) return usage(std::string("empty path in: velzip ") + syntax->synopsis);
  }
  for (const auto& o : kOptionNames) {
    if (opt.has(o.bit) && (syntax->allowed & o.bit) == 0) {
      return usage(opt.command + " takes no " + o.name + " option");
    }
  }
  if (opt.has(kOptFormat)) {
    const bool autoOk = syntax->formats[0] == 'a';
    if (opt.format != "0" && opt.format != "1" && !(autoOk && opt.format == "auto")) {
      return usage(opt.command + ": format must be " + syntax->formats + ", not '" + opt.format +
                   "'");
    }
  }
  if (opt.overwrite && opt.keepExisting) {
    return usage("-o (--overwrite) and -k (--keep-existing) exclude each other");
  }
  return kExitOk;
}

unsigned onlineProcessors() {
  const long n = sysconf(_SC_NPROCESSORS_ONLN);
  return n < 1 ? 1u : n > static_cast<long>(kMostThreads) ? kMostThreads : static_cast<unsigned>(n);
}

}  // namespace

int usage(const std::string& message) {
  std::fprintf(stderr, "velzip: %s\nTry 'velzip --help' for more information.\n", message.c_str());
  return kExitUsage;
}

// Options may come before or after the command; "--" ends them.
int parseCommandLine(int argc, char** argv, Options& opt, bool& help, bool& version) {
  std::vector<std::string> positional;
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      positional.push_back(arg);
    } else if (arg == "--") {
      optionsEnded = true;
    } else if (!takeFlag(arg, opt, help, version)) {
      const int taken = takeValued(argc, argv, i, opt);
      if (taken == 0) return usage("unknown option " + arg);
      if (taken != 1) return taken;
    }
  }
  if (!opt.has(kOptThreads)) opt.threads = onlineProcessors();
  if (help || version) return kExitOk;
  if (positional.empty() || positional.front() == "help") {
    if (!positional.empty()) help = true;
    return help ? kExitOk : usage("no command given");
  }
  opt.command = positional.front();
  opt.operands.assign(positional.begin() + 1, positional.end());
  return checkCommand(opt);
}

}  // namespace velzip_tool
