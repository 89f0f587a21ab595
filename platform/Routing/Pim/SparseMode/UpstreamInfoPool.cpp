#include "platform/Routing/Pim/SparseMode/UpstreamInfoPool.h"

#include <algorithm>

namespace Routing::Pim::SparseMode {

Ent::Ptr<const UpstreamInfo> UpstreamInfoPool::upstreamInfo(const Lanet::IntfId& iif,
                                                            const Lanet::IpGenAddr& rpfNeighbor) {
  if (auto it = records_.find(Key{iif, rpfNeighbor}); it != records_.end()) return *it;
  if (records_.size() >= sweepAt_) {
    sweep();
    sweepAt_ = std::max(kMinSweep, 2 * records_.size());
  }
  return *records_.insert(Ent::make<UpstreamInfo>(iif, rpfNeighbor)).first;
}

void UpstreamInfoPool::sweep() {
  std::erase_if(records_, [](const Ent::Ptr<const UpstreamInfo>& u) { return u->refCount() == 1; });
}

}  // namespace Routing::Pim::SparseMode
