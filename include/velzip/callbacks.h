/* velzip: progress callbacks shared by every writer and reader.
 *
 * A writer or reader reports each entry to its callback: state 1 when an entry
 * is about to be processed, state 2 after each block of data, state 3 when the
 * entry is finished (readers also use state 3, with isDirectory set, at the
 * start of a folder entry). At the start of an entry the callback may answer
 * kZLibSkip or kZLibAbort; during data any non-zero answer stops the entry.
 * entryName and filePath are valid only during the call. */
#ifndef VELZIP_CALLBACKS_H
#define VELZIP_CALLBACKS_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
/* A fixed underlying type so that any int32 a host returns is a valid value. */
enum ZLibCallbackAction : int32_t { kZLibContinue = 0, kZLibAbort = 1, kZLibSkip = 2 };
#else
typedef enum ZLibCallbackAction {
  kZLibContinue = 0,
  kZLibAbort = 1,
  kZLibSkip = 2
} ZLibCallbackAction;
#endif

enum { kZLibStateEntryStart = 1, kZLibStateEntryData = 2, kZLibStateEntryDone = 3 };

typedef struct ZLibCBData {
  int32_t state;         /* kZLibStateEntry* */
  uint32_t bytes;        /* bytes handled since the previous report; 0 in states 1 and 3 */
  void* userData;        /* as given to setCallback */
  const char* entryName; /* states 1 and 3 only, else NULL */
  const char* filePath;  /* states 1 and 3 only, else NULL */
  bool isDirectory;      /* readers only */
} ZLibCBData;

typedef ZLibCallbackAction (*ZLibCallback)(ZLibCBData*);

#endif /* VELZIP_CALLBACKS_H */
