/* velzip: symbol visibility. The library is built with hidden visibility by
 * default; only declarations marked VELZIP_API are exported. */
#ifndef VELZIP_EXPORT_H
#define VELZIP_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define VELZIP_API __attribute__((visibility("default")))
#else
#define VELZIP_API
#endif

#endif /* VELZIP_EXPORT_H */
