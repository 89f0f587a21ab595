#pragma once

#include <cstddef>
#include <unordered_set>

#include "platform/Ent/Ptr.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/SparseMode/UpstreamInfo.h"

namespace Routing::Pim::SparseMode {

// Hands out one shared UpstreamInfo per (incoming interface, RPF neighbor): most routes of a
// router share theirs with many others, so routes with equal upstream information hold the same
// record instead of one each.
//
// The pool keeps its records alive. Records that only the pool still holds are dropped by a
// sweep that runs when the pool has doubled since the last one, so the pool stays within twice
// the records in use (or kMinSweep) and each new record costs amortized O(1).
class UpstreamInfoPool {
 public:
  static constexpr size_t kMinSweep = 64;

  UpstreamInfoPool() = default;
  UpstreamInfoPool(const UpstreamInfoPool&) = delete;
  UpstreamInfoPool& operator=(const UpstreamInfoPool&) = delete;

  // The pooled record equal to (iif, rpfNeighbor), made when there is none.
  Ent::Ptr<const UpstreamInfo> upstreamInfo(const Lanet::IntfId& iif,
                                            const Lanet::IpGenAddr& rpfNeighbor);

  // Records pooled, including those no route holds any more.
  size_t size() const { return records_.size(); }
  // Drops the records that only the pool holds.
  void sweep();

 private:
  struct Key {
    const Lanet::IntfId& iif;
    const Lanet::IpGenAddr& rpfNeighbor;
  };
  struct Hash {
    using is_transparent = void;
    size_t operator()(const Key& k) const noexcept { return k.iif.hash(k.rpfNeighbor.hash()); }
    size_t operator()(const Ent::Ptr<const UpstreamInfo>& u) const noexcept {
      return (*this)(Key{u->iif(), u->rpfNeighbor()});
    }
  };
  struct Equal {
    using is_transparent = void;
    static Key key(const Ent::Ptr<const UpstreamInfo>& u) { return {u->iif(), u->rpfNeighbor()}; }
    static Key key(const Key& k) { return k; }
    template <class A, class B>
    bool operator()(const A& a, const B& b) const noexcept {
      const Key x = key(a);
      const Key y = key(b);
      return x.iif == y.iif && x.rpfNeighbor == y.rpfNeighbor;
    }
  };

  std::unordered_set<Ent::Ptr<const UpstreamInfo>, Hash, Equal> records_;
  size_t sweepAt_ = kMinSweep;
};

}  // namespace Routing::Pim::SparseMode
