// velzip: pack folders into zip archives and unpack them again, through the
// velzip library.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "cli.h"

#ifndef VELZIP_VERSION
#define VELZIP_VERSION "unknown"
#endif

namespace velzip_tool {
namespace {

const char kHelp[] =
    "usage: velzip [-q] [-v] COMMAND [ARGS]\n"
    "\n"
    "Commands:\n"
    "  compress [-f 0|1] [--force] FOLDER ARCHIVE\n"
    "      Pack FOLDER into ARCHIVE (format 1 unless -f 0). ARCHIVE appears only once\n"
    "      everything is in: after a failure or Ctrl-C an existing ARCHIVE is left as it\n"
    "      was and nothing else is left behind. An existing file that is not a zip\n"
    "      archive is replaced only with --force.\n"
    "  extract [-f auto|0|1] [-p PASSWORD] [--keep-setid] ARCHIVE [DEST]\n"
    "      Unpack ARCHIVE into DEST (default: ARCHIVE without its suffix), restoring\n"
    "      modes, modification times, symbolic links and extended attributes. Each\n"
    "      file replaces what stood at its name only once it is complete and checked.\n"
    "  list ARCHIVE\n"
    "      Show each entry's size, packed size, method, encryption, mode, kind and name;\n"
    "      a '*' after the kind marks an encrypted entry. Entries velzip cannot read\n"
    "      are named at the end, and extract refuses their archive up front.\n"
    "  gzip FILE\n"
    "      Append FILE's content as a gzip member to FILE.gz (FILE is kept).\n"
    "\n"
    "Formats:\n"
    "  1     zip of stored entries holding LZMA2 payloads; names relative to FOLDER\n"
    "  0     ordinary deflate zip; names start with FOLDER's own name, and every file\n"
    "        gets a metadata companion under __MACOSX/\n"
    "  auto  (extract, the default) 1 when every file entry is stored and its local\n"
    "        extra field is a size text, else 0\n"
    "\n"
    "Options:\n"
    "  -f, --format FORMAT  archive format, see above\n"
    "      --force          compress: replace ARCHIVE even when it is not a zip archive\n"
    "      --keep-setid     (extract) restore set-user-ID and set-group-ID bits; without\n"
    "                       it they are dropped, as from any file an archive brings\n"
    "  -p, --password PASSWORD\n"
    "                       password for encrypted entries (traditional zip encryption\n"
    "                       or WinZip AES); other users may see it in the process list\n"
    "  -q, --quiet          no progress bar and no summary line\n"
    "  -v, --verbose        also print each entry and the library's information lines\n"
    "  -h, --help           show this text\n"
    "      --version        show the version\n"
    "\n"
    "A progress bar appears on stderr when it is a terminal and the work takes a while.\n"
    "Ctrl-C stops cleanly: compress writes no archive, extract keeps what it restored.\n"
    "Exit status: 0 success, 1 failure (with a one-line reason), 2 usage error.\n";

int usage(const std::string& message) {
  std::fprintf(stderr, "velzip: %s\nTry 'velzip --help' for more information.\n", message.c_str());
  return kExitUsage;
}

struct Parsed {
  Options opt;
  bool help = false;
  bool version = false;
  bool formatGiven = false;
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

// Options may come before or after the command; "--" ends them.
int parse(int argc, char** argv, Parsed& p) {
  std::vector<std::string> positional;
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
    } else if (arg == "-h" || arg == "--help") {
      p.help = true;
    } else if (arg == "--version") {
      p.version = true;
    } else if (arg == "-q" || arg == "--quiet") {
      p.opt.quiet = true;
    } else if (arg == "-v" || arg == "--verbose") {
      p.opt.verbose = true;
    } else if (arg == "--force") {
      p.opt.force = true;
    } else if (arg == "--keep-setid") {
      p.opt.keepSetId = true;
    } else if (int f = takeValue(argc, argv, i, "-f", "--format", p.opt.format)) {
      if (f < 0) return usage("option " + arg + " needs a value");
      p.formatGiven = true;
    } else if (int w = takeValue(argc, argv, i, "-p", "--password", p.opt.password)) {
      if (w < 0) return usage("option " + arg + " needs a value");
      p.opt.passwordGiven = true;
    } else {
      return usage("unknown option " + arg);
    }
  }
  if (!positional.empty()) {
    p.opt.command = positional.front();
    p.opt.operands.assign(positional.begin() + 1, positional.end());
  }
  return kExitOk;
}

int checkOperands(const Options& opt, size_t least, size_t most, const char* synopsis) {
  const size_t n = opt.operands.size();
  if (n < least || n > most) return usage(std::string("usage: velzip ") + synopsis);
  for (const auto& o : opt.operands) {
    if (o.empty()) return usage("empty path in: velzip " + std::string(synopsis));
  }
  return kExitOk;
}

}  // namespace
}  // namespace velzip_tool

int main(int argc, char** argv) {
  using namespace velzip_tool;
  Parsed p;
  if (int rc = parse(argc, argv, p)) return rc;
  if (p.help || p.opt.command == "help") {
    std::fputs(kHelp, stdout);
    return kExitOk;
  }
  if (p.version) {
    std::printf("velzip %s\n", VELZIP_VERSION);
    return kExitOk;
  }
  Options& opt = p.opt;
  if (opt.command.empty()) return usage("no command given");

  int rc = kExitOk;
  int (*run)(const Options&, Display&) = nullptr;
  if (opt.command == "compress") {
    rc = checkOperands(opt, 2, 2, "compress [-f 0|1] [--force] FOLDER ARCHIVE");
    if (rc == kExitOk && p.formatGiven && opt.format != "0" && opt.format != "1") {
      rc = usage("compress: format must be 0 or 1, not '" + opt.format + "'");
    }
    run = runCompress;
  } else if (opt.command == "extract") {
    rc = checkOperands(opt, 1, 2,
                       "extract [-f auto|0|1] [-p PASSWORD] [--keep-setid] ARCHIVE [DEST]");
    if (rc == kExitOk && p.formatGiven && opt.format != "0" && opt.format != "1" &&
        opt.format != "auto") {
      rc = usage("extract: format must be auto, 0 or 1, not '" + opt.format + "'");
    }
    run = runExtract;
  } else if (opt.command == "list" || opt.command == "gzip") {
    const bool list = opt.command == "list";
    rc = checkOperands(opt, 1, 1, list ? "list ARCHIVE" : "gzip FILE");
    if (rc == kExitOk && p.formatGiven) rc = usage(opt.command + " takes no -f option");
    run = list ? runList : runGzip;
  } else {
    return usage("unknown command '" + opt.command + "'");
  }
  if (rc == kExitOk && opt.passwordGiven && run != runExtract) {
    rc = usage(opt.command + " takes no -p option");
  }
  if (rc == kExitOk && opt.force && run != runCompress) {
    rc = usage(opt.command + " takes no --force option");
  }
  if (rc == kExitOk && opt.keepSetId && run != runExtract) {
    rc = usage(opt.command + " takes no --keep-setid option");
  }
  if (rc != kExitOk) return rc;

  Display display(opt.quiet, opt.verbose);
  installLogSink(display);
  return run(opt, display);
}
