#pragma once

// What the feeder knows of FRR: the parsed answers of pimd and zebra, per VRF. Every member is
// what one command said at its last successful poll.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pimsnmp-frr/FrrText.h"

namespace PimSnmpFrr {

// zebra `show interface vrf all json`.
struct ZebraInterface {
  int index = 0;
  std::string vrf = "default";
  std::optional<std::string> address;  // first primary IPv4 address, "10.0.0.1/24"
};
using ZebraInterfaces = std::map<std::string, ZebraInterface>;

// `show ip pim interface json` names the PIM interfaces; `show ip pim interface IF json`
// gives the rest.
struct PimInterface {
  std::optional<std::string> dr;
  std::optional<int> helloPeriod;
};

struct PimNeighbor {
  std::optional<int64_t> upTime;    // seconds
  std::optional<int64_t> holdLeft;  // seconds until it expires
  int64_t holdMax = 105;            // the hold time it advertises
};

struct Upstream {
  std::optional<int64_t> upTime;
  bool spt = false;
  std::string inbound;
};

struct Rpf {
  std::string interface;
  std::string address;  // RPF': 0.0.0.0 for a connected source or on the RP
};

// One (S,G,I) or (*,G,I) channel of `show ip pim join json`.
struct Channel {
  std::string state;  // channelJoinName: JOIN, NOINFO, PRUNE..., SGRpt(...)
  bool igmp = false;
};

using RouteKeyText = std::string;
using IfName = std::string;

struct VrfState {
  std::map<IfName, PimInterface> interfaces;
  std::map<IfName, std::map<std::string, PimNeighbor>> neighbors;
  MulticastInfo multicast;
  std::map<std::string, std::map<std::string, int64_t>> bsrRps;  // range -> RP -> hold time
  std::map<std::string, std::set<std::string>> staticRps;        // range -> RPs
  std::map<IfName, int> vifs;                                    // `show ip multicast count json`
  std::map<RouteKeyText, Upstream> upstream;
  std::map<RouteKeyText, Rpf> rpf;
  std::map<RouteKeyText, std::map<IfName, Channel>> channels;
  std::map<RouteKeyText, std::set<IfName>> oil;  // `show ip mroute json`
  std::vector<AssertRow> asserts;
  std::vector<AssertMetricRow> assertMetrics;
};

// `show ip pim bsr json` (default VRF only in FRR 8.4).
struct BsrState {
  std::string address;  // empty while none is elected
  std::optional<int64_t> lastBsmSeen;
};

struct FrrState {
  ZebraInterfaces interfaces;
  std::map<std::string, VrfState> vrfs;
  BsrState bsr;
  std::map<uint32_t, std::string> tables;  // kernel table id -> VRF (zebra `show vrf`)
};

// Parsers of one command's JSON, each for one VRF's part of a `vrf all` answer. They skip (and
// log) what they do not understand and never throw.
ZebraInterfaces parseZebraInterfaces(const FrrJson& root);
std::map<IfName, PimInterface> parsePimInterfaces(const FrrJson& vrf);
void parsePimInterfaceDetail(const FrrJson& root, const IfName& name, PimInterface& out);
std::map<IfName, std::map<std::string, PimNeighbor>> parseNeighbors(const FrrJson& vrf);
std::map<std::string, std::map<std::string, int64_t>> parseBsrpInfo(const FrrJson& vrf);
std::map<std::string, std::set<std::string>> parseStaticRps(const FrrJson& vrf);
std::map<IfName, int> parseMulticastCount(const FrrJson& vrf);
std::map<RouteKeyText, Upstream> parseUpstream(const FrrJson& vrf);
std::map<RouteKeyText, Rpf> parseRpf(const FrrJson& vrf);
std::map<RouteKeyText, std::map<IfName, Channel>> parseJoin(const FrrJson& vrf);
std::map<RouteKeyText, std::set<IfName>> parseMroute(const FrrJson& vrf);
BsrState parseBsr(const FrrJson& root);

// The per-VRF objects of a `vrf all` answer ({"default":{...},"red":{...}}).
std::map<std::string, const FrrJson*> splitVrfs(const FrrJson& root);

}  // namespace PimSnmpFrr
