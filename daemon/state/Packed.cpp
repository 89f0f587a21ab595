#include "daemon/state/Packed.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace PimSnmpd::Packed {

namespace {

namespace D = Description;

// The first byte says which form follows.
constexpr char kTyped = 't';
constexpr char kMsgpack = 'm';

// A time is whole seconds (a varint) or a double's bytes.
constexpr char kWholeTime = 0;
constexpr char kFractionalTime = 1;

void putText(std::string& out, std::string_view s) {
  putVarint(out, s.size());
  out.append(s);
}

// Index of `name` in `names`, or -1.
int indexOf(std::span<const std::string_view> names, std::string_view name) {
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i] == name) return static_cast<int>(i);
  }
  return -1;
}

bool nonNegativeInteger(const Json& v) {
  return v.is_number_unsigned() || (v.is_number_integer() && v.get<int64_t>() >= 0);
}

// Writes the typed form; false when `v` is not exactly what `d` describes (then `out` holds
// garbage and the caller falls back).
bool put(const D::Value& d, const Json& v, std::string& out) {
  switch (d.type) {
    case D::Type::text:
    case D::Type::address:
    case D::Type::interfaceAddress:
    case D::Type::interfaceRef:
      if (!v.is_string()) return false;
      putText(out, v.get_ref<const std::string&>());
      return true;
    case D::Type::integer:
      // Integral floats are valid but would come back as integers.
      if (!nonNegativeInteger(v)) return false;
      putVarint(out, v.get<uint64_t>());
      return true;
    case D::Type::time:
      if (nonNegativeInteger(v)) {
        out.push_back(kWholeTime);
        putVarint(out, v.get<uint64_t>());
        return true;
      }
      if (v.is_number_float()) {
        out.push_back(kFractionalTime);
        const double x = v.get<double>();
        char bytes[sizeof x];
        std::memcpy(bytes, &x, sizeof x);
        out.append(bytes, sizeof x);
        return true;
      }
      return false;
    case D::Type::boolean:
      if (!v.is_boolean()) return false;
      out.push_back(v.get<bool>() ? 1 : 0);
      return true;
    case D::Type::enumeration: {
      if (!v.is_string()) return false;
      const int i = indexOf(d.names, v.get_ref<const std::string&>());
      if (i < 0) return false;
      putVarint(out, static_cast<uint64_t>(i));
      return true;
    }
    case D::Type::flags:
    case D::Type::oifs:
      if (!v.is_array()) return false;
      putVarint(out, v.size());
      for (const Json& item : v) {
        if (!item.is_string()) return false;
        if (d.type == D::Type::oifs) {
          putText(out, item.get_ref<const std::string&>());
          continue;
        }
        const int i = indexOf(d.names, item.get_ref<const std::string&>());
        if (i < 0) return false;
        putVarint(out, static_cast<uint64_t>(i));
      }
      return true;
    case D::Type::object:
    case D::Type::section: {
      if (!v.is_object()) return false;
      const auto members = d.object->members;
      if (members.size() > 64) return false;
      uint64_t present = 0;
      size_t known = 0;
      const Json* found[64];
      for (size_t i = 0; i < members.size(); ++i) {
        found[i] = findMember(&v, members[i].name);
        if (found[i] == nullptr) continue;
        if (found[i]->is_null()) return false;
        present |= uint64_t{1} << i;
        ++known;
      }
      if (known != v.size()) return false;  // a member the description does not know
      putVarint(out, present);
      for (size_t i = 0; i < members.size(); ++i) {
        if ((present & (uint64_t{1} << i)) == 0) continue;
        if (!put(members[i].value, *found[i], out)) return false;
      }
      return true;
    }
    case D::Type::map:
      if (!v.is_object()) return false;
      putVarint(out, v.size());
      for (const auto& [name, item] : membersOf(v)) {
        if (item.is_null()) return false;
        putText(out, name);
        if (!put(*d.item, item, out)) return false;
      }
      return true;
  }
  return false;
}

// Reads what put() wrote. The input is the daemon's own output, so it is trusted.
class Reader {
 public:
  explicit Reader(std::string_view in) : in_(in) {}

  Json value(const D::Value& d) {
    switch (d.type) {
      case D::Type::text:
      case D::Type::address:
      case D::Type::interfaceAddress:
      case D::Type::interfaceRef:
        return Json(std::string(text()));
      case D::Type::integer:
        return Json(varint());
      case D::Type::time: {
        if (byte() == kWholeTime) return Json(varint());
        double x;
        std::memcpy(&x, in_.data(), sizeof x);
        in_.remove_prefix(sizeof x);
        return Json(x);
      }
      case D::Type::boolean:
        return Json(byte() != 0);
      case D::Type::enumeration:
        return Json(std::string(d.names[varint()]));
      case D::Type::flags:
      case D::Type::oifs: {
        Json out = Json::array();
        for (uint64_t n = varint(); n > 0; --n) {
          if (d.type == D::Type::oifs) {
            out.push_back(std::string(text()));
          } else {
            out.push_back(std::string(d.names[varint()]));
          }
        }
        return out;
      }
      case D::Type::object:
      case D::Type::section: {
        Json out = Json::object();
        const uint64_t present = varint();
        const auto members = d.object->members;
        for (size_t i = 0; i < members.size(); ++i) {
          if ((present & (uint64_t{1} << i)) == 0) continue;
          out.emplace(members[i].name, value(members[i].value));
        }
        return out;
      }
      case D::Type::map: {
        Json out = Json::object();
        auto& obj = out.get_ref<Json::object_t&>();
        for (uint64_t n = varint(); n > 0; --n) {
          std::string name(text());
          // Packed in order: each member goes at the end.
          obj.emplace_hint(obj.end(), std::move(name), value(*d.item));
        }
        return out;
      }
    }
    return Json();
  }

 private:
  char byte() {
    const char c = in_.front();
    in_.remove_prefix(1);
    return c;
  }
  uint64_t varint() { return takeVarint(in_); }
  std::string_view text() {
    const size_t n = varint();
    std::string_view s = in_.substr(0, n);
    in_.remove_prefix(n);
    return s;
  }

  std::string_view in_;
};

}  // namespace

void putVarint(std::string& out, uint64_t n) {
  while (n >= 0x80) {
    out.push_back(static_cast<char>((n & 0x7f) | 0x80));
    n >>= 7;
  }
  out.push_back(static_cast<char>(n));
}

uint64_t takeVarint(std::string_view& in) {
  uint64_t n = 0;
  for (int shift = 0;; shift += 7) {
    const auto b = static_cast<uint8_t>(in.front());
    in.remove_prefix(1);
    n |= uint64_t{b & 0x7fu} << shift;
    if ((b & 0x80) == 0) return n;
  }
}

void pack(const D::Value& d, const Json& v, std::string& out) {
  const size_t start = out.size();
  out.push_back(kTyped);
  if (put(d, v, out)) return;
  out.resize(start);
  out.push_back(kMsgpack);
  std::vector<uint8_t> bytes = Json::to_msgpack(v);
  out.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

Json unpack(const D::Value& d, std::string_view in) {
  const char form = in.front();
  in.remove_prefix(1);
  if (form == kMsgpack) return Json::from_msgpack(in.begin(), in.end());
  return Reader(in).value(d);
}

}  // namespace PimSnmpd::Packed
