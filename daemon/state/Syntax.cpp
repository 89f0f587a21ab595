#include "daemon/state/Syntax.h"

#include <cmath>

#include <fmt/format.h>

#include "daemon/state/DocumentSchema.h"
#include "daemon/state/StateDocument.h"

namespace PimSnmpd::Syntax {

using Lanet::AddressFamily;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;

// Appends the escaped token to `out`, without a temporary string.
void appendPointerToken(std::string& out, std::string_view name) {
  size_t from = 0;
  for (size_t i = 0; i < name.size(); ++i) {
    if (name[i] != '~' && name[i] != '/') continue;
    out.append(name.substr(from, i - from));
    out += name[i] == '~' ? "~0" : "~1";
    from = i + 1;
  }
  out.append(name.substr(from));
}

std::string_view familyName(AddressFamily af) {
  return Lanet::toString(af);
}

std::string_view familyLabel(AddressFamily af) {
  return af == AddressFamily::ipv4 ? "IPv4" : af == AddressFamily::ipv6 ? "IPv6" : "unknown";
}

std::optional<uint64_t> asUnsigned(const Json& v) {
  if (v.is_number_unsigned()) return v.get<uint64_t>();
  if (v.is_number_integer()) {
    const int64_t i = v.get<int64_t>();
    if (i < 0) return std::nullopt;
    return static_cast<uint64_t>(i);
  }
  if (v.is_number_float()) {
    const double d = v.get<double>();
    // An integral float below 2^64 (1.0 is an integer to JSON Schema as well).
    if (d >= 0 && d < 18446744073709551616.0 && std::floor(d) == d) {
      return static_cast<uint64_t>(d);
    }
  }
  return std::nullopt;
}

std::string typeDescription(const Json& v) {
  switch (v.type()) {
    case Json::value_t::null:
      return "null";
    case Json::value_t::object:
      return "an object";
    case Json::value_t::array:
      return "an array";
    case Json::value_t::string:
      return "a string";
    case Json::value_t::boolean:
      return "a boolean";
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
      return "an integer";
    case Json::value_t::number_float:
      return "a number";
    default:
      return "a binary value";
  }
}

// Parses an address of family `af`; on failure returns the reason.
std::optional<IpGenAddr> readAddress(std::string_view text, AddressFamily af, std::string& why) {
  const auto a = IpGenAddr::parse(text);
  if (!a || a->af() == AddressFamily::unknown) {
    why = fmt::format("'{}' is not an IP address", text);
    return std::nullopt;
  }
  if (a->af() != af) {
    why = fmt::format("'{}' is an {} address, but this is the {} section", text,
                      familyLabel(a->af()), familyName(af));
    return std::nullopt;
  }
  return a;
}

std::optional<IpGenAddr> readHostAddress(std::string_view text, AddressFamily af, AddrKind kind,
                                         std::string& why) {
  auto a = readAddress(text, af, why);
  if (!a) return std::nullopt;
  if (a->isMulticast()) {
    why = fmt::format("'{}' is a multicast address; a unicast address is needed", text);
    return std::nullopt;
  }
  if (kind == AddrKind::unicast && a->isUnspecified()) {
    why = fmt::format("'{}' is the unspecified address; a unicast address is needed", text);
    return std::nullopt;
  }
  return a;
}

std::optional<IpGenPrefix> readPrefix(std::string_view text, AddressFamily af, std::string& why) {
  const auto p = IpGenPrefix::parse(text);
  if (!p || p->af() == AddressFamily::unknown) {
    why = fmt::format("'{}' is not an address with a prefix length (like '{}')", text,
                      af == AddressFamily::ipv6 ? "ff00::/8" : "224.0.0.0/4");
    return std::nullopt;
  }
  if (p->af() != af) {
    why = fmt::format("'{}' is an {} prefix, but this is the {} section", text,
                      familyLabel(p->af()), familyName(af));
    return std::nullopt;
  }
  // "/024" parses as 24; like addresses, lengths are written without leading zeros.
  const std::string_view length = text.substr(text.rfind('/') + 1);
  if (length.size() > 1 && length.front() == '0') {
    why = fmt::format("'{}' is not in canonical form; write '{}/{}'", text,
                      text.substr(0, text.rfind('/')), p->maskLen());
    return std::nullopt;
  }
  return p;
}

// A multicast group range with no host bits, as the group ranges of BSR and RP records are.
std::optional<IpGenPrefix> readGroupRange(std::string_view text, AddressFamily af,
                                          std::string& why) {
  auto p = readPrefix(text, af, why);
  if (!p) return std::nullopt;
  const uint8_t minLen = af == AddressFamily::ipv4 ? 4 : 8;
  if (!p->address().isMulticast() || p->maskLen() < minLen) {
    why = fmt::format("'{}' is not a multicast group range (within {})", text,
                      af == AddressFamily::ipv4 ? "224.0.0.0/4" : "ff00::/8");
    return std::nullopt;
  }
  if (!(p->masked() == *p)) {
    why = fmt::format("'{}' has host bits set; write '{}'", text, p->masked().toString());
    return std::nullopt;
  }
  return p;
}

// Member names that are addresses or prefixes must be written canonically, so that two
// spellings of one key cannot both occur in one map.
bool canonical(std::string_view text, const std::string& canonicalText, std::string& why) {
  if (text == canonicalText) return true;
  why = fmt::format("'{}' is not in canonical form; write '{}'", text, canonicalText);
  return false;
}

std::optional<Routing::Pim::RouteKey> readRouteKey(std::string_view text, AddressFamily af,
                                                   std::string& why) {
  const size_t comma = text.find(',');
  if (comma == std::string_view::npos || text.find(',', comma + 1) != std::string_view::npos) {
    why = fmt::format("'{}' is not a route key: write 'S,G' or '*,G'", text);
    return std::nullopt;
  }
  const std::string_view sourceText = text.substr(0, comma);
  const std::string_view groupText = text.substr(comma + 1);
  if (af == AddressFamily::ipv4) {
    // Every route of a patch is keyed twice (routes and FIB) and each key is read by the
    // validator and the applier: a well-formed IPv4 key is read straight into the key. Anything
    // else takes the general path below, which says what is wrong.
    const auto group = Lanet::IpAddr::parse(groupText);
    if (group && group->isMulticast()) {
      if (sourceText == "*") return Routing::Pim::RouteKey::starG(IpGenAddr(*group));
      const auto source = Lanet::IpAddr::parse(sourceText);
      if (source && !source->isMulticast() && !source->isUnspecified()) {
        return Routing::Pim::RouteKey{IpGenAddr(*source), IpGenAddr(*group)};
      }
    }
  }
  const auto group = readAddress(groupText, af, why);
  if (!group) return std::nullopt;
  if (!group->isMulticast()) {
    why = fmt::format("group '{}' is not a multicast address", groupText);
    return std::nullopt;
  }
  Routing::Pim::RouteKey key = Routing::Pim::RouteKey::starG(*group);
  if (sourceText != "*") {
    const auto source = readAddress(sourceText, af, why);
    if (!source) return std::nullopt;
    if (source->isMulticast() || source->isUnspecified()) {
      why = fmt::format("source '{}' is not a unicast address (write '*' for any source)",
                        sourceText);
      return std::nullopt;
    }
    key.source = *source;
  }
  // The IPv4 parser admits only the canonical dotted quad (no leading zeros), so only IPv6 text
  // can differ from its canonical form.
  if (af != AddressFamily::ipv4 && !canonical(text, routeKeyText(key), why)) return std::nullopt;
  return key;
}

namespace {

// The offset of the first control character of `name` (a byte up to `highest`, DEL, or a C1
// control U+0080..U+009F, which UTF-8 writes as 0xC2 0x80..0x9F); the text is valid UTF-8.
std::optional<size_t> controlCharacter(std::string_view name, char highest) {
  for (size_t i = 0; i < name.size(); ++i) {
    const auto c = static_cast<unsigned char>(name[i]);
    if (c <= static_cast<unsigned char>(highest) || c == 0x7f) return i;
    if (c == 0xc2 && i + 1 < name.size() && static_cast<unsigned char>(name[i + 1]) <= 0x9f) {
      return i;
    }
  }
  return std::nullopt;
}

}  // namespace

bool validIntfName(std::string_view name, std::string& why) {
  if (name.empty() || name.size() > Schema::kMaxIntfNameLen) {
    why = fmt::format("interface names are 1 to {} bytes long", Schema::kMaxIntfNameLen);
    return false;
  }
  if (const auto at = controlCharacter(name, ' ')) {
    why = fmt::format("interface names contain no spaces or control characters (byte {})", *at);
    return false;
  }
  return true;
}

bool validVrfName(std::string_view name, std::string& why) {
  if (name.empty()) {
    why = "VRF names are not empty";
    return false;
  }
  if (name.size() > Schema::kMaxVrfNameLen) {
    why = fmt::format(
        "VRF name is {} bytes long; at most {} are allowed (the VRF is served in the SNMP "
        "context of its name, and SNMP context names hold at most {} bytes)",
        name.size(), Schema::kMaxVrfNameLen, Schema::kMaxVrfNameLen);
    return false;
  }
  if (const auto at = controlCharacter(name, '\x1f')) {
    why = fmt::format("VRF names contain no control characters (byte {})", *at);
    return false;
  }
  return true;
}

}  // namespace PimSnmpd::Syntax
