// velzip list: the table escapes what a terminal would act on; --json is
// one object per entry that Python's json module reads, names recoverable
// byte for byte.
#include "support/probe.h"
#include "support/zip_craft.h"
#include "tool/tool_run.h"

using namespace velzip_test;

namespace {

// Checks every line of the listing in json_file with Python and prints,
// per entry: the name's bytes in hex, kind, size, mode, crc, link target,
// encrypted. With a tree, also checks each mtime against the file there.
const char kCheckJson[] = R"PY(
import datetime, json, os, re, sys
keys = {"name", "kind", "size", "packed", "method", "encryption", "encrypted", "mode",
        "mtime", "crc", "link_target", "unreadable"}
tree = sys.argv[2] if len(sys.argv) > 2 else None
for line in open(sys.argv[1], encoding="utf-8"):
    o = json.loads(line)
    assert keys <= set(o), set(o)
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", o["mtime"]), o["mtime"]
    assert re.fullmatch(r"[0-7]{4}", o["mode"]) and re.fullmatch(r"[0-9a-f]{8}", o["crc"]), o
    raw = bytes.fromhex(o["name_hex"]) if "name_hex" in o else o["name"].encode()
    if tree and o["kind"] == "file":
        t = os.lstat(os.path.join(tree, o["name"])).st_mtime
        when = datetime.datetime.fromtimestamp(int(t), datetime.timezone.utc)
        assert when.strftime("%Y-%m-%dT%H:%M:%SZ") == o["mtime"], (o["name"], o["mtime"])
    print(raw.hex(), o["kind"], o["size"], o["mode"], o["crc"], o["link_target"], o["encrypted"])
)PY";

std::vector<std::string> checkedJson(const TempDir& t, const std::string& archive,
                                     const std::string& tree = "") {
  const Result r = run({"list", "--json", archive});
  EXPECT_EQ(r.status, 0) << r.err;
  writeFile(t / "listing.json", r.out);
  writeFile(t / "check.py", kCheckJson);
  const std::string command = "python3 " + t / "check.py" + " " + t / "listing.json" + " " + tree +
                              " >" + t / "checked" + " 2>&1";
  EXPECT_EQ(system(command.c_str()), 0) << readFile(t / "checked");
  return split(readFile(t / "checked"), true);
}

std::string hex(const std::string& bytes) {
  std::string out;
  char b[3];
  for (unsigned char c : bytes) {
    std::snprintf(b, sizeof b, "%02x", c);
    out += b;
  }
  return out;
}

std::string crcText(const std::string& data) {
  char crc[16];
  std::snprintf(crc, sizeof crc, "%08x", crcOfBytes(data));
  return crc;
}

}  // namespace

// crc is the CRC-32 the archive records: of a file's content in format 0,
// of its stored payload in format 1, of a link's target in both.
TEST(ToolList, JsonDescribesEveryEntry) {
  TempDir t;
  makeTree(t / "tree");
  const std::string text = readFile(t / "tree/text.txt");
  for (const char* format : {"0", "1"}) {
    SCOPED_TRACE(format);
    const std::string archive = t / (std::string("t") + format + ".zip");
    ASSERT_EQ(run({"compress", "-q", "-f", format, t / "tree", archive}).status, 0);
    const bool zero = format[0] == '0';
    const std::string p = zero ? "tree/" : "";
    const auto lines = checkedJson(t, archive, zero ? t.path() : t / "tree");
    EXPECT_EQ(lines.size(), entryCount(archive));
    std::vector<std::string> expected = {
        hex(p + "text.txt") + " file " + std::to_string(text.size()) + " 0644 " +
            (zero ? crcText(text) : ""),
        hex(p + "link-dir") + " link 6 0777 " + crcText("nested") + " nested False",
        hex(p + "bin.dat") + " file 300000 0600 "};
    if (!zero) expected.push_back(hex("emptydir/") + " dir 0 0700 00000000 None False");
    for (const std::string& e : expected) {
      bool found = false;
      for (const auto& l : lines) found = found || l.rfind(e, 0) == 0;
      EXPECT_TRUE(found) << e << " in\n" << readFile(t / "checked");
    }
  }
}

TEST(ToolList, NamesAreEscapedInTheTableAndExactInJson) {
  TempDir t;
  const std::string control = "ctl\nname\x1b[31m\x7f.txt", latin = "bad\xff\xfe.txt";
  CraftEntry link = storedEntry("link", "tar\tget");
  link.external = 0120777u << 16;
  writeFile(t / "odd.zip", craftZip({storedEntry(control, "x"), storedEntry(latin, "y"),
                                     storedEntry("quote\"d \xc3\xa9", "z"), link}));
  const Result table = run({"list", t / "odd.zip"});
  ASSERT_EQ(table.status, 0) << table.err;
  for (const char* row : {"  ctl\\nname\\x1b[31m\\x7f.txt\n", "  bad\\xff\\xfe.txt\n",
                          "  quote\"d \xc3\xa9\n", "  link -> tar\\tget\n"}) {
    EXPECT_TRUE(contains(table.out, row)) << row << " in\n" << table.out;
  }
  for (char c : table.out) {
    EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << "a raw control character";
  }

  const Result json = run({"list", "--json", t / "odd.zip"});
  EXPECT_TRUE(contains(json.out, R"("name": "ctl\u000aname\u001b[31m\u007f.txt")")) << json.out;
  EXPECT_TRUE(contains(json.out, R"("name": "bad)"
                                 "\xef\xbf\xbd\xef\xbf\xbd"
                                 R"(.txt", )"
                                 R"("name_hex": "626164fffe2e747874")"))
      << json.out;
  const auto lines = checkedJson(t, t / "odd.zip");
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].substr(0, lines[0].find(' ')), hex(control));
  EXPECT_EQ(lines[1].substr(0, lines[1].find(' ')), hex(latin));
  EXPECT_EQ(lines[2].substr(0, lines[2].find(' ')), hex("quote\"d \xc3\xa9"));
  EXPECT_EQ(lines[3], hex("link") + " link 7 0777 " + crcText("tar\tget") + " tar\tget False");
}
