#pragma once

#include "platform/Ent/Ptr.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenAddr.h"

namespace Routing::Pim::SparseMode {

// Where a route's traffic comes from: the incoming interface and the RPF neighbor. Immutable:
// a route publishes a new one when either changes.
class UpstreamInfo : public Ent::RefCounted {
 public:
  UpstreamInfo(const Lanet::IntfId& iif, const Lanet::IpGenAddr& rpfNeighbor)
      : iif_(iif), rpfNeighbor_(rpfNeighbor) {}

  const Lanet::IntfId& iif() const { return iif_; }
  const Lanet::IpGenAddr& rpfNeighbor() const { return rpfNeighbor_; }

  bool operator==(const UpstreamInfo& o) const {
    return iif_ == o.iif_ && rpfNeighbor_ == o.rpfNeighbor_;
  }

 private:
  const Lanet::IntfId iif_;
  const Lanet::IpGenAddr rpfNeighbor_;
};

}  // namespace Routing::Pim::SparseMode
