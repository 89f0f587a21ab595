#pragma once

// The state document of pimsnmpd built from what FRR and the kernel say: the whole document at
// once, every time (pimsnmpd gets the RFC 7396 difference of successive snapshots).

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "daemon/state/Json.h"
#include "pimsnmp-frr/FrrState.h"
#include "pimsnmp-frr/kernel/Kernel.h"

namespace PimSnmpFrr {

using PimSnmpd::Json;

// The kernel's part, read at its own cadence.
struct KernelView {
  std::vector<Kernel::MfcEntry> mfc;
  std::vector<Kernel::Vif> vifs;                 // the default table's VIFs
  std::map<std::string, std::string> operState;  // /sys operstate by interface ("" if none)
  std::map<std::string, int> ifIndex;            // /sys ifindex by interface
  bool mcForwarding = false;
};

// The kernel's ipmr table of the default VRF (RT_TABLE_DEFAULT).
inline constexpr uint32_t kDefaultMfcTable = 253;

// IF-MIB's name for a /sys operstate ("lowerlayerdown" -> "lowerLayerDown"; "" -> "notPresent").
std::string ifOperStatus(const std::string& operstate);

// The document of FRR's VRFs and the kernel's forwarding state. Times are Unix seconds from
// `now`; a `created` FRR gives no uptime for is left out (stabilizeTimes fills it).
Json buildDocument(const FrrState& frr, const KernelView& kernel, int64_t now);

// The document of a router without FRR: the default table's MFC alone gives routes, their
// incoming interfaces, OIFs and counters.
Json buildKernelOnlyDocument(const KernelView& kernel, int64_t now);

// Keeps times stable against `previous` (the document pimsnmpd holds): a `created` stays as
// first seen unless the new one is more than 2 s later (FRR's uptime went backwards: a new
// adjacency or route); `lastRefresh` and `expiry` keep their old value unless they moved by
// more than 2 s. Missing times take the old value, else now (`expiry`: now + holdTime).
void stabilizeTimes(Json& doc, const Json& previous, int64_t now);

// Removes every VRF's pimStatus: the VRFs are withdrawn rather than served stale.
void withdrawPim(Json& doc);

}  // namespace PimSnmpFrr
