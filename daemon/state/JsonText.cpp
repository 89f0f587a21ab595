// JSON text to a Json tree, through RapidJSON's SAX reader.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <fmt/format.h>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include "daemon/state/StateDocument.h"
#include "daemon/state/Syntax.h"

namespace PimSnmpd {

namespace {

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

// Numbers

// Whether a number that a double cannot hold lies above one in magnitude (then it overflows;
// below, it underflows to zero). Counts the first significant digit's decimal place.
bool aboveOne(std::string_view token) {
  const size_t e = token.find_first_of("eE");
  const std::string_view mantissa = token.substr(0, e);
  const size_t first = mantissa.find_first_of("123456789");
  if (first == std::string_view::npos) return false;
  const size_t point = std::min(mantissa.find('.'), mantissa.size());
  int64_t place = first < point ? static_cast<int64_t>(point - first - 1)
                                : -static_cast<int64_t>(first - point);
  if (e != std::string_view::npos) {
    std::string_view digits = token.substr(e + 1);
    if (digits.front() == '+') digits.remove_prefix(1);
    int64_t exponent = 0;
    // Exponents past int64 only keep their sign.
    if (std::from_chars(digits.data(), digits.data() + digits.size(), exponent).ec != std::errc{}) {
      exponent = digits.front() == '-' ? INT64_MIN / 2 : INT64_MAX / 2;
    }
    place += exponent;
  }
  return place >= 0;
}

// The integer a whole token spells, when it fits a T.
template <typename T>
std::optional<T> wholeInteger(const char* first, const char* last) {
  T v;
  const auto [end, ec] = std::from_chars(first, last, v);
  if (end != last || ec != std::errc{}) return std::nullopt;
  return v;
}

// The value of a number token the reader has checked: an integer that fits as uint64
// (non-negative) or int64 (negative), nlohmann's own typing, else the nearest double; empty
// above a double's range. from_chars rounds exactly; RapidJSON's own full-precision
// conversion misreads a zero with an exponent.
std::optional<Json> numberValue(std::string_view token) {
  const char* first = token.data();
  const char* last = first + token.size();
  const bool negative = token.front() == '-';
  if (negative) {
    if (auto v = wholeInteger<int64_t>(first, last)) return Json(*v);
  } else if (auto v = wholeInteger<uint64_t>(first, last)) {
    return Json(*v);
  }
  double d;
  if (std::from_chars(first, last, d).ec == std::errc{}) return Json(d);
  if (aboveOne(token)) return std::nullopt;
  return Json(negative ? -0.0 : 0.0);
}

// Parsing

// Builds the document tree from RapidJSON's SAX reader, whose tokenizer is several times
// faster than nlohmann's (a feed of routes is mostly text to scan), and refuses duplicate
// member names and excessive nesting, which a plain parse silently accepts.
class DomBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, DomBuilder> {
 public:
  // `text` is what the reader reads from `buffer`, for the offsets of refusals.
  DomBuilder(ValidationErrors& errors, std::string_view text, const char* buffer,
             const ObjectDone* done)
      : errors_(errors), text_(text), buffer_(buffer), done_(done) {
    // Deep enough for a document (11 levels) in one allocation, not one per doubling.
    stack_.reserve(16);
  }

  Json& root() { return root_; }
  // Whether the builder itself stopped the parse (its reason is in the errors).
  bool refused() const { return refused_; }

  bool Null() { return value(Json()); }
  bool Bool(bool v) { return value(Json(v)); }
  // Numbers arrive as their text (kParseNumbersAsStringsFlag), in place in the buffer.
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
    if (std::optional<Json> v = numberValue({text, length})) return value(std::move(*v));
    // The reader's own words for the overflows it catches itself (1e309).
    errors_.push_back({"", syntaxError(text_, static_cast<size_t>(text - buffer_),
                                       "Number too big to be stored in double.")});
    refused_ = true;
    return false;
  }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    return value(Json(std::string(text, length)));
  }

  bool StartObject() { return open(Json::object()); }
  bool EndObject(rapidjson::SizeType) {
    if (done_ != nullptr && stack_.size() == done_->depth + 1 && errors_.empty()) objectDone();
    return close();
  }
  bool StartArray() { return open(Json::array()); }
  bool EndArray(rapidjson::SizeType) { return close(); }

  bool Key(const char* text, rapidjson::SizeType length, bool) {
    // One descent places the member; a duplicate's later value replaces the earlier one, and
    // the error refuses the text anyway.
    Frame& f = stack_.back();
    Json::object_t& members = f.node->get_ref<Json::object_t&>();
    // Writers that sort their members (a dump, the FRR feeder) need no descent: each member
    // goes last.
    if (members.empty() || MemberNameLess()(members.rbegin()->first, {text, length})) {
      f.member = &*members.emplace_hint(members.end(), std::piecewise_construct,
                                        std::forward_as_tuple(text, length), std::tuple<>());
      return true;
    }
    auto [it, inserted] = members.try_emplace(std::string(text, length));
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

  // The object on top of the stack is complete: its path is the members its ancestors are
  // reading, when every ancestor is an object.
  void objectDone() {
    std::string_view path[kMaxJsonDepth];
    for (size_t i = 0; i + 1 < stack_.size(); ++i) {
      if (!stack_[i].node->is_object()) return;
      path[i] = stack_[i].member->first;
    }
    done_->f(std::span<const std::string_view>(path, stack_.size() - 1), *stack_.back().node,
             root_);
  }

  bool refused_ = false;
  ValidationErrors& errors_;
  std::string_view text_;
  const char* buffer_;
  const ObjectDone* done_;
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

}  // namespace

JsonParseResult parseJson(std::string_view text) {
  return parseJson(text, ObjectDone{});
}

JsonParseResult parseJson(std::string_view text, const ObjectDone& done) {
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
  DomBuilder builder(result.errors, text, buffer.data(), done.f ? &done : nullptr);
  rapidjson::InsituStringStream in(buffer.data());
  rapidjson::Reader reader;
  // Strict RFC 8259 text: valid UTF-8, one value, no comments, no NaN. Checking UTF-8 costs
  // the reader as much again as scanning strings; ASCII text, the usual feed, needs no check.
  constexpr unsigned kStrict = rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;
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
