#include <boost/regex.hpp>
#include <exception>
#include <stdexcept>
#include <string>

#include "velzip/StringUtils.h"

namespace StringUtils {

namespace {

boost::regex compile(const std::string& pattern, bool caseSensitive) {
  return boost::regex(
      pattern, caseSensitive ? boost::regex_constants::normal : boost::regex_constants::icase);
}

}  // namespace

bool MatchRegularExpression(const std::string& pattern, const std::string& text,
                            bool caseSensitive) {
  try {
    const std::string utf8Pattern = NativeToUTF8(pattern, nullptr);
    const std::string utf8Text = NativeToUTF8(text, nullptr);
    return boost::regex_search(utf8Text, compile(utf8Pattern, caseSensitive),
                               boost::regex_constants::match_default);
  } catch (const std::exception&) {
    return false;
  }
}

// Callers pass only patterns known to be good; a bad one (or a search Boost
// gives up on) surfaces as std::logic_error rather than as a plausible result.
std::string ReplaceRegularExpression(const std::string& pattern, const std::string& text,
                                     const std::string& replacement, bool caseSensitive) {
  try {
    const std::string utf8Pattern = NativeToUTF8(pattern, nullptr);
    const std::string utf8Text = NativeToUTF8(text, nullptr);
    const std::string utf8Replacement = NativeToUTF8(replacement, nullptr);
    const std::string replaced = boost::regex_replace(
        utf8Text, compile(utf8Pattern, caseSensitive), utf8Replacement,
        boost::regex_constants::match_default | boost::regex_constants::format_default);
    return UTF8ToNative(replaced, nullptr);
  } catch (const std::exception& e) {
    throw std::logic_error(std::string("ReplaceRegularExpression: ") + e.what());
  }
}

}  // namespace StringUtils
