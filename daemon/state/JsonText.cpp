// JSON text to a Json tree, through RapidJSON's SAX reader.

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include "daemon/state/StateDocument.h"
#include "daemon/state/Syntax.h"

namespace PimSnmpd {

namespace {

// Parsing

// Builds the document tree from RapidJSON's SAX reader, whose tokenizer is several times
// faster than nlohmann's (a feed of routes is mostly text to scan), and refuses duplicate
// member names and excessive nesting, which a plain parse silently accepts.
class DomBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, DomBuilder> {
 public:
  explicit DomBuilder(ValidationErrors& errors) : errors_(errors) {}

  Json& root() { return root_; }
  // Whether the builder itself stopped the parse (its reason is in the errors).
  bool refused() const { return refused_; }

  bool Null() { return value(Json()); }
  bool Bool(bool v) { return value(Json(v)); }
  // Non-negative integers arrive as unsigned, negative ones as signed: nlohmann's own typing.
  bool Int(int v) { return value(Json(static_cast<Json::number_integer_t>(v))); }
  bool Uint(unsigned v) { return value(Json(static_cast<Json::number_unsigned_t>(v))); }
  bool Int64(int64_t v) { return value(Json(static_cast<Json::number_integer_t>(v))); }
  bool Uint64(uint64_t v) { return value(Json(static_cast<Json::number_unsigned_t>(v))); }
  bool Double(double v) { return value(Json(v)); }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    return value(Json(std::string(text, length)));
  }

  bool StartObject() { return open(Json::object()); }
  bool EndObject(rapidjson::SizeType) { return close(); }
  bool StartArray() { return open(Json::array()); }
  bool EndArray(rapidjson::SizeType) { return close(); }

  bool Key(const char* text, rapidjson::SizeType length, bool) {
    // One descent places the member; a duplicate's later value replaces the earlier one, and
    // the error refuses the text anyway.
    Frame& f = stack_.back();
    auto [it, inserted] = f.node->get_ref<Json::object_t&>().try_emplace(std::string(text, length));
    f.member = &*it;
    if (!inserted) errors_.push_back({currentPath(), "duplicate member name"});
    return true;
  }

 private:
  struct Frame {
    Json* node;
    // The member being read, in an object (map nodes stay put while the object grows).
    Json::object_t::value_type* member = nullptr;
  };

  // The pointer of the value being read; only built for messages.
  std::string currentPath() const {
    std::string path;
    for (const Frame& f : stack_) {
      path += '/';
      if (f.node->is_array()) {
        path += std::to_string(f.node->size() - 1);
      } else if (f.member != nullptr) {
        Syntax::appendPointerToken(path, f.member->first);
      }
    }
    return path;
  }

  // Where the next value goes.
  Json* slot() {
    if (stack_.empty()) return &root_;
    Frame& f = stack_.back();
    if (f.node->is_array()) {
      f.node->push_back(Json());
      return &f.node->back();
    }
    return &f.member->second;
  }

  bool value(Json v) {
    *slot() = std::move(v);
    return true;
  }

  bool open(Json container) {
    Json* node = slot();
    if (stack_.size() >= kMaxJsonDepth) {
      errors_.push_back(
          {currentPath(), fmt::format("nesting deeper than {} levels", kMaxJsonDepth)});
      refused_ = true;
      return false;
    }
    *node = std::move(container);
    stack_.push_back({node});
    return true;
  }

  bool close() {
    stack_.pop_back();
    return true;
  }

  bool refused_ = false;
  ValidationErrors& errors_;
  Json root_;
  std::vector<Frame> stack_;
};

bool isAscii(std::string_view text) {
  // Eight bytes at a time: the compiler vectorizes the OR.
  uint64_t high = 0;
  size_t i = 0;
  for (; i + 8 <= text.size(); i += 8) {
    uint64_t word;
    std::memcpy(&word, text.data() + i, sizeof(word));
    high |= word;
  }
  for (; i < text.size(); ++i) high |= static_cast<unsigned char>(text[i]);
  return (high & 0x8080808080808080ULL) == 0;
}

// "invalid JSON: parse error at line 3, column 7: <why>", lines and columns counted from 1 in
// bytes.
std::string syntaxError(std::string_view text, size_t offset, std::string_view why) {
  offset = std::min(offset, text.size());
  size_t line = 1;
  size_t lineStart = 0;
  for (size_t i = 0; i < offset; ++i) {
    if (text[i] == '\n') {
      ++line;
      lineStart = i + 1;
    }
  }
  return fmt::format("invalid JSON: parse error at line {}, column {}: {}", line,
                     offset - lineStart + 1, why);
}

}  // namespace

JsonParseResult parseJson(std::string_view text) {
  JsonParseResult result;
  // The reader works on a NUL-terminated copy, in place: strings are unescaped where they lie,
  // sixteen bytes at a time, and the vector loads may look up to 15 bytes past the end, which
  // the padding keeps inside the buffer. A NUL byte is JSON nowhere (inside strings control
  // characters are escaped) and would end the copy early, so it is refused first.
  if (const size_t nul = text.find('\0'); nul != std::string_view::npos) {
    result.errors.push_back({"", syntaxError(text, nul, "NUL byte")});
    return result;
  }
  constexpr size_t kPadding = 16;
  std::string buffer;
  buffer.reserve(text.size() + kPadding);
  buffer.append(text);
  buffer.append(kPadding, '\0');
  DomBuilder builder(result.errors);
  rapidjson::InsituStringStream in(buffer.data());
  rapidjson::Reader reader;
  // Strict RFC 8259 text: valid UTF-8, one value, no comments, no NaN. Checking UTF-8 costs
  // the reader as much again as scanning strings; ASCII text, the usual feed, needs no check.
  constexpr unsigned kStrict = rapidjson::kParseInsituFlag | rapidjson::kParseFullPrecisionFlag;
  const bool parsed =
      isAscii(text) ? reader.Parse<kStrict>(in, builder)
                    : reader.Parse<kStrict | rapidjson::kParseValidateEncodingFlag>(in, builder);
  if (!parsed) {
    if (!builder.refused()) {
      result.errors.push_back(
          {"", syntaxError(text, reader.GetErrorOffset(),
                           rapidjson::GetParseError_En(reader.GetParseErrorCode()))});
    }
    return result;
  }
  if (result.errors.empty()) result.value = std::move(builder.root());
  return result;
}

}  // namespace PimSnmpd
