#include "platform/plist.h"

#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

namespace velzip {

PlistValue PlistValue::string(std::string text) {
  PlistValue v;
  v.kind_ = Kind::String;
  v.text_ = std::move(text);
  return v;
}

PlistValue PlistValue::array() {
  PlistValue v;
  v.kind_ = Kind::Array;
  return v;
}

PlistValue PlistValue::dictionary() {
  PlistValue v;
  v.kind_ = Kind::Dictionary;
  return v;
}

const PlistValue* PlistValue::find(const std::string& key) const {
  if (kind_ != Kind::Dictionary) return nullptr;
  for (size_t i = 0; i < keys_.size(); ++i) {
    if (keys_[i] == key) return &items_[i];
  }
  return nullptr;
}

const std::string* PlistValue::findString(const std::string& key) const {
  const PlistValue* v = find(key);
  return v != nullptr && v->isString() ? &v->text_ : nullptr;
}

PlistValue& PlistValue::append(PlistValue item) {
  items_.push_back(std::move(item));
  return items_.back();
}

PlistValue& PlistValue::set(const std::string& key, PlistValue value) {
  for (size_t i = 0; i < keys_.size(); ++i) {
    if (keys_[i] == key) return items_[i] = std::move(value);
  }
  keys_.push_back(key);
  items_.push_back(std::move(value));
  return items_.back();
}

namespace {

// The parser recurses once per nesting level and copies objects that binary
// lists share, so untrusted bytes are checked before it sees them: a few
// hundred bytes could otherwise exhaust the stack or expand exponentially.

constexpr size_t kMaxXmlContainers = 4096;
constexpr uint64_t kMinNodeBudget = 1u << 18;

bool hasPrefix(const char* p, const char* end, const char* prefix) {
  const size_t n = std::strlen(prefix);
  return static_cast<size_t>(end - p) >= n && std::memcmp(p, prefix, n) == 0;
}

const char* skipPast(const char* p, const char* end, const char* marker) {
  const size_t n = std::strlen(marker);
  for (; p + n <= end; ++p) {
    if (std::memcmp(p, marker, n) == 0) return p + n;
  }
  return end;
}

bool isNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-' || c == '.' || c == ':';
}

// Nesting of <array>/<dict> elements. Comments, CDATA, declarations and
// processing instructions are stepped over; the count of all opened
// containers is a backstop should the parser read some construct otherwise.
bool xmlNestingAcceptable(const char* p, size_t size) {
  const char* end = p + size;
  int depth = 0;
  size_t opened = 0;
  while (p < end) {
    if (*p != '<') {
      ++p;
      continue;
    }
    if (hasPrefix(p, end, "<!--")) {
      p = skipPast(p + 4, end, "-->");
    } else if (hasPrefix(p, end, "<![CDATA[")) {
      p = skipPast(p + 9, end, "]]>");
    } else if (hasPrefix(p, end, "<?")) {
      p = skipPast(p + 2, end, "?>");
    } else if (hasPrefix(p, end, "<!")) {
      p = skipPast(p + 2, end, ">");
    } else {
      const bool closing = p + 1 < end && p[1] == '/';
      const char* name = p + (closing ? 2 : 1);
      const char* after = hasPrefix(name, end, "array")  ? name + 5
                          : hasPrefix(name, end, "dict") ? name + 4
                                                         : nullptr;
      const char* close = skipPast(p + 1, end, ">");
      if (after != nullptr && (after == end || !isNameChar(*after))) {
        if (closing) {
          if (depth > 0) --depth;
        } else if (close == end || close[-2] != '/') {
          if (++depth > kPlistMaxDepth || ++opened > kMaxXmlContainers) return false;
        }
      }
      p = close;
    }
  }
  return true;
}

uint64_t readBigEndian(const uint8_t* p, size_t width) {
  uint64_t v = 0;
  for (size_t i = 0; i < width; ++i) v = (v << 8) | p[i];
  return v;
}

// Walks the object graph of a binary list without building it: depth,
// cycles, the node count the parser's copy of shared objects would make, and
// dictionary keys holding a NUL (the parser asserts on those).
class BinaryShape {
 public:
  BinaryShape(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool acceptable() {
    if (size_ < 8 + 32) return false;
    const uint8_t* trailer = data_ + size_ - 32;
    offsetWidth_ = trailer[6];
    refWidth_ = trailer[7];
    const uint64_t count = readBigEndian(trailer + 8, 8);
    const uint64_t top = readBigEndian(trailer + 16, 8);
    const uint64_t table = readBigEndian(trailer + 24, 8);
    objectsEnd_ = size_ - 32;
    if (offsetWidth_ < 1 || offsetWidth_ > 8 || refWidth_ < 1 || refWidth_ > 8) return false;
    if (count == 0 || top >= count || table > objectsEnd_ ||
        count > (objectsEnd_ - table) / offsetWidth_) {
      return false;
    }
    count_ = static_cast<size_t>(count);
    table_ = static_cast<size_t>(table);
    const uint64_t budget = count_ > kMinNodeBudget ? count_ : kMinNodeBudget;
    std::vector<uint8_t> state(count_, kUnseen);
    std::vector<uint8_t> keyChecked(count_, 0);
    std::vector<uint64_t> nodes(count_, 0);

    std::vector<Frame> stack;
    Frame first{static_cast<size_t>(top)};
    if (!children(first)) return false;
    stack.push_back(first);
    state[first.object] = kOpen;
    while (!stack.empty()) {
      Frame& f = stack.back();
      if (f.next == f.count) {
        nodes[f.object] = f.nodes;
        state[f.object] = kDone;
        const uint64_t made = f.nodes;
        stack.pop_back();
        if (!stack.empty() && (stack.back().nodes += made) > budget) return false;
        continue;
      }
      const uint64_t child = readBigEndian(data_ + f.refs + f.next * refWidth_, refWidth_);
      const bool isKey = f.dictionary && f.next < f.count / 2;
      ++f.next;
      if (child >= count_) return false;
      Frame next{static_cast<size_t>(child)};
      if (isKey && !keyChecked[next.object]) {
        if (!keyAcceptable(next.object)) return false;
        keyChecked[next.object] = 1;
      }
      if (state[next.object] == kOpen) return false;
      if (state[next.object] == kUnseen) {
        if (!children(next)) return false;
        if (next.count == 0) {
          nodes[next.object] = 1;
          state[next.object] = kDone;
        }
      }
      if (state[next.object] == kDone) {
        if ((f.nodes += nodes[next.object]) > budget) return false;
        continue;
      }
      // Only containers nest.
      if (stack.size() >= static_cast<size_t>(kPlistMaxDepth)) return false;
      state[next.object] = kOpen;
      stack.push_back(next);
    }
    return true;
  }

 private:
  enum : uint8_t { kUnseen, kOpen, kDone };

  struct Frame {
    size_t object;
    size_t refs = 0, count = 0, next = 0;
    bool dictionary = false;
    uint64_t nodes = 1;
  };

  // An object's type nibble, its element count (inline or as a following
  // int) and where its contents start.
  bool header(size_t object, uint8_t& type, uint64_t& n, size_t& pos) const {
    const uint64_t offset = readBigEndian(data_ + table_ + object * offsetWidth_, offsetWidth_);
    if (offset >= objectsEnd_) return false;
    pos = static_cast<size_t>(offset);
    const uint8_t marker = data_[pos++];
    type = marker >> 4;
    n = marker & 0x0F;
    if (n == 0x0F && ((type >= 0x4 && type <= 0x7) || (type >= 0xA && type <= 0xD))) {
      if (pos >= objectsEnd_ || (data_[pos] >> 4) != 0x1) return false;
      const size_t width = size_t{1} << (data_[pos] & 0x0F);
      if (width > 8 || width > objectsEnd_ - pos - 1) return false;
      n = readBigEndian(data_ + pos + 1, width);
      pos += 1 + width;
    }
    return true;
  }

  // Where the references of a container start and how many there are; leaves
  // and empty containers get none.
  bool children(Frame& f) const {
    uint8_t type = 0;
    uint64_t n = 0;
    size_t pos = 0;
    if (!header(f.object, type, n, pos)) return false;
    if (type < 0xA || type > 0xD) return true;
    f.dictionary = type == 0xD;
    if (f.dictionary) {
      if (n > std::numeric_limits<uint64_t>::max() / 2) return false;
      n *= 2;
    }
    if (n > (objectsEnd_ - pos) / refWidth_) return false;
    f.refs = pos;
    f.count = static_cast<size_t>(n);
    return true;
  }

  // ASCII (type 5) or UTF-16 (type 6) text without a NUL; other kinds are
  // left for the parser to refuse.
  bool keyAcceptable(size_t object) const {
    uint8_t type = 0;
    uint64_t n = 0;
    size_t pos = 0;
    if (!header(object, type, n, pos)) return false;
    if (type != 0x5 && type != 0x6) return true;
    const size_t unit = type == 0x5 ? 1 : 2;
    if (n > (objectsEnd_ - pos) / unit) return false;
    for (size_t i = 0; i < n; ++i) {
      const uint8_t* c = data_ + pos + i * unit;
      if (c[0] == 0 && (unit == 1 || c[1] == 0)) return false;
    }
    return true;
  }

  const uint8_t* data_;
  size_t size_;
  size_t objectsEnd_ = 0;
  size_t table_ = 0;
  size_t count_ = 0;
  size_t offsetWidth_ = 0;
  size_t refWidth_ = 0;
};

struct PlistFree {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistHandle = std::unique_ptr<void, PlistFree>;

// depth counts containers, as the checks above do.
bool convert(plist_t node, int depth, PlistValue& out) {
  switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
      uint64_t length = 0;
      const char* text = plist_get_string_ptr(node, &length);
      out = PlistValue::string(text != nullptr ? std::string(text, length) : std::string());
      return true;
    }
    case PLIST_ARRAY: {
      if (depth > kPlistMaxDepth) return false;
      out = PlistValue::array();
      const uint32_t n = plist_array_get_size(node);
      for (uint32_t i = 0; i < n; ++i) {
        PlistValue item;
        if (!convert(plist_array_get_item(node, i), depth + 1, item)) return false;
        out.append(std::move(item));
      }
      return true;
    }
    case PLIST_DICT: {
      if (depth > kPlistMaxDepth) return false;
      out = PlistValue::dictionary();
      plist_dict_iter iter = nullptr;
      plist_dict_new_iter(node, &iter);
      std::unique_ptr<void, decltype(&free)> iterOwner(iter, &free);
      if (iter == nullptr) return false;
      for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, iter, &key, &value);
        std::unique_ptr<char, decltype(&free)> keyOwner(key, &free);
        if (key == nullptr || value == nullptr) break;
        PlistValue item;
        if (!convert(value, depth + 1, item)) return false;
        out.set(key, std::move(item));
      }
      return true;
    }
    default:
      out = PlistValue();
      return true;
  }
}

}  // namespace

bool parsePropertyList(const void* data, size_t size, PlistValue& out) {
  if (data == nullptr || size == 0 || size > std::numeric_limits<uint32_t>::max()) return false;
  const char* bytes = static_cast<const char*>(data);
  const uint32_t length = static_cast<uint32_t>(size);
  if (plist_is_binary(bytes, length)) {
    if (!BinaryShape(static_cast<const uint8_t*>(data), size).acceptable()) return false;
  } else if (!xmlNestingAcceptable(bytes, size)) {
    return false;
  }
  plist_t root = nullptr;
  plist_from_memory(bytes, length, &root);
  PlistHandle owner(root);
  if (root == nullptr) return false;
  PlistValue parsed;
  if (!convert(root, 1, parsed)) return false;
  out = std::move(parsed);
  return true;
}

}  // namespace velzip
