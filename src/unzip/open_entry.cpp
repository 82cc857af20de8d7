#include "unzip/open_entry.h"

namespace velzip {

int openCurrentEntry(unzFile zip, const char* password) {
  if (zip == nullptr) return UNZ_PARAMERROR;
  unz_file_info64 info;
  const int rc = unzGetCurrentFileInfo64(zip, &info, nullptr, 0, nullptr, 0, nullptr, 0);
  if (rc != UNZ_OK) return rc;
  // The system zip layer is built without decryption and refuses any
  // password, so one is handed on only for entries that are encrypted.
  const bool encrypted = (info.flag & 1u) != 0;
  if (password == nullptr || !encrypted) return unzOpenCurrentFile(zip);
  return unzOpenCurrentFilePassword(zip, password);
}

}  // namespace velzip
