#pragma once

// Shared pieces of the agent scenario tests: address helpers and recorders behind the two
// seams (MIB registration and neighbor-loss notification).

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "PimSnmp/PimSnmpAgent/NeighborLossNotifier.h"
#include "PimSnmp/RegistrationHelper/MibRegistrar.h"
#include "platform/Lanet/IpAddr.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Snmp/TrapManager.h"

namespace AgentSmTest {

inline Lanet::IpGenAddr addr(const char* text) {
  return *Lanet::IpGenAddr::parse(text);
}
inline Lanet::IpGenPrefix prefix(const char* text) {
  return *Lanet::IpGenPrefix::parse(text);
}

// Records every module entry point called, as "init_PimMIB(<context>)" and so on.
class RecordingRegistrar : public Routing::Pim::Snmp::MibRegistrar {
 public:
  void initPimMib(const std::string& c) override { add("init_PimMIB", c); }
  void initIpMRouteStdMib(const std::string& c) override { add("init_ipMRouteStdMIB", c); }
  void initIpMcastMib(const std::string& c) override { add("init_ipMcastMIB", c); }
  void unregisterPimMib(const std::string& c) override { add("unregister_PimMIB", c); }
  void unregisterIpMRouteStdMib(const std::string& c) override {
    add("unregister_ipMRouteStdMIB", c);
  }
  void unregisterIpMcastMib(const std::string& c) override { add("unregister_ipMcastMIB", c); }
  // The calls since the last take(), which empties the record.
  std::vector<std::string> take() {
    std::vector<std::string> out;
    out.swap(calls);
    return out;
  }

  std::vector<std::string> calls;

 private:
  void add(const char* entry, const std::string& context) {
    calls.push_back(std::string(entry) + "(" + context + ")");
  }
};

struct NeighborLoss {
  int32_t ifIndex;
  Lanet::IpAddr address;
  std::string context;
  std::string origin = "(none)";  // the VRF context the trap queue would record
  bool operator==(const NeighborLoss&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, const NeighborLoss& l) {
  return os << "loss(ifIndex " << l.ifIndex << ", " << l.address << ", '" << l.context
            << "', origin '" << l.origin << "')";
}

class RecordingNotifier : public Routing::Pim::SnmpAgent::NeighborLossNotifier {
 public:
  void pimNeighborLossNotify(int32_t ifIndex, Lanet::IpAddr address,
                             const std::string& context) override {
    const std::string* origin = ::Snmp::TrapManager::queuingOrigin();
    losses.push_back({ifIndex, address, context, origin ? *origin : "(none)"});
  }
  std::vector<NeighborLoss> losses;
};

}  // namespace AgentSmTest
