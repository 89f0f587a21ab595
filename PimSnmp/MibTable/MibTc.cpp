#include "PimSnmp/MibTable/MibTc.h"

#include <cstdint>
#include <initializer_list>

#include "PimSnmp/PimSnmp/InterfaceEntry.h"
#include "PimSnmp/PimSnmp/PimInterfaceEntry.h"
#include "platform/Snmp/InetAddress.h"
#include "platform/Snmp/InetVersion.h"

namespace Routing::Pim::Snmp::Mib {

namespace {

// Labels of an enum the platform already names (toString returns literals).
template <class E>
std::vector<NamedNumber> labelsOf(std::initializer_list<E> values) {
  std::vector<NamedNumber> out;
  for (E v : values) out.push_back({static_cast<int64_t>(v), ::Snmp::toString(v).data()});
  return out;
}

constexpr int64_t kMaxIfIndex = INT32_MAX;

}  // namespace

const TextualConvention& truthValue() {
  // BoolToAsnInteger writes true as 1 and false as 2.
  static const TextualConvention t{"TruthValue", nullptr, enumeration({{1, "true"}, {2, "false"}}),
                                   "A boolean: true(1) or false(2)."};
  return t;
}

const TextualConvention& rowStatus() {
  static const TextualConvention t{
      "RowStatus", nullptr,
      enumeration({{PimInterfaceEntry::kRowStatusActive, "active"},
                   {2, "notInService"},
                   {3, "notReady"},
                   {4, "createAndGo"},
                   {5, "createAndWait"},
                   {6, "destroy"}}),
      "State of a conceptual row; this agent's rows always read active(1)."};
  return t;
}

const TextualConvention& storageType() {
  static const TextualConvention t{
      "StorageType", nullptr,
      enumeration({{1, "other"},
                   {2, "volatile"},
                   {3, "nonVolatile"},
                   {4, "permanent"},
                   {IpMcastInterfaceEntry::kStorageType, "readOnly"}}),
      "How a row is stored; this agent's rows read readOnly(5): SNMP cannot change them."};
  return t;
}

const TextualConvention& timeStamp() {
  static const TextualConvention t{"TimeStamp", nullptr, base(Base::kTimeTicks),
                                   "The agent's sysUpTime when something last happened."};
  return t;
}

const TextualConvention& interfaceIndex() {
  static const TextualConvention t{"InterfaceIndex", "d", integer32(1, kMaxIfIndex),
                                   "An interface's ifIndex, as the router numbers it."};
  return t;
}

const TextualConvention& interfaceIndexOrZero() {
  static const TextualConvention t{"InterfaceIndexOrZero", "d", integer32(0, kMaxIfIndex),
                                   "An interface's ifIndex, or 0 for no interface."};
  return t;
}

const TextualConvention& inetAddressType() {
  using T = ::Snmp::InetAddressType;
  static const TextualConvention t{
      "InetAddressType", nullptr,
      enumeration(labelsOf({T::unknown, T::ipv4, T::ipv6, T::ipv4z, T::ipv6z, T::dns})),
      "Which kind of address the InetAddress beside it holds."};
  return t;
}

const TextualConvention& inetAddress() {
  static const TextualConvention t{
      "InetAddress", nullptr, base(Base::kOctetString, {{0, 255}}),
      "An address in network byte order, of the kind its InetAddressType names."};
  return t;
}

const TextualConvention& inetAddressPrefixLength() {
  static const TextualConvention t{"InetAddressPrefixLength", "d",
                                   base(Base::kUnsigned32, {{0, 2040}}),
                                   "A prefix length in bits for the InetAddress beside it."};
  return t;
}

const TextualConvention& inetVersion() {
  using V = ::Snmp::InetVersion;
  static const TextualConvention t{"InetVersion", nullptr,
                                   enumeration(labelsOf({V::unknown, V::ipv4, V::ipv6})),
                                   "An IP version: ipv4(1) or ipv6(2)."};
  return t;
}

const std::vector<const TextualConvention*>& textualConventions() {
  static const std::vector<const TextualConvention*> all{
      &truthValue(),     &rowStatus(),
      &storageType(),    &timeStamp(),
      &interfaceIndex(), &interfaceIndexOrZero(),
      &inetVersion(),    &inetAddressType(),
      &inetAddress(),    &inetAddressPrefixLength()};
  return all;
}

}  // namespace Routing::Pim::Snmp::Mib
