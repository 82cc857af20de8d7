// velzip: string utilities.
//
// Texts are byte strings holding UTF-8, which is also the native encoding on
// Linux, so the native/UTF-8 pairs copy. Functions taking a trailing void* accept
// a host logger handle (may be null); problems are logged at level 40 through
// that handle, else the utilities' sink, else the utilities' logger object.
#ifndef VELZIP_STRINGUTILS_H
#define VELZIP_STRINGUTILS_H

#include <cstdint>
#include <string>
#include <vector>

#include "velzip/export.h"

namespace StringUtils {

// --- Text and number conversions -------------------------------------------

VELZIP_API bool NativeToUTF8(const char* text, std::string& out, void* logger);
VELZIP_API bool NativeToUTF8(const std::string& text, std::string& out, void* logger);
VELZIP_API std::string NativeToUTF8(const std::string& text, void* logger);
VELZIP_API bool UTF8ToNative(const char* text, std::string& out, void* logger);
VELZIP_API bool UTF8ToNative(const std::string& text, std::string& out, void* logger);
VELZIP_API std::string UTF8ToNative(const std::string& text, void* logger);
// Canonical composition (NFC). Text that is not valid UTF-8 is returned unchanged.
VELZIP_API bool UTF8ToNFCNative(const char* text, std::string& out, void* logger);
VELZIP_API bool UTF8ToNFCNative(const std::string& text, std::string& out, void* logger);

VELZIP_API bool IntToNativeString(int value, std::string& out, void* logger);
VELZIP_API bool LongToNativeString(long long value, std::string& out);
VELZIP_API bool DoubleToNativeString(double value, std::string& out);
VELZIP_API bool PtrToNativeStr(const void* ptr, std::string& out, void* logger);
VELZIP_API std::string IntToUTF8(int value);
VELZIP_API std::string IntToNativeString(int value);
VELZIP_API std::string LongToUTF8(long value);

VELZIP_API int UTF8ToInt(const std::string& text, void* logger);
VELZIP_API int NativeStringToInt(const std::string& text, void* logger);
VELZIP_API long long UTF8ToLong(const std::string& text, void* logger);
// Hexadecimal when the text begins with "0x" or "0X", else decimal.
VELZIP_API long long NativeStringToLong(const std::string& text, void* logger);
VELZIP_API void* NativeStrToPtr(const std::string& text, void* logger);

// Bounded copy: dst always terminated; false (and a log line) when truncated.
// srcSize is accepted for compatibility and never read.
VELZIP_API bool StringCopy(char* dst, int dstSize, const char* src, int srcSize, void* logger);
// "Error <code> <strerror>"; code -1 means the current errno.
VELZIP_API std::string GetLastErrorString(int code);
VELZIP_API std::string ToLower(const std::string& text);
VELZIP_API std::string ToUpper(const std::string& text);
VELZIP_API bool IsMultiByte(const std::wstring& text);
// printf into a 4096-byte buffer; longer results are cut to 4095 bytes.
VELZIP_API std::string StdStringFromStringWithFormat(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

// --- Identifiers and encodings -----------------------------------------------

// A new random (version 4) GUID: 36 upper-case characters, no braces.
VELZIP_API bool GUIDString(std::string& out);
// Replaces a GUID text (braces and dashes allowed) by its 22-character URL-safe
// Base64 form ('-' for '+', '_' for '/'). The last two characters are always
// dropped, which is only the padding for the 16 bytes of a GUID.
VELZIP_API bool GUIDToBase64(std::string& guid, void* logger);
// Appends the Base64 text of the bytes to out (out is not cleared).
VELZIP_API bool EncodeDataInBase64(const char* data, int length, std::string& out, void* logger);
// Lenient decoding: characters outside the alphabet are skipped and padded
// groups may be followed by more groups. length is only tested for non-zero;
// the text is read to its terminating zero byte.
VELZIP_API bool DecodeBase64Data(const char* text, int length, std::string& out, void* logger);
// As above; *buffer gets a new[] copy of the bytes (released with delete[]) when
// buffer is non-null and at least one byte was decoded.
VELZIP_API bool DecodeBase64Data(const char* text, int length, unsigned char** buffer, int& size,
                                 void* logger);
// Percent-encodes in place: everything but letters, digits and "-._~!'()*"
// becomes upper-case %XX of its UTF-8 bytes ('%' and NUL included). False (text
// unchanged) when the text is not valid UTF-8.
VELZIP_API bool GetURLEncodedString(std::string& text);
// Replaces every %XX in place; false (text unchanged) when the input is not
// valid UTF-8, a '%' lacks two hex digits, or the result is not valid UTF-8.
VELZIP_API bool GetURLDecodedString(std::string& text);

// --- String algorithms, versions and patterns --------------------------------

// Replaces every occurrence left to right without rescanning inserted text.
// An empty `what` leaves the text unchanged.
VELZIP_API void Replace(std::string& text, const std::string& what, const std::string& with);
VELZIP_API std::string StringFindAndReplace(const std::string& text, const std::string& what,
                                            const std::string& with);

template <class CharT, class Traits, class Alloc>
std::basic_string<CharT, Traits, Alloc> StringFindAndReplace(
    const std::basic_string<CharT, Traits, Alloc>& text,
    const std::basic_string<CharT, Traits, Alloc>& what,
    const std::basic_string<CharT, Traits, Alloc>& with) {
  if (what.empty()) return text;
  // Built afresh rather than replaced in place: linear however many matches.
  std::basic_string<CharT, Traits, Alloc> result;
  typename std::basic_string<CharT, Traits, Alloc>::size_type from = 0;
  for (auto pos = text.find(what); pos != text.npos; pos = text.find(what, from)) {
    result.append(text, from, pos - from).append(with);
    from = pos + what.size();
  }
  if (from == 0) return text;
  return result.append(text, from, text.npos);
}

// Clears pieces, then splits at every separator keeping empty pieces; the empty
// text gives no piece. Returns the number of pieces. An empty separator gives
// the whole text as one piece.
VELZIP_API int SplitStrings(std::vector<std::string>& pieces, const std::string& text,
                            const std::string& separator);
// Appends to pieces; only the last piece is split further and separators are
// tried in list order (empty ones are ignored). Returns the number of pieces
// added.
VELZIP_API int SplitStrings(std::vector<std::string>& pieces, const std::string& text,
                            const std::vector<std::string>& separators);
VELZIP_API std::string CombineStrings(const std::vector<std::string>& pieces,
                                      const std::string& separator);
// Strips the bytes of `characters` (a set) from both ends.
VELZIP_API std::string Trim(const std::string& text, const std::string& characters);
// Appends ",'value'" (no comma when list is empty) with quotes doubled.
VELZIP_API std::string& AppendQuotedString(std::string& list, const std::string& value);

struct PackageVersion {
  int32_t major;
  int32_t minor;
  int32_t revision;
  int32_t build;
};

// Sets only the fields the dotted text has a part for (atoi of each part).
VELZIP_API bool GetPackageVersionFromPackageVersionString(const std::string& text,
                                                          PackageVersion& version);
// -1, 0 or 1, field by field.
VELZIP_API int ComparePackageVersion(const PackageVersion& a, const PackageVersion& b);

// Perl-syntax search anywhere in the text; false on an invalid pattern.
VELZIP_API bool MatchRegularExpression(const std::string& pattern, const std::string& text,
                                       bool caseSensitive);
// Replaces every match ("$1", "$&" expanded). An invalid pattern throws
// std::logic_error: pass only patterns known to be valid.
VELZIP_API std::string ReplaceRegularExpression(const std::string& pattern, const std::string& text,
                                                const std::string& replacement, bool caseSensitive);
// Inflates a gzip member. Corrupt or truncated data still succeeds with what
// could be inflated; false only when the inflater cannot start or end, or the
// output does not fit in memory.
VELZIP_API bool GunzipString(const std::string& compressed, std::string& out);

}  // namespace StringUtils

#endif  // VELZIP_STRINGUTILS_H
