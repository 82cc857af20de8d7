// What an entry's data is wrapped in, from its record alone: the encryption
// and, beneath it, the compression method. WinZip AES entries give method 99
// in the record and keep the real one in their extra field.
#ifndef VELZIP_UNZIP_DATA_LAYERS_H
#define VELZIP_UNZIP_DATA_LAYERS_H

#include <cstddef>
#include <string>

#include "unzip/zip_record.h"

namespace velzip {

enum class Encryption { kNone, kZipCrypto, kAes, kStrong };

struct DataLayers {
  Encryption encryption = Encryption::kNone;
  bool hasAesField = false;  // kAes only
  WinZipAesField aes;
  unsigned method = 0;  // the method the data is compressed with
};

DataLayers dataLayers(const ZipEntryRecord& rec);

// Why velzip cannot read data so wrapped whatever the password; empty when
// it can.
std::string unreadableLayers(const DataLayers& layers);

// One word for the listing: "deflate", "aes+bzip2", "method 42".
std::string layersMethodName(const DataLayers& layers);

// AES key bytes for the field's strength; 0 when it names none.
size_t aesKeyLength(uint8_t strength);

}  // namespace velzip

#endif  // VELZIP_UNZIP_DATA_LAYERS_H
