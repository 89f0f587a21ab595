#pragma once

// What a MIB module file says about a served object beyond what the agent needs to serve it:
// its SYNTAX (base type, textual convention, enumeration labels, ranges), UNITS and a one-line
// DESCRIPTION. Declared beside each column's serving rule in the table descriptors and read by
// tools/mibgen, which writes the module files from them.

#include <cstdint>
#include <utility>
#include <vector>

namespace Routing::Pim::Snmp::Mib {

// SMIv2 base types, as written in a SYNTAX clause.
enum class Base : uint8_t {
  kInteger,  // INTEGER with named numbers
  kInteger32,
  kUnsigned32,
  kGauge32,
  kCounter32,
  kCounter64,
  kTimeTicks,
  kIpAddress,
  kOctetString,
};

struct NamedNumber {
  int64_t value;
  const char* label;
};

// One alternative of a value range (integers) or SIZE (octet strings); lo == hi for one value.
struct Range {
  int64_t lo;
  int64_t hi;
};

struct TextualConvention;

struct Syntax {
  Base base = Base::kInteger32;
  const TextualConvention* tc = nullptr;  // when set, written by name; base is the TC's base
  std::vector<NamedNumber> enums;         // labels of an INTEGER (in value order)
  std::vector<Range> ranges;              // value range, or SIZE of an octet string

  // A restriction of this syntax to `alternatives`.
  Syntax restricted(std::vector<Range> alternatives) const {
    Syntax s = *this;
    s.ranges = std::move(alternatives);
    return s;
  }
};

struct TextualConvention {
  const char* name;         // "InetAddressType"
  const char* displayHint;  // nullptr for none
  Syntax syntax;            // the underlying syntax (never itself a TC)
  const char* description;
};

// Syntax helpers for descriptors.
inline Syntax base(Base b, std::vector<Range> ranges = {}) {
  return {b, nullptr, {}, std::move(ranges)};
}
inline Syntax integer32(int64_t lo, int64_t hi) {
  return base(Base::kInteger32, {{lo, hi}});
}
inline Syntax enumeration(std::vector<NamedNumber> labels) {
  return {Base::kInteger, nullptr, std::move(labels), {}};
}
inline Syntax tc(const TextualConvention& t) {
  return {t.syntax.base, &t, {}, {}};
}

struct ObjectType {
  Syntax syntax;
  const char* description = nullptr;
  const char* units = nullptr;
};

// An ObjectType as one expression (descriptor macros take it as a single argument).
inline ObjectType object(Syntax syntax, const char* description, const char* units = nullptr) {
  return {std::move(syntax), description, units};
}

// An index component's object: its sub-identifier in its own entry, or 0 with no syntax when
// another table's entry defines it (pimIpMRouteTable is indexed by ipMRouteTable's columns).
struct IndexColumn {
  unsigned number = 0;
  ObjectType object;

  bool imported() const { return number == 0; }
};

inline IndexColumn indexColumn(unsigned number, Syntax syntax, const char* description) {
  return {number, {std::move(syntax), description, nullptr}};
}
inline const IndexColumn kImported{};

// The label of `value` in an enumerated syntax (its TC's labels when it names one), nullptr for
// none.
inline const char* labelOf(const Syntax& syntax, int64_t value) {
  const auto& labels = syntax.tc ? syntax.tc->syntax.enums : syntax.enums;
  for (const auto& n : labels) {
    if (n.value == value) return n.label;
  }
  return nullptr;
}

}  // namespace Routing::Pim::Snmp::Mib
