// Format-0 archives against other zip tools: unzip, bsdtar and Python's
// zipfile read them with content, modes, links and names intact, and the
// format-0 reader restores them with their metadata.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "support/temp_dir.h"
#include "velzip/ZipHandler.h"
#if __has_include("velzip/UnzipHandler.h")
#include "velzip/UnzipHandler.h"
#define VELZIP_TEST_HAS_FORMAT0_READER 1
#endif

using namespace velzip_test;

namespace {

const char kNonAscii[] = "caf\xC3\xA9 \xE2\x82\xAC.txt";

// Noise that deflate cannot shrink.
std::string noise(size_t size) {
  std::string out(size, '\0');
  unsigned x = 777;
  for (char& c : out) c = static_cast<char>((x = x * 1664525u + 1013904223u) >> 24);
  return out;
}

// Every kind a tree holds, with modes that a 022 umask leaves alone.
std::string makeTree(const TempDir& tmp) {
  const std::string top = tmp / "top";
  for (const char* d : {"", "/bin", "/data", "/data/nested", "/data/nested/deep"})
    mkdir((top + d).c_str(), 0755);
  const struct {
    const char* rel;
    std::string data;
    mode_t mode;
  } files[] = {
      {"/readme.txt", std::string(3000, 'r') + "\nend\n", 0644},
      {"/bin/tool", sampleBytes(90000, 11), 0755},
      {"/data/random.bin", noise(300000), 0600},
      {"/data/empty", "", 0644},
      {"/data/nested/deep/leaf.txt", "leaf", 0640},
      {"/with space.txt", "spaced", 0444},
  };
  for (const auto& f : files) {
    writeFile(top + f.rel, f.data);
    chmod((top + f.rel).c_str(), f.mode);
  }
  writeFile(top + "/" + kNonAscii, "accents");
  symlink("readme.txt", (top + "/link-file").c_str());
  symlink("data", (top + "/link-dir").c_str());
  symlink("/nowhere/at all", (top + "/link-dangling").c_str());
  return top;
}

int run(const std::string& command) {
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool haveTool(const char* name) {
  return run(std::string("command -v ") + name + " >/dev/null 2>&1") == 0;
}

std::string linkTarget(const std::string& path) {
  char buf[4096];
  const ssize_t n = readlink(path.c_str(), buf, sizeof buf);
  return n < 0 ? std::string() : std::string(buf, static_cast<size_t>(n));
}

struct Expect {
  bool modes = true;    // permission bits restored
  bool links = true;    // links restored as links
  bool xattrs = false;  // user extended attributes restored
};

// Compares the restored tree with the source, item by item, both ways.
void verifyTree(const std::string& source, const std::string& restored, const Expect& expect,
                size_t* count = nullptr) {
  size_t items = 0;
  DIR* dir = opendir(source.c_str());
  ASSERT_NE(nullptr, dir) << source;
  while (const dirent* d = readdir(dir)) {
    const std::string n = d->d_name;
    if (n == "." || n == "..") continue;
    ++items;
    const std::string from = source + "/" + n, to = restored + "/" + n;
    struct stat a, b;
    ASSERT_EQ(0, lstat(from.c_str(), &a));
    ASSERT_EQ(0, lstat(to.c_str(), &b)) << "missing: " << to;
    if (S_ISDIR(a.st_mode)) {
      EXPECT_TRUE(S_ISDIR(b.st_mode)) << to;
      verifyTree(from, to, expect);
    } else if (S_ISLNK(a.st_mode) && expect.links) {
      EXPECT_TRUE(S_ISLNK(b.st_mode)) << to;
      EXPECT_EQ(linkTarget(from), linkTarget(to)) << to;
    } else if (S_ISLNK(a.st_mode)) {
      EXPECT_EQ(linkTarget(from), readFile(to)) << to;  // the target as content
    } else {
      EXPECT_TRUE(S_ISREG(b.st_mode)) << to;
      EXPECT_TRUE(readFile(from) == readFile(to)) << "content differs: " << to;
      if (expect.modes) {
        EXPECT_EQ(a.st_mode & 07777, b.st_mode & 07777) << to;
      }
      if (expect.xattrs) {
        char va[256] = {}, vb[256] = {};
        const ssize_t la = lgetxattr(from.c_str(), "user.velzip.note", va, sizeof va);
        const ssize_t lb = lgetxattr(to.c_str(), "user.velzip.note", vb, sizeof vb);
        EXPECT_EQ(la, lb) << to;
        if (la > 0 && lb == la) {
          EXPECT_EQ(std::string(va, la), std::string(vb, lb)) << to;
        }
      }
    }
  }
  closedir(dir);
  // Nothing more than the source.
  size_t restoredItems = 0;
  if (DIR* r = opendir(restored.c_str())) {
    while (const dirent* d = readdir(r)) {
      const std::string n = d->d_name;
      if (n != "." && n != "..") ++restoredItems;
    }
    closedir(r);
  }
  EXPECT_EQ(items, restoredItems) << restored;
  if (count != nullptr) *count = items;
}

// The tree as the format-0 folder walk packs it: top.zip beside top.
std::string packTree(const TempDir& tmp, std::string& top) {
  top = makeTree(tmp);
  if (setxattr((top + "/readme.txt").c_str(), "user.velzip.note", "kept", 4, 0) != 0) {
    ADD_FAILURE() << "no user extended attributes in " << tmp.path();
  }
  EXPECT_TRUE(ZipHandler::ZipFolder(top.c_str(), false));
  return top + ".zip";
}

}  // namespace

TEST(Format0Interop, InfoZipUnzipTestsAndExtracts) {
  ASSERT_TRUE(haveTool("unzip")) << "scripts/install-deps installs unzip";
  TempDir tmp;
  std::string top;
  const std::string zip = packTree(tmp, top);
  EXPECT_EQ(0, run("unzip -tq '" + zip + "' >/dev/null"));
  const std::string out = tmp / "unzip";
  ASSERT_EQ(0, mkdir(out.c_str(), 0755));
  ASSERT_EQ(0, run("umask 022 && unzip -q '" + zip + "' -d '" + out + "'"));
  verifyTree(top, out + "/top", Expect{});
  EXPECT_TRUE(exists(out + "/__MACOSX/top/._readme.txt"));  // companions are plain files there
}

TEST(Format0Interop, BsdtarExtracts) {
  ASSERT_TRUE(haveTool("bsdtar")) << "scripts/install-deps installs libarchive-tools";
  TempDir tmp;
  std::string top;
  const std::string zip = packTree(tmp, top);
  const std::string out = tmp / "bsdtar";
  ASSERT_EQ(0, mkdir(out.c_str(), 0755));
  ASSERT_EQ(0, run("umask 022 && cd '" + out + "' && bsdtar -xf '" + zip + "'"));
  verifyTree(top, out + "/top", Expect{});
}

TEST(Format0Interop, PythonZipfileReadsContentModesAndLinks) {
  ASSERT_TRUE(haveTool("python3"));
  TempDir tmp;
  std::string top;
  const std::string zip = packTree(tmp, top);
  const std::string out = tmp / "python";
  const std::string script = tmp / "read.py";
  // Python extracts links as files holding the target, and leaves modes to
  // the caller: the archive's own record of them is listed instead.
  writeFile(script,
            "import sys, zipfile\n"
            "z = zipfile.ZipFile(sys.argv[1])\n"
            "assert z.testzip() is None\n"
            "z.extractall(sys.argv[2])\n"
            "with open(sys.argv[3], 'wb') as f:\n"
            "    for i in z.infolist():\n"
            "        f.write(b'%o\\t' % (i.external_attr >> 16) + i.filename.encode() + b'\\n')\n");
  const std::string listing = tmp / "listing";
  ASSERT_EQ(0, run("python3 '" + script + "' '" + zip + "' '" + out + "' '" + listing + "'"));
  verifyTree(top, out + "/top", Expect{false, false, false});

  std::map<std::string, unsigned> modes;
  std::istringstream lines(readFile(listing));
  for (std::string line; std::getline(lines, line);) {
    const size_t tab = line.find('\t');
    ASSERT_NE(std::string::npos, tab);
    modes[line.substr(tab + 1)] =
        static_cast<unsigned>(std::stoul(line.substr(0, tab), nullptr, 8));
  }
  for (const char* rel : {"readme.txt", "bin/tool", "data/random.bin", "data/empty",
                          "with space.txt", "link-file", "link-dir", "link-dangling", kNonAscii}) {
    struct stat st;
    ASSERT_EQ(0, lstat((top + "/" + rel).c_str(), &st));
    const std::string name = std::string("top/") + rel;
    ASSERT_EQ(1u, modes.count(name)) << rel;  // the name decodes as written
    EXPECT_EQ(st.st_mode, modes[name]) << rel;
  }
}

#ifdef VELZIP_TEST_HAS_FORMAT0_READER
TEST(Format0Interop, FormatZeroReaderRestoresTreeAndMetadata) {
  TempDir tmp;
  std::string top;
  const std::string zip = packTree(tmp, top);
  const std::string out = tmp / "velzip";
  UnzipHandler reader;
  ASSERT_TRUE(reader.unzip(zip.c_str(), out.c_str(), false, 0xFFFFFFFF));
  Expect expect;
  expect.xattrs = true;
  verifyTree(top, out + "/top", expect);
}
#endif
