#include "daemon/Com2SecList.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/library/snmpUDPDomain.h>

#include <vector>

#include "daemon/Log.h"

// Declared by no installed header.
extern "C" int snmp_config_when(char* line, int when);

namespace PimSnmpd {
namespace {

// net-snmp's struct com2SecEntry_s (snmplib/transports/snmpUDPDomain.c, the same from 5.7 to
// 5.9), which no header declares; layoutMatches checks it against the library.
struct NetsnmpEntry {
  const char* secName;
  const char* contextName;
  NetsnmpEntry* next;
  in_addr_t network;
  in_addr_t mask;
  int negate;
  const char community[1];
};

NetsnmpEntry* append(const Com2SecEntry& e) {
  com2SecEntry* out = nullptr;
  in_addr network{e.source.network}, mask{e.source.mask};
  if (netsnmp_udp_com2SecEntry_create(&out, e.community.c_str(), e.secName.c_str(),
                                      e.context.c_str(), &network, &mask, e.negate ? 1 : 0) != 0) {
    return nullptr;
  }
  return reinterpret_cast<NetsnmpEntry*>(out);
}

void removeAndFree(NetsnmpEntry* e) {
  auto* entry = reinterpret_cast<com2SecEntry*>(e);
  if (netsnmp_udp_com2SecList_remove(entry) == 0) netsnmp_udp_com2Sec_free(entry);
}

Com2SecEntry read(const NetsnmpEntry& e) {
  return {e.community,
          e.secName,
          e.contextName ? e.contextName : "",
          {e.network, e.mask},
          e.negate != 0};
}

// net-snmp frees a callback's client argument at shutdown: the instance is found here.
Com2SecTakeover* instance = nullptr;

int onRead(int, int minor, void*, void*) {
  if (!instance) return SNMPERR_SUCCESS;
  if (minor == SNMP_CALLBACK_PRE_READ_CONFIG) {
    instance->beforeRead();
  } else {
    instance->afterRead();
  }
  return SNMPERR_SUCCESS;
}

constexpr int kReadEvents[] = {SNMP_CALLBACK_PRE_READ_CONFIG, SNMP_CALLBACK_POST_READ_CONFIG};

}  // namespace

bool netsnmpConfigure(const std::string& line) {
  std::vector<char> buf(line.begin(), line.end());
  buf.push_back('\0');
  if (!netsnmp_ds_get_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_HAVE_READ_CONFIG)) {
    return netsnmp_config(buf.data()) == SNMPERR_SUCCESS;
  }
  // Applied now and not remembered: net-snmp would replay a remembered line at the next
  // re-read only (and then forget it); CommunityMapper::remapAll adds every line again.
  return snmp_config_when(buf.data(), NORMAL_CONFIG) == SNMPERR_SUCCESS;
}

CommunityBackend netsnmpCommunityBackend() {
  return {netsnmpConfigure,
          [](const Com2SecEntry& e) -> CommunityBackend::Handle { return append(e); },
          [](CommunityBackend::Handle h) { removeAndFree(static_cast<NetsnmpEntry*>(h)); }};
}

bool Com2SecTakeover::layoutMatches() {
  const Com2SecEntry probe{
      "pimsnmp-probe", "probeSec", "probeContext", {htonl(0x0a010000), htonl(0xffff0000)}, true};
  NetsnmpEntry* first = append(probe);
  NetsnmpEntry* second = append(probe);
  const bool ok = first && second && first->next == second && read(*first) == probe;
  if (second) removeAndFree(second);
  if (first) removeAndFree(first);
  return ok;
}

Com2SecTakeover::Com2SecTakeover(CommunityMapper& mapper)
    : mapper_(mapper), enabled_(layoutMatches()) {
  if (!enabled_) {
    Log::warning(
        "net-snmp's com2sec entries are not laid out as expected: the configuration's "
        "communities stay in its list, scanned for every varbind");
  }
  instance = this;
  for (int event : kReadEvents) {
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, event, onRead, nullptr);
  }
}

Com2SecTakeover::~Com2SecTakeover() {
  for (int event : kReadEvents) {
    snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, event, onRead, nullptr, 1);
  }
  if (marker_) removeAndFree(static_cast<NetsnmpEntry*>(marker_));
  instance = nullptr;
}

void Com2SecTakeover::beforeRead() {
  // Every read starts with net-snmp freeing its list, the mapper's entry with it.
  mapper_.forgetNetsnmpState();
  if (!enabled_) return;
  // Matches nothing a request can come from; gone again when the read ends.
  marker_ = append({"pimsnmp read marker", "pimsnmpMarker", "", {0, INADDR_NONE}, true});
}

void Com2SecTakeover::afterRead() {
  auto* marker = static_cast<NetsnmpEntry*>(marker_);
  marker_ = nullptr;
  if (!marker) return;
  std::vector<NetsnmpEntry*> added;
  for (NetsnmpEntry* e = marker->next; e; e = e->next) added.push_back(e);
  std::vector<Com2SecEntry> entries;
  entries.reserve(added.size());
  for (const NetsnmpEntry* e : added) entries.push_back(read(*e));
  if (!added.empty()) {
    // Unlinked in one step (net-snmp's remove scans from the head): the ones between the
    // marker and the last are freed here, the last two through net-snmp, which also keeps
    // track of its list's end.
    marker->next = added.back();
    for (size_t i = 0; i + 1 < added.size(); ++i) {
      netsnmp_udp_com2Sec_free(reinterpret_cast<com2SecEntry*>(added[i]));
    }
    removeAndFree(added.back());
  }
  removeAndFree(marker);
  if (!entries.empty()) {
    Log::info("{} com2sec entries of the configuration, one in net-snmp's list per request",
              entries.size());
  }
  mapper_.configuredAre(std::move(entries));
}

}  // namespace PimSnmpd
