// Looking at entries without extracting them: full descriptions for hosts
// and the tool, and checking an entry's data.
#include <vector>

#include "unzip/data_layers.h"
#include "unzip/reader_core.h"

namespace velzip {
namespace {

constexpr size_t kMaxLinkTarget = 65536;
constexpr size_t kChunk = 65536;

UZ_Encryption publicEncryption(const DataLayers& layers) {
  switch (layers.encryption) {
    case Encryption::kNone:
      return UZ_Encryption::kNone;
    case Encryption::kZipCrypto:
      return UZ_Encryption::kZipCrypto;
    case Encryption::kStrong:
      return UZ_Encryption::kStrong;
    case Encryption::kAes:
      break;
  }
  switch (layers.hasAesField ? aesKeyLength(layers.aes.strength) : 0) {
    case 16:
      return UZ_Encryption::kAes128;
    case 24:
      return UZ_Encryption::kAes192;
    case 32:
      return UZ_Encryption::kAes256;
    default:
      return UZ_Encryption::kAes;
  }
}

// Content that goes nowhere: only the checks on the way matter.
class DiscardTarget : public ContentTarget {
 public:
  bool write(const uint8_t*, size_t, std::string&) override { return true; }
  bool report(uint64_t) override { return true; }
};

}  // namespace

bool ReaderCore::getEntryInfo(UZ_EntryInfo& info, bool withLinkTarget) {
  ZipEntryRecord rec;
  std::string why;
  if (zip_ == nullptr || !currentRecord(rec, why)) return false;
  info = UZ_EntryInfo();
  info.name = entryName(rec);
  const EntryType type = entryType(rec, info.name);
  info.kind = publicKind(type);
  const DataLayers layers = dataLayers(rec);
  info.method = rec.method;
  info.realMethod = layers.method;
  info.methodName = layersMethodName(layers);
  info.encrypted = (rec.flag & kFlagEncrypted) != 0;
  info.encryption = publicEncryption(layers);
  info.unreadable = unreadableLayers(layers);
  info.compressedSize = rec.compressedSize;
  info.uncompressedSize = rec.uncompressedSize;
  info.mode = entryMode(rec, type, keepSetId_, umask_);
  info.crc = rec.crc;
  LocalEntry local;
  const bool haveLocal = archive_.readLocal(rec, local, why);
  if (haveLocal) info.hasSizeText = parseSizeText(local.extra, info.sizeText);
  info.modTime = entryModTime(rec, haveLocal ? local.extra : std::string());

  if (withLinkTarget && type == EntryType::kLink && info.unreadable.empty() &&
      (!info.encrypted || password_ != nullptr)) {
    EntryStream in;
    if (!in.open(archive_, rec, password_)) return true;
    std::vector<char> chunk(kChunk);
    std::string target;
    ssize_t got;
    while ((got = in.read(chunk.data(), chunk.size())) > 0) {
      if (target.size() < kMaxLinkTarget) target.append(chunk.data(), static_cast<size_t>(got));
    }
    if (got == 0) info.linkTarget = target.substr(0, target.find('\0'));
  }
  return true;
}

bool ReaderCore::testFile(std::string& why) {
  ZipEntryRecord rec;
  if (zip_ == nullptr) {
    why = "no archive is open";
    return false;
  }
  if (!currentRecord(rec, why)) return false;
  const std::string name = entryName(rec);
  const EntryType type = entryType(rec, name);
  if (type == EntryType::kFolder) return true;
  EntryStream in;
  if (!in.open(archive_, rec, password_)) {
    why = in.why();
    return false;
  }
  if (type == EntryType::kLink) {
    std::vector<char> chunk(kChunk);
    ssize_t got;
    while ((got = in.read(chunk.data(), chunk.size())) > 0) continue;
    if (got < 0) why = in.why();
    return got == 0;
  }
  DiscardTarget nowhere;
  const ContentOutcome outcome = traits_.writeContent(in, nowhere);
  if (!outcome.ok()) why = outcome.why;
  return outcome.ok();
}

}  // namespace velzip
