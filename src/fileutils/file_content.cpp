#include <fcntl.h>
#include <libgen.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utf8proc.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>

#include "fileutils/internal.h"
#include "velzip/FileUtils.h"

namespace UlvoUtils {
namespace FileUtils {

namespace {

// A fresh name beside the target; the caller's umask gives the mode, as for
// any new file.
int createTempBeside(const std::string& path, std::string& tempPath) {
  std::vector<char> buf(path.c_str(), path.c_str() + path.size() + 1);
  const std::string folder = dirname(buf.data());
  static const char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  for (int attempt = 0; attempt < 64; ++attempt) {
    unsigned char random[12];
    if (getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) return -1;
    std::string name = folder + "/.velzip.";
    for (unsigned char byte : random) name += kAlphabet[byte % (sizeof kAlphabet - 1)];
    int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd >= 0) {
      tempPath = name;
      return fd;
    }
    if (errno != EEXIST) return -1;
  }
  return -1;
}

bool writeAll(int fd, const std::string& data) {
  size_t done = 0;
  while (done < data.size()) {
    ssize_t n = write(fd, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

bool readAll(const std::string& path, std::string& data) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  std::string out;
  char buf[65536];
  bool ok = true;
  for (;;) {
    ssize_t n = read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) ok = false;
    if (n <= 0) break;
    out.append(buf, static_cast<size_t>(n));
  }
  close(fd);
  if (ok) data.swap(out);
  return ok;
}

bool isUtf8(const std::string& data) {
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(data.data());
  utf8proc_ssize_t left = static_cast<utf8proc_ssize_t>(data.size());
  while (left > 0) {
    utf8proc_int32_t codepoint;
    utf8proc_ssize_t used = utf8proc_iterate(bytes, left, &codepoint);
    if (used <= 0) return false;
    bytes += used;
    left -= used;
  }
  return true;
}

// UTF-16 with a byte-order mark, big-endian without one; strict about surrogates.
bool utf16ToUtf8(const std::string& data, std::string& out) {
  if (data.size() % 2 != 0) return false;
  const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
  size_t count = data.size() / 2;
  size_t i = 0;
  bool little = false;
  if (count > 0 && bytes[0] == 0xFF && bytes[1] == 0xFE) {
    little = true;
    i = 1;
  } else if (count > 0 && bytes[0] == 0xFE && bytes[1] == 0xFF) {
    i = 1;
  }
  auto unit = [&](size_t k) -> unsigned {
    return little ? bytes[2 * k] | (bytes[2 * k + 1] << 8) : (bytes[2 * k] << 8) | bytes[2 * k + 1];
  };
  std::string text;
  for (; i < count; ++i) {
    unsigned u = unit(i);
    utf8proc_int32_t codepoint = static_cast<utf8proc_int32_t>(u);
    if (u >= 0xD800 && u <= 0xDBFF) {
      if (i + 1 >= count) return false;
      unsigned low = unit(i + 1);
      if (low < 0xDC00 || low > 0xDFFF) return false;
      codepoint = static_cast<utf8proc_int32_t>(0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
      ++i;
    } else if (u >= 0xDC00 && u <= 0xDFFF) {
      return false;
    }
    utf8proc_uint8_t encoded[4];
    utf8proc_ssize_t length = utf8proc_encode_char(codepoint, encoded);
    text.append(reinterpret_cast<const char*>(encoded), static_cast<size_t>(length));
  }
  out.swap(text);
  return true;
}

}  // namespace

bool CreateFileWithContentAtPath(const std::string& path, const std::string& content,
                                 void* /*logger*/) {
  if (path.empty()) return false;
  std::string tempPath;
  int fd = createTempBeside(path, tempPath);
  if (fd < 0) return false;
  bool ok = writeAll(fd, content);
  ok = close(fd) == 0 && ok;
  ok = ok && rename(tempPath.c_str(), path.c_str()) == 0;
  if (!ok) unlink(tempPath.c_str());
  return ok;
}

bool LoadContentOfFileAtPath(const std::string& path, std::string& content, void* /*logger*/) {
  if (!PathExists(path, nullptr)) return false;
  std::string data;
  if (!readAll(path, data)) return false;
  if (isUtf8(data)) {
    content.swap(data);
    return true;
  }
  return utf16ToUtf8(data, content);
}

bool LoadContentOfFileAtPath(const std::string& path, unsigned long maxBytes,
                             std::vector<char>& content, void* /*logger*/) {
  content.clear();
  velzip::UniqueFile file(fopen(path.c_str(), "rb"));
  if (!file) return false;
  // A folder opens too, and its "size" is meaningless.
  struct stat st;
  if (fstat(fileno(file.get()), &st) != 0 || S_ISDIR(st.st_mode)) return false;
  if (fseek(file.get(), 0, SEEK_END) != 0) return false;
  long size = ftell(file.get());
  if (fseek(file.get(), 0, SEEK_SET) != 0) return false;
  if (size > 0) {
    size_t wanted = static_cast<unsigned long>(size) < maxBytes ? static_cast<size_t>(size)
                                                                : static_cast<size_t>(maxBytes);
    try {
      content.resize(wanted);
    } catch (const std::bad_alloc&) {
      return false;
    }
    // A short read leaves zeros at the end, as callers of this form expect.
    if (wanted > 0) (void)!fread(content.data(), 1, wanted, file.get());
  }
  return true;
}

}  // namespace FileUtils
}  // namespace UlvoUtils
