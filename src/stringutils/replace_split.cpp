#include <string>
#include <vector>

#include "velzip/StringUtils.h"

namespace StringUtils {

void Replace(std::string& text, const std::string& what, const std::string& with) {
  if (what.empty() || text.find(what) == std::string::npos) return;
  text = StringFindAndReplace<char>(text, what, with);
}

std::string StringFindAndReplace(const std::string& text, const std::string& what,
                                 const std::string& with) {
  return StringFindAndReplace<char>(text, what, with);
}

int SplitStrings(std::vector<std::string>& pieces, const std::string& text,
                 const std::string& separator) {
  pieces.clear();
  if (text.empty()) return 0;
  if (separator.empty()) {
    pieces.push_back(text);
    return 1;
  }
  size_t start = 0;
  for (size_t pos = text.find(separator); pos != std::string::npos;
       pos = text.find(separator, start)) {
    pieces.emplace_back(text, start, pos - start);
    start = pos + separator.size();
  }
  // The rest, even when the text ends with the separator.
  pieces.emplace_back(text, start);
  return static_cast<int>(pieces.size());
}

// Only the last piece is ever split further, and the list order decides which
// separator splits it. The last piece is always a suffix of the text (or a
// prefix of such a suffix), so positions into the text stand in for copies.
int SplitStrings(std::vector<std::string>& pieces, const std::string& text,
                 const std::vector<std::string>& separators) {
  const size_t before = pieces.size();
  // First occurrence of each separator at or after some earlier start; it stays
  // valid until start passes it.
  std::vector<size_t> next(separators.size(), std::string::npos);
  for (size_t i = 0; i < separators.size(); ++i)
    if (!separators[i].empty()) next[i] = text.find(separators[i]);

  size_t start = 0;
  for (;;) {
    size_t lastEnd = std::string::npos;  // end of the last piece; npos: the whole suffix
    bool split = false;
    for (size_t i = 0; i < separators.size(); ++i) {
      if (next[i] == std::string::npos) continue;
      if (next[i] < start) {
        next[i] = text.find(separators[i], start);
        if (next[i] == std::string::npos) continue;
      }
      lastEnd = next[i];
      const size_t restStart = next[i] + separators[i].size();
      if (restStart < text.size()) {
        pieces.emplace_back(text, start, lastEnd - start);
        start = restStart;
        split = true;
        break;
      }
      // An empty rest: the next separator is looked for in the same suffix.
    }
    if (!split) {
      pieces.emplace_back(text, start,
                          lastEnd == std::string::npos ? std::string::npos : lastEnd - start);
      break;
    }
  }
  return static_cast<int>(pieces.size() - before);
}

std::string CombineStrings(const std::vector<std::string>& pieces, const std::string& separator) {
  std::string combined;
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (i != 0) combined += separator;
    combined += pieces[i];
  }
  return combined;
}

std::string Trim(const std::string& text, const std::string& characters) {
  const size_t first = text.find_first_not_of(characters);
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(characters);
  return text.substr(first, last - first + 1);
}

std::string& AppendQuotedString(std::string& list, const std::string& value) {
  if (!list.empty()) list += ",";
  list += "'";
  list += StringFindAndReplace(value, "'", "''");
  list += "'";
  return list;
}

}  // namespace StringUtils
