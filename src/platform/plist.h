// Property lists as the file utilities walk them: dictionaries, arrays and
// strings. Every other value kind is kept only as "something else", so a walk
// can tell a wrong type from a missing key.
#ifndef VELZIP_PLATFORM_PLIST_H
#define VELZIP_PLATFORM_PLIST_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace velzip {

class PlistValue {
 public:
  enum class Kind { Other, String, Array, Dictionary };

  PlistValue() = default;
  static PlistValue string(std::string text);
  static PlistValue array();
  static PlistValue dictionary();

  Kind kind() const { return kind_; }
  bool isString() const { return kind_ == Kind::String; }
  bool isArray() const { return kind_ == Kind::Array; }
  bool isDictionary() const { return kind_ == Kind::Dictionary; }

  // The text of a string; empty for anything else.
  const std::string& text() const { return text_; }
  // Array items, or dictionary values in the order keys() gives them.
  const std::vector<PlistValue>& items() const { return items_; }
  const std::vector<std::string>& keys() const { return keys_; }

  // Dictionary lookup; null when absent or when this is not a dictionary.
  const PlistValue* find(const std::string& key) const;
  // Lookup of a string value; null when absent or of another kind.
  const std::string* findString(const std::string& key) const;

  // Building (used for reports made in-process and by tests). append() on an
  // array adds an item; set() on a dictionary adds or replaces a key.
  PlistValue& append(PlistValue item);
  PlistValue& set(const std::string& key, PlistValue value);

 private:
  Kind kind_ = Kind::Other;
  std::string text_;
  std::vector<std::string> keys_;
  std::vector<PlistValue> items_;
};

// Parses an XML or binary property list. False for anything that is not one,
// and for lists nested deeper than kPlistMaxDepth or that would expand
// (binary lists share objects) into more nodes than the parser should build.
constexpr int kPlistMaxDepth = 128;
bool parsePropertyList(const void* data, size_t size, PlistValue& out);

}  // namespace velzip

#endif  // VELZIP_PLATFORM_PLIST_H
