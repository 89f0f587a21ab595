#include "daemon/state/SchemaGen.h"

#include <string_view>

#include "daemon/state/Description.h"

namespace PimSnmpd {

namespace {

namespace D = Description;
using OJson = nlohmann::ordered_json;
using Lanet::AddressFamily;

// Patterns for the spellings a schema can express; the daemon checks the rest (canonical
// forms, host bits, unicast). IPv6 member names are canonical, so lower-case.
constexpr std::string_view kOctet = "(25[0-5]|2[0-4][0-9]|1[0-9]{2}|[1-9]?[0-9])";
constexpr std::string_view kV6Value = "[0-9A-Fa-f:.]*:[0-9A-Fa-f:.]*";
constexpr std::string_view kV6Name = "[0-9a-f:.]*:[0-9a-f:.]*";

std::string v4Address() {
  return std::string(kOctet) + "(\\." + std::string(kOctet) + "){3}";
}
// A multicast IPv4 address: the first octet 224..239.
std::string v4Group() {
  return "(22[4-9]|23[0-9])(\\." + std::string(kOctet) + "){3}";
}

std::string anchored(const std::string& p) {
  return "^" + p + "$";
}

OJson pattern(const std::string& p) {
  return {{"type", "string"}, {"pattern", anchored(p)}};
}

OJson addressSchema(AddressFamily af, bool name) {
  if (af == AddressFamily::ipv4) return pattern(v4Address());
  return pattern(std::string(name ? kV6Name : kV6Value));
}

OJson keySchema(D::Key key, AddressFamily af) {
  const bool v4 = af == AddressFamily::ipv4;
  switch (key) {
    case D::Key::interfaceName:
    case D::Key::interfaceRef:
      return {{"$ref", "#/$defs/interfaceName"}};
    case D::Key::vrfName:
      return {{"minLength", 1},
              {"maxLength", Schema::kMaxVrfNameLen},
              {"pattern", "^[^\\u0000-\\u001f\\u007f-\\u009f]+$"}};
    case D::Key::routeKey:
      return v4 ? pattern("(\\*|" + v4Address() + ")," + v4Group())
                : pattern("(\\*|" + std::string(kV6Name) + "),ff[0-9a-f]{0,2}:[0-9a-f:.]*");
    case D::Key::groupRange:
      return v4 ? pattern(v4Group() + "/([4-9]|[12][0-9]|3[0-2])")
                : pattern("ff[0-9a-f]{0,2}:[0-9a-f:.]*/([89]|[1-9][0-9]|1[01][0-9]|12[0-8])");
    case D::Key::address:
      return addressSchema(af, true);
  }
  return {};
}

OJson interfaceAddressSchema(AddressFamily af) {
  if (af == AddressFamily::ipv4) {
    // Unicast: neither 0.0.0.0 nor 224.0.0.0 and above.
    return pattern(
        "(?!0\\.0\\.0\\.0/)(25[0-5]|24[0-9]|2[01][0-9]|22[0-3]|1[0-9]{2}|[1-9]?[0-9])(\\." +
        std::string(kOctet) + "){3}/([0-9]|[12][0-9]|3[0-2])");
  }
  return pattern("(?![fF][fF][0-9A-Fa-f]{2}:)(?![0:.]+/)" + std::string(kV6Value) +
                 "/([0-9]|[1-9][0-9]|1[01][0-9]|12[0-8])");
}

OJson names(std::span<const std::string_view> list) {
  OJson out = OJson::array();
  for (std::string_view n : list) out.push_back(n);
  return out;
}

OJson objectSchema(const D::Object& d, AddressFamily af);

OJson valueSchema(const D::Value& v, AddressFamily af) {
  switch (v.type) {
    case D::Type::text:
      return {{"type", "string"}};
    case D::Type::integer:
      return {{"type", "integer"}, {"minimum", v.min}, {"maximum", v.max}};
    case D::Type::time:
      return {{"$ref", "#/$defs/time"}};
    case D::Type::boolean:
      return {{"type", "boolean"}};
    case D::Type::enumeration:
      return {{"enum", names(v.names)}};
    case D::Type::address:
      return addressSchema(af, false);
    case D::Type::interfaceAddress:
      return interfaceAddressSchema(af);
    case D::Type::interfaceRef:
      return {{"$ref", "#/$defs/interfaceName"}};
    case D::Type::flags:
      return {{"type", "array"}, {"uniqueItems", true}, {"items", {{"enum", names(v.names)}}}};
    case D::Type::oifs:
      return {
          {"type", "array"}, {"uniqueItems", true}, {"items", {{"$ref", "#/$defs/interfaceName"}}}};
    case D::Type::object:
      return objectSchema(*v.object, af);
    case D::Type::section:
      return {};  // by reference, per member name
    case D::Type::map:
      return {{"type", "object"},
              {"propertyNames", keySchema(v.key, af)},
              {"additionalProperties", valueSchema(*v.item, af)}};
  }
  return {};
}

OJson memberSchema(const D::Member& m, AddressFamily af) {
  OJson out = m.value.type == D::Type::section ? OJson{{"$ref", "#/$defs/" + std::string(m.name)}}
                                               : valueSchema(m.value, af);
  switch (m.fallback.kind) {
    case D::Default::Kind::integer:
      out["default"] = m.fallback.integer;
      break;
    case D::Default::Kind::boolean:
      out["default"] = m.fallback.integer != 0;
      break;
    case D::Default::Kind::name:
      out["default"] = m.fallback.name;
      break;
    default:
      break;
  }
  std::string text(m.description);
  if (m.fallback.kind == D::Default::Kind::time) {
    text += (text.empty() ? "" : " ") + std::string("Omitted: ") + std::string(m.fallback.time) +
            ", then kept.";
  }
  if (!m.feeds.empty()) {
    text += (text.empty() ? "" : " ") + std::string("Feeds ") + std::string(m.feeds) + ".";
  }
  if (!text.empty()) out["description"] = text;
  return out;
}

OJson objectSchema(const D::Object& d, AddressFamily af) {
  OJson props = OJson::object();
  OJson required = OJson::array();
  for (const D::Member& m : d.members) {
    props[std::string(m.name)] = memberSchema(m, af);
    if (m.required) required.push_back(m.name);
  }
  OJson out = {{"type", "object"}, {"additionalProperties", false}, {"properties", props}};
  if (!required.empty()) out["required"] = required;
  return out;
}

}  // namespace

nlohmann::ordered_json stateSchema() {
  OJson schema = {
      {"$schema", "https://json-schema.org/draft/2020-12/schema"},
      {"$id", "https://pimsnmp.invalid/state.schema.json"},
      {"title", "pimsnmpd platform state document"},
      {"description",
       "Generated from pimsnmpd's description of the document (daemon/state/Description.h); "
       "see docs/state-document.md. Not expressible here and checked by the daemon: interfaces "
       "named anywhere must be defined in /interfaces; FIB oifs must be in the family's "
       "fib.oifIndexes; ifIndex and OIF index uniqueness; canonical spelling of address, prefix "
       "and route-key member names; no host bits in group ranges."},
  };
  const OJson document = objectSchema(D::kDocument, AddressFamily::unknown);
  for (const auto& [key, value] : document.items()) schema[key] = value;
  OJson defs = {
      {"time",
       {{"type", "number"},
        {"minimum", 0},
        {"description", "Unix seconds; may be omitted (see the document's Times section)."}}},
      {"interfaceName",
       {{"type", "string"},
        {"minLength", 1},
        {"maxLength", Schema::kMaxIntfNameLen},
        {"pattern", "^[^\\u0000-\\u0020\\u007f-\\u009f]+$"}}},
  };
  for (const auto& [name, af] : Schema::kFamilies) {
    OJson family = objectSchema(D::kFamily, af);
    family["description"] = "The VRF's " + std::string(name) + " inputs.";
    defs[std::string(name)] = family;
  }
  schema["$defs"] = defs;
  return schema;
}

std::string stateSchemaText() {
  return stateSchema().dump(2) + "\n";
}

}  // namespace PimSnmpd
