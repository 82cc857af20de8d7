#include "unzip/data_layers.h"

#include <cstring>

#include "unzip/method_decoders.h"

namespace velzip {
namespace {

constexpr unsigned kMethodAes = 99;

std::string oneMethodName(unsigned method) {
  const char* name = methodName(method);
  return std::strcmp(name, "unknown") == 0 ? "method " + std::to_string(method) : name;
}

}  // namespace

size_t aesKeyLength(uint8_t strength) {
  return strength >= 1 && strength <= 3 ? 8u + 8u * strength : 0;
}

DataLayers dataLayers(const ZipEntryRecord& rec) {
  DataLayers layers;
  layers.method = rec.method;
  if ((rec.flag & kFlagEncrypted) == 0) return layers;
  if ((rec.flag & kFlagStrongEncryption) != 0) {
    layers.encryption = Encryption::kStrong;
  } else if (rec.method == kMethodAes) {
    layers.encryption = Encryption::kAes;
    layers.hasAesField = winZipAesField(rec.extra, layers.aes);
    if (layers.hasAesField) layers.method = layers.aes.method;
  } else {
    layers.encryption = Encryption::kZipCrypto;
  }
  return layers;
}

std::string unreadableLayers(const DataLayers& layers) {
  if (layers.encryption == Encryption::kStrong) return "PKWARE strong encryption is not supported";
  if (layers.encryption == Encryption::kAes) {
    if (!layers.hasAesField) return "AES encryption without its 0x9901 extra field";
    if (layers.aes.version != 1 && layers.aes.version != 2) {
      return "unknown AES encryption version " + std::to_string(layers.aes.version);
    }
    if (aesKeyLength(layers.aes.strength) == 0) {
      return "unknown AES key strength " + std::to_string(layers.aes.strength);
    }
  }
  if (!methodSupported(layers.method)) {
    return "unsupported compression method " + std::to_string(layers.method) + " (" +
           methodName(layers.method) + ")";
  }
  return std::string();
}

std::string layersMethodName(const DataLayers& layers) {
  if (layers.encryption != Encryption::kAes) return oneMethodName(layers.method);
  return layers.hasAesField ? "aes+" + oneMethodName(layers.method) : "aes";
}

}  // namespace velzip
