#pragma once

// The spellings the state document accepts for names, addresses, prefixes and route keys, with
// the reason when a text is refused.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "daemon/state/Json.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Routing/Pim/RouteKey.h"

namespace PimSnmpd::Syntax {

// Appends the RFC 6901 escaped token to `out`.
void appendPointerToken(std::string& out, std::string_view name);

std::string_view familyName(Lanet::AddressFamily af);
// "IPv4", "IPv6", for messages.
std::string_view familyLabel(Lanet::AddressFamily af);

// A non-negative integer, or an integral float below 2^64 (1.0 is an integer to JSON Schema).
std::optional<uint64_t> asUnsigned(const Json& v);
// "an object", "a string", ...
std::string typeDescription(const Json& v);

enum class AddrKind {
  unicast,  // a host address: neither multicast nor unspecified
  unicastOrUnspecified,
};

// Each reader parses a text of family `af`; on failure it returns nullopt and sets `why`.
std::optional<Lanet::IpGenAddr> readAddress(std::string_view text, Lanet::AddressFamily af,
                                            std::string& why);
std::optional<Lanet::IpGenAddr> readHostAddress(std::string_view text, Lanet::AddressFamily af,
                                                AddrKind kind, std::string& why);
std::optional<Lanet::IpGenPrefix> readPrefix(std::string_view text, Lanet::AddressFamily af,
                                             std::string& why);
// A multicast group range with no host bits.
std::optional<Lanet::IpGenPrefix> readGroupRange(std::string_view text, Lanet::AddressFamily af,
                                                 std::string& why);
// "S,G" / "*,G", canonical.
std::optional<Routing::Pim::RouteKey> readRouteKey(std::string_view text, Lanet::AddressFamily af,
                                                   std::string& why);
// Whether `text` is `canonicalText`; else says how to write it.
bool canonical(std::string_view text, const std::string& canonicalText, std::string& why);

bool validIntfName(std::string_view name, std::string& why);
bool validVrfName(std::string_view name, std::string& why);

}  // namespace PimSnmpd::Syntax
