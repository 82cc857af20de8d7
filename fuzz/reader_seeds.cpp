// Writes small archives of every kind the readers meet as the fuzzer's
// starting corpus: stored and deflated entries, a format-1 payload with its
// size text, folders, links, a companion, zip64 fields, an encrypted flag.
#include <lzma.h>

#include <string>
#include <vector>

#include "save_seed.h"
#include "support/zip_craft.h"

using namespace velzip_test;

namespace {

std::string lzma2Payload(const std::string& data) {
  lzma_options_lzma opt{};
  lzma_lzma_preset(&opt, 1);
  opt.dict_size = 1 << 16;
  lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &opt}, {LZMA_VLI_UNKNOWN, nullptr}};
  std::string out(data.size() + 1024, '\0');
  size_t pos = 0;
  lzma_raw_buffer_encode(filters, nullptr, reinterpret_cast<const uint8_t*>(data.data()),
                         data.size(), reinterpret_cast<uint8_t*>(out.data()), &pos, out.size());
  out.resize(pos);
  return std::string(1, '\x18') + out;
}

CraftEntry kind(CraftEntry e, uint32_t mode) {
  e.external = mode << 16;
  return e;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::string dir = argv[1];
  const std::string text = "some text, some text, some more text\n";
  bool ok = save(
      dir + "/plain.zip",
      craftZip({storedEntry("a.txt", text), deflatedEntry("d/b.txt", text + text),
                kind(storedEntry("d/", ""), 040755), kind(storedEntry("ln", "a.txt"), 0120777)}));
  CraftEntry payload = storedEntry("f", lzma2Payload(text));
  payload.localExtra = std::to_string(text.size()) + '\0';
  CraftEntry companion = storedEntry("__MACOSX/._f", lzma2Payload("not a companion"));
  companion.localExtra = std::string("15") + '\0';
  ok = save(dir + "/format1.zip", craftZip({payload, companion})) && ok;
  CraftEntry wide = deflatedEntry("z64.txt", text);
  wide.zip64Central = true;
  wide.centralExtra = timestampBlock(1234567890);
  CraftEntry locked = storedEntry("locked", std::string(12, 'x') + text);
  locked.flag = 1;
  ok = save(dir + "/zip64.zip", craftZip({wide, locked})) && ok;
  return ok ? 0 : 1;
}
