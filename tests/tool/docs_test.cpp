// --help, the manual page, the README and the bash completion name the same
// commands and options, and the manual page renders without a warning.
#include <regex>

#include "support/probe.h"
#include "tool/tool_run.h"

using namespace velzip_test;

namespace {

const std::string kSource = VELZIP_SOURCE_DIR;

// Every option named in text: "-x", "--no-xattrs", "-0".
std::set<std::string> optionsIn(const std::string& text) {
  static const std::regex option(R"((^|[\s\[(,|`'])(--?[a-z][a-z0-9-]*|-[0-9])\b)");
  std::set<std::string> out;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), option);
       it != std::sregex_iterator(); ++it) {
    out.insert((*it)[2]);
  }
  return out;
}

// The manual page as words: roff's "\-" and font changes gone.
std::string manText() {
  std::string text = readFile(kSource + "/doc/velzip.1");
  text = std::regex_replace(text, std::regex(R"(\\-)"), "-");
  return std::regex_replace(text, std::regex(R"(\\f[BIRP])"), "");
}

// The README's part on the tool.
std::string readmeToolSection() {
  const std::string text = readFile(kSource + "/README.md");
  const size_t from = text.find("## The `velzip` tool");
  const size_t to = text.find("\n## ", from + 1);
  EXPECT_NE(from, std::string::npos);
  return text.substr(from, to - from);
}

std::set<std::string> missingFrom(const std::set<std::string>& wanted,
                                  const std::set<std::string>& have) {
  std::set<std::string> missing;
  for (const auto& w : wanted) {
    if (have.count(w) == 0) missing.insert(w);
  }
  return missing;
}

std::string joined(const std::set<std::string>& items) {
  std::string out;
  for (const auto& i : items) out += i + " ";
  return out;
}

}  // namespace

TEST(ToolDocs, HelpManualReadmeAndCompletionAgree) {
  const std::string help = run({"--help"}).out;
  const std::set<std::string> helpOptions = optionsIn(help);
  for (const char* o : {"-i", "-x", "-o", "-k", "-j", "-0", "-9", "--no-xattrs", "--json",
                        "--overwrite", "--keep-existing", "--threads"}) {
    EXPECT_EQ(helpOptions.count(o), 1u) << o;
  }
  // Its examples also run python3 -c.
  std::string page = manText();
  const size_t examples = page.find(".SH EXAMPLES");
  page.erase(examples, page.find(".SH", examples + 1) - examples);
  const std::set<std::string> man = optionsIn(page);
  EXPECT_EQ(joined(missingFrom(helpOptions, man)), "") << "in --help, not in the manual page";
  EXPECT_EQ(joined(missingFrom(man, helpOptions)), "") << "in the manual page, not in --help";
  EXPECT_EQ(joined(missingFrom(helpOptions, optionsIn(readmeToolSection()))), "")
      << "in --help, not in the README";
  const std::set<std::string> completion =
      optionsIn(readFile(kSource + "/tools/velzip/completion.bash"));
  EXPECT_EQ(joined(missingFrom(helpOptions, completion)), "") << "not completed";
  for (const char* command : {"compress", "extract", "test", "list", "gzip"}) {
    EXPECT_TRUE(contains(help, "  " + std::string(command) + " ")) << command;
    EXPECT_TRUE(contains(manText(), ".B " + std::string(command) + "\n")) << command;
    EXPECT_TRUE(contains(readmeToolSection(), "velzip " + std::string(command) + " ")) << command;
  }
}

TEST(ToolDocs, TheManualPageRendersCleanly) {
  if (!haveTool("groff")) GTEST_SKIP() << "no groff";
  TempDir t;
  const std::string page = kSource + "/doc/velzip.1";
  ASSERT_EQ(system(("groff -man -Tutf8 -ww -z " + page + " 2>" + t / "warnings").c_str()), 0);
  EXPECT_EQ(readFile(t / "warnings"), "");
}

TEST(ToolDocs, TheCompletionOffersCommandsAndEachCommandsOptions) {
  TempDir t;
  const std::string script = "source " + kSource +
                             "/tools/velzip/completion.bash\n"
                             "complete_words() { COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1));"
                             " COMPREPLY=(); _velzip; echo \"${COMPREPLY[*]}\"; }\n"
                             "complete_words velzip ''\n"
                             "complete_words velzip -q extract --k\n"
                             "complete_words velzip compress -f ''\n"
                             "complete_words velzip test -j 2 --\n";
  writeFile(t / "c.sh", script);
  ASSERT_EQ(system(("bash " + t / "c.sh" + " >" + t / "out 2>&1").c_str()), 0);
  EXPECT_EQ(split(readFile(t / "out"), true),
            (std::vector<std::string>{"compress extract test list gzip help",
                                      "--keep-existing --keep-setid", "0 1",
                                      "--quiet --verbose --help --format --password --threads"}));
}
