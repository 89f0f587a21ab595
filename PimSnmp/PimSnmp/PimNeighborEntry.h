#pragma once

#include <cstdint>
#include <tuple>
#include <utility>

#include "PimSnmp/PimSnmp/StoreRow.h"
#include "platform/Ent/Ptr.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/Neighbor.h"

namespace Routing::Pim::Snmp {

// pimNeighborTable row. interfaceIndex and mode are set by the writer when it makes the row.
class PimNeighborEntry final : public StoreRow<PimNeighborEntry> {
 public:
  PimNeighborEntry(const Lanet::IpGenAddr& address, Ent::Ptr<const Neighbor> neighbor)
      : address_(address), neighbor_(std::move(neighbor)) {}

  const Lanet::IpGenAddr& address() const { return address_; }
  const Lanet::IpGenAddr& key() const { return address_; }
  const Ent::Ptr<const Neighbor>& neighbor() const { return neighbor_; }
  auto inputs() const { return std::tie(neighbor_); }

  int32_t interfaceIndex() const { return interfaceIndex_; }
  void interfaceIndexIs(int32_t ifIndex) { interfaceIndex_ = ifIndex; }
  uint8_t mode() const { return mode_; }
  void modeIs(uint8_t mode) { mode_ = mode; }

  // Seconds since the neighbor was created, unrounded.
  double upTime() const;
  // Seconds left of the hold time since the last refresh (rounded to whole seconds); never
  // negative.
  double expiryTime() const;

 private:
  const Lanet::IpGenAddr address_;
  const Ent::Ptr<const Neighbor> neighbor_;
  int32_t interfaceIndex_ = 0;
  uint8_t mode_ = 0;
};

}  // namespace Routing::Pim::Snmp
