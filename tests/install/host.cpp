// A host that uses the installed headers and library only.
#include <cstdio>
#include <velzip/velzip.hpp>

int main() {
  velzipSetLogger(nullptr, nullptr);
  std::string out;
  StringUtils::LongToNativeString(42, out);
  if (out != "42") return 1;
  Vel::VelLzmaHelper helper;
  std::printf("host ok: %s\n", kModuleName);
  return 0;
}
