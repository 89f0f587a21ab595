#pragma once

// Shared pieces of the fuzz targets: invariant checks that count as crashes, the bundled
// examples, and a platform state of its own per input (so that no input's outcome depends on
// the inputs before it).

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "daemon/AgentTree.h"
#include "daemon/state/PlatformState.h"
#include "platform/Clock/Clock.h"
#include "platform/Ent/Dir.h"
#include "platform/Snmp/Status.h"
#include "platform/SnmpUtil/SnmpUtil.h"

namespace Fuzz {

// Reports a broken invariant and aborts: libFuzzer keeps the input as a crash.
[[noreturn]] void fail(std::string_view what, std::string_view detail = {});
inline void check(bool ok, std::string_view what, std::string_view detail = {}) {
  if (!ok) fail(what, detail);
}

inline std::string_view text(const uint8_t* data, size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// A file of the source tree ("examples/demo-state.json").
std::string readSourceFile(std::string_view relativeToRepo);

// A PlatformState on a fresh entity root with the clock stopped at a fixed time. With
// `withAgent`, the agent's state machines follow it as in the daemon, over one net-snmp master
// agent per process (on a loopback port of the system's choosing), so that a VRF a document
// completes is registered and its stores fill.
class Platform {
 public:
  explicit Platform(bool withAgent);
  ~Platform();
  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;

  PimSnmpd::PlatformState& state() { return state_; }
  Plat::ManualClock& clock() { return *clock_; }

 private:
  Ent::Ptr<Plat::ManualClock> clock_;
  Plat::ScopedClock scopedClock_;
  Ent::Ptr<Ent::Dir> root_;
  std::unique_ptr<SnmpUtil::ScopedEntityRoot> scopedRoot_;
  PimSnmpd::PlatformState state_;
  Ent::Ptr<Snmp::Status> status_;
  std::unique_ptr<PimSnmpd::AgentTree> tree_;
};

}  // namespace Fuzz
