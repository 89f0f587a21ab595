#pragma once

// One embedded net-snmp master on 127.0.0.1 for the whole test binary, serving the three
// modules from in-process stores, and an in-process client asking it one PDU at a time.
// Contexts "" (community "public"), "red" ("public-red") and "blue" ("public-blue").

#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <memory>
#include <string>
#include <vector>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "platform/Clock/Clock.h"
#include "platform/Routing/Multicast/Fib/Config.h"
#include "platform/Routing/Pim/Config.h"

namespace MibTest {

using Oids = std::vector<oid>;

inline const Oids kPimJoinPruneInterval = {1, 3, 6, 1, 3, 61, 1, 1, 1, 0};
inline const Oids kPimInterfaceTable = {1, 3, 6, 1, 3, 61, 1, 1, 2};
inline const Oids kPimNeighborTable = {1, 3, 6, 1, 3, 61, 1, 1, 3};
inline const Oids kPimIpMRouteTable = {1, 3, 6, 1, 3, 61, 1, 1, 4};
inline const Oids kPimRPSetTable = {1, 3, 6, 1, 3, 61, 1, 1, 6};
inline const Oids kPimIpMRouteNextHopTable = {1, 3, 6, 1, 3, 61, 1, 1, 7};
inline const Oids kPimCandidateRPTable = {1, 3, 6, 1, 3, 61, 1, 1, 11};
inline const Oids kPimComponentTable = {1, 3, 6, 1, 3, 61, 1, 1, 12};
inline const Oids kIpMRouteEnable = {1, 3, 6, 1, 2, 1, 83, 1, 1, 1, 0};
inline const Oids kIpMRouteTable = {1, 3, 6, 1, 2, 1, 83, 1, 1, 2};
inline const Oids kIpMRouteNextHopTable = {1, 3, 6, 1, 2, 1, 83, 1, 1, 3};
inline const Oids kIpMRouteInterfaceTable = {1, 3, 6, 1, 2, 1, 83, 1, 1, 4};
inline const Oids kIpMRouteEntryCount = {1, 3, 6, 1, 2, 1, 83, 1, 1, 7, 0};
inline const Oids kIpMcastEnabled = {1, 3, 6, 1, 2, 1, 168, 1, 1, 0};
inline const Oids kIpMcastRouteEntryCount = {1, 3, 6, 1, 2, 1, 168, 1, 2, 0};
inline const Oids kIpMcastInterfaceTable = {1, 3, 6, 1, 2, 1, 168, 1, 3};
inline const Oids kIpMcastRouteTable = {1, 3, 6, 1, 2, 1, 168, 1, 5};
inline const Oids kIpMcastRouteNextHopTable = {1, 3, 6, 1, 2, 1, 168, 1, 6};
inline const Oids kIpMcastDeviceConfigStorageType = {1, 3, 6, 1, 2, 1, 168, 1, 11, 0};

struct Var {
  Oids name;
  int type = 0;
  long long value = 0;         // integer types and Counter64
  std::vector<uint8_t> bytes;  // OCTET STRING, IpAddress
};

struct Response {
  bool answered = false;
  long errstat = 0;
  long errindex = 0;
  std::vector<Var> vars;
};

// One request in `context`, answered by turning the agent's loop (the agent starts on first use).
Response ask(int command, const std::vector<Oids>& names, const std::string& context = "",
             int maxRepetitions = 0);
Response setInteger(const Oids& name, long value, const std::string& context = "");

// A context's store and config records, where the modules look them up.
struct Vrf {
  std::string context;
  Ent::Ptr<Routing::Pim::Snmp::PimMib> store;
  Ent::Ptr<Routing::Pim::Config> pimConfig;
  Ent::Ptr<Routing::Multicast::Fib::Config> mfibConfig;
};
Vrf makeVrf(const std::string& context);  // multicast routing on
void dropVrf(const Vrf& vrf);
void registerModules(const std::string& context);
void unregisterModules(const std::string& context);

// The three modules registered in "" and "red" over fresh stores, a manual clock at 1000 s,
// the agent started at 900 s, and IPv4 route counters of 5 packets and 0x100000010 octets.
class MibModulesTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  // One or two rows in every table of the default store (values in ColumnsTest).
  void fillDefaultStore();

  Ent::Ptr<Plat::ManualClock> clock_ = Ent::make<Plat::ManualClock>(1000.0);
  std::unique_ptr<Plat::ScopedClock> scopedClock_;
  double previousStart_ = 0;
  Vrf default_;
  Vrf red_;
};

Lanet::IpGenAddr v4(const char* text);
std::vector<uint8_t> ipBytes(const char* text);
Oids ipOid(const char* text);
Oids cat(Oids a, const Oids& b);
Oids column(const Oids& table, oid col, const Oids& index = {});  // table.1.col.index
template <class Index>
Oids indexOid(const Index& index) {
  Snmp::Oid out;
  index.toOid(out);
  return Oids(out.begin(), out.end());
}
void expectInteger(const Var& v, int type, long long value);
void expectBytes(const Var& v, int type, const std::vector<uint8_t>& bytes);

}  // namespace MibTest
