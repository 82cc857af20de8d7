// Entry names and link targets as text for a terminal and for JSON. Names
// are bytes: usually UTF-8, but a zip archive may hold anything, control
// characters included.
#ifndef VELZIP_TOOL_NAME_TEXT_H
#define VELZIP_TOOL_NAME_TEXT_H

#include <string>

namespace velzip_tool {

// Safe to print: control characters as \n, \t, \r or \xNN (C1 ones as
// \u0080 ... \u009f), bytes that are not UTF-8 as \xNN, a backslash as \\.
std::string printable(const std::string& text);

// A quoted JSON string: '"' and '\' escaped, control characters as \u00XX,
// each byte that is not UTF-8 as U+FFFD.
std::string jsonString(const std::string& text);

bool isUtf8(const std::string& text);
// Two lowercase hex digits per byte.
std::string hexBytes(const std::string& bytes);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_NAME_TEXT_H
