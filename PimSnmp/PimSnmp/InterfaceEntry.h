#pragma once

// Rows of ipMRouteInterfaceTable and ipMcastInterfaceTable. They only make an interface
// visible; every other column is a constant.

#include <cstdint>
#include <tuple>

#include "PimSnmp/PimSnmp/Index.h"
#include "PimSnmp/PimSnmp/StoreRow.h"
#include "platform/Ent/Ptr.h"
#include "platform/Snmp/InetVersion.h"

namespace Routing::Pim::Snmp {

// ipMRouteInterfaceTable row.
class IpMRouteInterfaceEntry final : public StoreRow<IpMRouteInterfaceEntry> {
 public:
  // No TTL threshold: every datagram may be forwarded (the MIB's documented default).
  static constexpr int32_t kTtl = 0;
  // IANAipMRouteProtocol pimSparseMode(8).
  static constexpr int32_t kProtocol = 8;
  // No rate limit.
  static constexpr int32_t kRateLimit = 0;

  explicit IpMRouteInterfaceEntry(int32_t ifIndex) : ifIndex_(ifIndex) {}

  int32_t ifIndex() const { return ifIndex_; }
  const int32_t& key() const { return ifIndex_; }
  std::tuple<> inputs() const { return {}; }
  int32_t ttl() const { return kTtl; }
  int32_t protocol() const { return kProtocol; }
  int32_t rateLimit() const { return kRateLimit; }

 private:
  const int32_t ifIndex_;
};

// ipMcastInterfaceTable row.
class IpMcastInterfaceEntry final : public StoreRow<IpMcastInterfaceEntry> {
 public:
  // No TTL threshold (the MIB's default).
  static constexpr int32_t kTtl = 0;
  // No rate limit.
  static constexpr int32_t kRateLimit = 0;
  // StorageType readOnly(5): mirrored state that SNMP cannot change, as the device's
  // ipMcastDeviceConfigStorageType.
  static constexpr int32_t kStorageType = 5;

  explicit IpMcastInterfaceEntry(const IpMcastInterfaceEntryIndex& index) : index_(index) {}

  const IpMcastInterfaceEntryIndex& index() const { return index_; }
  const IpMcastInterfaceEntryIndex& key() const { return index_; }
  std::tuple<> inputs() const { return {}; }
  ::Snmp::InetVersion ipVersion() const { return index_.ipVersion; }
  int32_t ifIndex() const { return index_.ifIndex; }
  int32_t ttl() const { return kTtl; }
  int32_t rateLimit() const { return kRateLimit; }
  int32_t storageType() const { return kStorageType; }

 private:
  const IpMcastInterfaceEntryIndex index_;
};

}  // namespace Routing::Pim::Snmp
