#pragma once

// Keeps a served state moving for demonstrations: each step is one merge patch against the
// current document, applied through the same applier as the feed's, so everything it does is
// something a feed client could do.
//
// - Every step the FIB counters of every route grow.
// - Every kFlapPeriod steps a neighbor is removed (the lowest-addressed neighbor of the first
//   IPv4 interface that has one, so that pimNeighborLoss is raised) and kFlapDown steps later
//   it comes back.
// - Every kChurnPeriod steps an extra route (a copy of an existing (S,G) or (*,G) route with a
//   new source) is added, and kChurnUp steps later removed again.

#include <cstdint>
#include <optional>
#include <string>

#include "daemon/state/Json.h"

namespace PimSnmpd {

class Simulator {
 public:
  static constexpr uint64_t kFlapPeriod = 12;
  static constexpr uint64_t kFlapDown = 4;
  static constexpr uint64_t kChurnPeriod = 10;
  static constexpr uint64_t kChurnUp = 5;

  // The patch of the next step, computed from the current document; an empty object when
  // there is nothing to change.
  Json step(const Json& document);

  uint64_t steps() const { return step_; }
  bool neighborDown() const { return flap_.has_value(); }
  bool extraRouteUp() const { return extra_.has_value(); }

 private:
  struct Flap {
    std::string vrf, af, intf, address;
    Json saved;
  };
  struct Extra {
    std::string vrf, af, key;
  };

  void growCounters(const Json& document, Json& patch) const;
  void flap(const Json& document, Json& patch);
  void churn(const Json& document, Json& patch);

  uint64_t step_ = 0;
  uint64_t routeSerial_ = 0;
  std::optional<Flap> flap_;
  std::optional<Extra> extra_;
};

}  // namespace PimSnmpd
