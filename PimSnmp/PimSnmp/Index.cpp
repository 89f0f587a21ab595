#include "PimSnmp/PimSnmp/Index.h"

#include <array>
#include <charconv>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

#include "platform/Lanet/Hash.h"

namespace Routing::Pim::Snmp {

// Named, not anonymous: the IndexOps members that use these have external linkage.
namespace index_codec {

using ::Snmp::InetAddress;
using ::Snmp::InetVersion;
using ::Snmp::Oid;
using OidSpan = std::span<const uint64_t>;

template <class Field, class T>
auto& member(T& index) {
  return index.*Field::member;
}

template <class T>
constexpr auto fieldNames() {
  return std::apply(
      [](const auto&... f) { return std::array<std::string_view, sizeof...(f)>{f.name...}; },
      T::fields);
}

// Decimal digits, a leading '-' only for signed types; the whole text must be consumed.
template <typename N>
bool parseNumber(std::string_view text, N& out) {
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, out);
  return !text.empty() && ec == std::errc() && ptr == end;
}

template <class T>
bool readFields(OidSpan& in, T& out);

// How each kind of field is appended to and read from an OID and parsed from its text. read
// consumes the field from the front of `in`; parse returns false, or throws with a reason, for
// a value that is not the field's.
template <class Kind>
struct Codec;

template <>
struct Codec<IndexKind::IpAddress> {
  static void append(Oid& oid, const Lanet::IpGenAddr& v) { ::Snmp::appendIpAddress(oid, v); }
  static bool read(OidSpan& in, Lanet::IpGenAddr& v) { return ::Snmp::readIpAddress(in, v); }
  static bool parse(std::string_view text, Lanet::IpGenAddr& v) {
    const auto addr = Lanet::IpGenAddr::parse(text);
    if (addr) v = *addr;
    return addr.has_value();
  }
  static void append(Oid& oid, Lanet::IpAddr v) {
    const auto octets = v.bytes();
    oid.insert(oid.end(), octets.begin(), octets.end());
  }
  static bool read(OidSpan& in, Lanet::IpAddr& v) {
    Lanet::IpGenAddr addr;
    if (!::Snmp::readIpAddress(in, addr)) return false;
    v = addr.v4();
    return true;
  }
  static bool parse(std::string_view text, Lanet::IpAddr& v) {
    const auto addr = Lanet::IpAddr::parse(text);
    if (addr) v = *addr;
    return addr.has_value();
  }
};

// The mask's octets are the uint32's bytes in memory, since it is kept in network byte order.
template <>
struct Codec<IndexKind::Mask> {
  static void append(Oid& oid, uint32_t v) {
    std::array<uint8_t, 4> octets;
    std::memcpy(octets.data(), &v, octets.size());
    oid.insert(oid.end(), octets.begin(), octets.end());
  }
  static bool read(OidSpan& in, uint32_t& v) {
    Lanet::IpGenAddr addr;
    if (!::Snmp::readIpAddress(in, addr)) return false;
    std::memcpy(&v, addr.bytes().data(), sizeof(v));
    return true;
  }
  static bool parse(std::string_view text, uint32_t& v) { return parseNumber(text, v); }
};

template <>
struct Codec<IndexKind::Int32> {
  static void append(Oid& oid, int32_t v) { ::Snmp::appendInt32(oid, v); }
  static bool read(OidSpan& in, int32_t& v) { return ::Snmp::readInt32(in, v); }
  static bool parse(std::string_view text, int32_t& v) { return parseNumber(text, v); }
};

template <>
struct Codec<IndexKind::Unsigned32> {
  static void append(Oid& oid, uint32_t v) { ::Snmp::appendUnsigned32(oid, v); }
  static bool read(OidSpan& in, uint32_t& v) { return ::Snmp::readUnsigned32(in, v); }
  static bool parse(std::string_view text, uint32_t& v) { return parseNumber(text, v); }
};

// The store keeps any uint32_t; only the table's INTEGER encoding (IndexParts.h) bounds it.
template <>
struct Codec<IndexKind::NonNegativeInteger> : Codec<IndexKind::Unsigned32> {};

template <>
struct Codec<IndexKind::InetAddress> {
  static void append(Oid& oid, const InetAddress& v) { ::Snmp::appendTypedInetAddress(oid, v); }
  static bool read(OidSpan& in, InetAddress& v) { return ::Snmp::readTypedInetAddress(in, v); }
  static bool parse(std::string_view text, InetAddress& v) {
    v = InetAddress::parse(text);
    return true;
  }
};

template <>
struct Codec<IndexKind::InetVersion> {
  static void append(Oid& oid, InetVersion v) {
    ::Snmp::appendUnsigned32(oid, static_cast<uint32_t>(v));
  }
  static bool read(OidSpan& in, InetVersion& v) {
    uint32_t value = 0;
    if (!::Snmp::readUnsigned32(in, value) || !::Snmp::isValidInetVersion(value)) return false;
    v = static_cast<InetVersion>(value);
    return true;
  }
  static bool parse(std::string_view text, InetVersion& v) {
    const auto version = ::Snmp::inetVersionFromString(text);
    if (version) v = *version;
    return version.has_value();
  }
};

// IMPLIED octets: a name that is a prefix of another sorts first, as in std::string. Reading
// takes the rest of the OID.
template <>
struct Codec<IndexKind::ImpliedName> {
  static void append(Oid& oid, const Lanet::IntfId& v) {
    for (const char c : v.name()) oid.push_back(static_cast<unsigned char>(c));
  }
  static bool read(OidSpan& in, Lanet::IntfId& v) {
    std::string name;
    name.reserve(in.size());
    for (const uint64_t sub : in) {
      if (sub > 255) return false;
      name.push_back(static_cast<char>(static_cast<unsigned char>(sub)));
    }
    in = {};
    v = Lanet::IntfId(std::move(name));
    return true;
  }
  static bool parse(std::string_view text, Lanet::IntfId& v) {
    v = Lanet::IntfId(text);
    return true;
  }
};

template <>
struct Codec<IndexKind::Nested> {
  template <class T>
  static void append(Oid& oid, const T& v) {
    v.toOid(oid);
  }
  template <class T>
  static bool read(OidSpan& in, T& v) {
    return readFields(in, v);
  }
  template <class T>
  static bool parse(std::string_view text, T& v) {
    v = T::parse(text);
    return true;
  }
};

template <class Field>
using CodecOf = Codec<typename Field::Kind>;

template <class T>
bool readFields(OidSpan& in, T& out) {
  return std::apply(
      [&](const auto&... f) {
        return (CodecOf<std::remove_cvref_t<decltype(f)>>::read(
                    in, member<std::remove_cvref_t<decltype(f)>>(out)) &&
                ...);
      },
      T::fields);
}

// Hashing folds every field's words into one accumulator and mixes once at the end: the store's
// hash index hashes a key per insert, erase and GET, and a full mix per field (per word of an
// InetAddress) cost more than the look-up it serves.
constexpr uint64_t fold(uint64_t h, uint64_t word) {
  h = (h ^ word) * 0x9e3779b97f4a7c15ULL;
  return h ^ (h >> 32);
}
uint64_t foldField(uint64_t h, const Lanet::IpGenAddr& v) {
  return fold(h, v.hash());
}
uint64_t foldField(uint64_t h, Lanet::IpAddr v) {
  return fold(h, v.value());
}
uint64_t foldField(uint64_t h, const InetAddress& v) {
  std::array<uint8_t, InetAddress::kMaxOctets> octets{};
  std::memcpy(octets.data(), v.octets().data(), v.size());
  uint64_t words[2];
  uint32_t last;
  static_assert(sizeof words + sizeof last == InetAddress::kMaxOctets);
  std::memcpy(words, octets.data(), sizeof words);
  std::memcpy(&last, octets.data() + sizeof words, sizeof last);
  h = fold(h,
           (static_cast<uint64_t>(v.type()) << 32) | (static_cast<uint64_t>(v.size()) << 8) | last);
  return fold(fold(h, words[0]), words[1]);
}
uint64_t foldField(uint64_t h, const Lanet::IntfId& v) {
  return fold(h, v.hash());
}
uint64_t foldField(uint64_t h, uint32_t v) {
  return fold(h, v);
}
uint64_t foldField(uint64_t h, int32_t v) {
  return fold(h, static_cast<uint32_t>(v));
}
uint64_t foldField(uint64_t h, InetVersion v) {
  return fold(h, static_cast<uint32_t>(v));
}
template <IndexType T>
uint64_t foldField(uint64_t h, const T& v) {
  return fold(h, v.hash(0));
}

// Reads "Value('Routing::Pim::Snmp::<type>', ** {'<k1>': <v1>, ..., '<kn>': <vn>})" one field at
// a time, in key order. A value runs to the next ", '<next key>': ", or for the last key to the
// closing "})" that must end the text; so values may contain anything but that separator.
class TextReader {
 public:
  TextReader(std::string_view text, std::string_view type, std::span<const std::string_view> keys)
      : text_(text), rest_(text), type_(type), keys_(keys) {
    expect("Value('Routing::Pim::Snmp::");
    expect(type);
    expect("', ** {");
  }

  template <class Codec, class V>
  void read(V& out) {
    const std::string_view key = keys_[field_];
    const std::string_view value = next();
    bool ok = false;
    try {
      ok = Codec::parse(value, out);
    } catch (const std::exception& e) {
      failValue(key, value, e.what());
    }
    if (!ok) failValue(key, value);
  }

 private:
  std::string_view next() {
    if (field_ > 0) expect(", ");
    expect("'");
    expect(keys_[field_]);
    expect("': ");
    ++field_;
    std::string_view value;
    if (field_ == keys_.size()) {
      if (!rest_.ends_with("})")) fail("missing closing \"})\" at the end");
      value = rest_.substr(0, rest_.size() - 2);
      rest_ = {};
    } else {
      const std::string separator = fmt::format(", '{}': ", keys_[field_]);
      const size_t end = rest_.find(separator);
      if (end == std::string_view::npos) fail(fmt::format("no \"{}\" follows", separator));
      value = rest_.substr(0, end);
      rest_ = rest_.substr(end);
    }
    return value;
  }

  void expect(std::string_view literal) {
    if (!rest_.starts_with(literal)) fail(fmt::format("expected \"{}\"", literal));
    rest_.remove_prefix(literal.size());
  }

  [[noreturn]] void fail(std::string_view why) const {
    throw std::invalid_argument(
        fmt::format("Routing::Pim::Snmp::{} text '{}': {}", type_, text_, why));
  }

  [[noreturn]] void failValue(std::string_view key, std::string_view value,
                              std::string_view why = {}) const {
    fail(why.empty() ? fmt::format("bad '{}' value '{}'", key, value)
                     : fmt::format("bad '{}' value '{}' ({})", key, value, why));
  }

  std::string_view text_;
  std::string_view rest_;
  std::string_view type_;
  std::span<const std::string_view> keys_;
  size_t field_ = 0;
};

}  // namespace index_codec

using namespace index_codec;

template <class T>
size_t IndexOps<T>::hash(size_t seed) const {
  const T& self = static_cast<const T&>(*this);
  size_t h = seed;
  std::apply(
      [&](const auto&... f) {
        ((h = foldField(h, member<std::remove_cvref_t<decltype(f)>>(self))), ...);
      },
      T::fields);
  return Lanet::hashMix(h);
}

template <class T>
void IndexOps<T>::toOid(Oid& oid) const {
  const T& self = static_cast<const T&>(*this);
  std::apply(
      [&](const auto&... f) {
        (CodecOf<std::remove_cvref_t<decltype(f)>>::append(
             oid, member<std::remove_cvref_t<decltype(f)>>(self)),
         ...);
      },
      T::fields);
}

template <class T>
bool IndexOps<T>::fromOid(OidSpan oid, T& out) {
  T v;
  if (!readFields(oid, v) || !oid.empty()) return false;
  out = v;
  return true;
}

template <class T>
std::string IndexOps<T>::text() const {
  const T& self = static_cast<const T&>(*this);
  std::string out = fmt::format("Value('Routing::Pim::Snmp::{}', ** {{", T::kTypeName);
  const char* separator = "";
  std::apply(
      [&](const auto&... f) {
        ((fmt::format_to(std::back_inserter(out), "{}'{}': {}", separator, f.name,
                         member<std::remove_cvref_t<decltype(f)>>(self)),
          separator = ", "),
         ...);
      },
      T::fields);
  out += "})";
  return out;
}

template <class T>
T IndexOps<T>::parse(std::string_view text) {
  static constexpr auto kKeys = fieldNames<T>();
  TextReader in(text, T::kTypeName, kKeys);
  T v;
  std::apply(
      [&](const auto&... f) {
        (in.read<CodecOf<std::remove_cvref_t<decltype(f)>>>(
             member<std::remove_cvref_t<decltype(f)>>(v)),
         ...);
      },
      T::fields);
  return v;
}

template struct IndexOps<PimIpMrouteEntryIndex>;
template struct IndexOps<PimIpMrouteNextHopEntryIndex>;
template struct IndexOps<IpMcastRouteEntryIndex>;
template struct IndexOps<IpMcastRouteNextHopEntryIndex>;
template struct IndexOps<NextHopEntryIndexWithIntfId>;
template struct IndexOps<PimRPSetEntryIndex>;
template struct IndexOps<PimCandidateRPEntryIndex>;
template struct IndexOps<IpMcastInterfaceEntryIndex>;

uint32_t prefixLength(const Lanet::IpGenAddr& addr) {
  if (addr.isUnspecified()) return 0;
  return Lanet::addressBits(addr.af());
}

uint32_t maskFromLength(uint32_t len) {
  if (len == 0 || len > 32) return 0;
  const uint32_t hostOrder = len == 32 ? 0xFFFFFFFFu : ~(0xFFFFFFFFu >> len);
  const std::array<uint8_t, 4> octets = Lanet::IpAddr(hostOrder).bytes();
  uint32_t mask;
  std::memcpy(&mask, octets.data(), sizeof(mask));
  return mask;
}

Lanet::IpAddr ipv4IndexAddress(const Lanet::IpGenAddr& addr) {
  if (!addr.isV4()) {
    throw std::invalid_argument(
        fmt::format("{} is not an IPv4 address: IPv4-only index", addr.toString()));
  }
  return addr.v4();
}

PimIpMrouteEntryIndex pimIpMrouteEntryIndexFromRouteKey(const RouteKey& key) {
  const uint32_t sMask = key.source.isUnspecified() ? 0 : 0xFFFFFFFFu;
  return PimIpMrouteEntryIndex(key.group, key.source, sMask);
}

PimIpMrouteNextHopEntryIndex pimIpMrouteNextHopEntryIndexFromRouteKey(const RouteKey& key,
                                                                      int32_t ifIndex) {
  const PimIpMrouteEntryIndex route = pimIpMrouteEntryIndexFromRouteKey(key);
  return PimIpMrouteNextHopEntryIndex(route.group, route.source, route.sMask, ifIndex, route.group);
}

IpMcastRouteEntryIndex IpMcastRouteEntryIndex::fromRouteKey(const RouteKey& key) {
  return IpMcastRouteEntryIndex(InetAddress::fromIpGenAddr(key.group), prefixLength(key.group),
                                InetAddress::fromIpGenAddr(key.source), prefixLength(key.source));
}

IpMcastRouteNextHopEntryIndex IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(
    const RouteKey& key, int ifIndex) {
  const IpMcastRouteEntryIndex route = IpMcastRouteEntryIndex::fromRouteKey(key);
  return IpMcastRouteNextHopEntryIndex(route.groupAddr, route.groupLength, route.sourceAddr,
                                       route.sourceLength, ifIndex, route.groupAddr);
}

}  // namespace Routing::Pim::Snmp
