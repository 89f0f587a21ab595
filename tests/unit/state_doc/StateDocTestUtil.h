#pragma once

// Shared pieces of the state document tests: a small valid document, a log of entity
// notifications, and file access to the bundled examples.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "daemon/state/StateDocument.h"
#include "platform/Ent/Entity.h"

namespace StateDocTest {

using PimSnmpd::Json;

// Every kind of member once: VRF red (IPv4, all inputs, two routes) and VRF blue (IPv6).
inline const char* const kBaseDocument = R"({
  "interfaces": {
    "Ethernet1": {"ifIndex": 1},
    "Ethernet2": {"ifIndex": 2},
    "Ethernet3": {"ifIndex": 3, "operStatus": "down"}
  },
  "vrfs": {
    "red": {
      "ipv4": {
        "pimConfig": {"joinPruneInterval": 60},
        "pimStatus": {"mode": "sparse", "interfaces": {
          "Ethernet1": {"address": "10.0.1.1/24", "dr": "10.0.1.2", "neighbors": {
            "10.0.1.2": {"created": 100, "lastRefresh": 200, "holdTime": 105},
            "10.0.1.3": {"created": 110, "lastRefresh": 210}}},
          "Ethernet2": {"address": "10.0.2.1/24"}}},
        "bsrConfig": {"bootstrapTimeout": 130, "candidateRpConfigs": 1},
        "bsrStatus": {
          "candidateBsrs": {"224.0.0.0/4": {"interface": "Ethernet1", "priority": 64}},
          "electedBsrs": {"224.0.0.0/4": {"address": "10.0.1.1"}},
          "candidateRps": {"10.0.1.1": {}}},
        "candidateRpStatus": {"rpType": "bsr", "groups": {
          "224.0.0.0/4": {"10.0.1.1": {"holdTime": 150, "expiry": 500}}}},
        "staticRpStatus": {"groups": {"239.0.0.0/8": {"10.0.2.9": {}}}},
        "mfibConfig": {"routing": true},
        "routes": {
          "*,239.1.1.1": {"created": 50,
                          "upstream": {"interface": "Ethernet1", "rpfNeighbor": "10.0.1.2"},
                          "flags": ["wildcard", "rpt"], "interfaces": {"Ethernet2": {}}},
          "10.0.2.5,239.1.1.1": {"created": 60, "upstream": {"interface": "Ethernet2"},
                                 "flags": ["spt"],
                                 "interfaces": {"Ethernet1": {"assertState": "loser"}}}},
        "fib": {"oifIndexes": {"Ethernet1": 0, "Ethernet2": 1},
                "routes": {"*,239.1.1.1": {"oifs": ["Ethernet2"], "packets": 5, "bytes": 500},
                           "10.0.2.5,239.1.1.1": {"oifs": ["Ethernet1"]}}}
      }
    },
    "blue": {
      "ipv6": {
        "pimStatus": {"interfaces": {"Ethernet3": {"address": "2001:db8::1/64"}}},
        "routes": {"*,ff0e::1": {"created": 70, "interfaces": {"Ethernet3": {}}}}
      }
    }
  }
})";

inline Json baseJson() {
  return Json::parse(kBaseDocument);
}

// "/vrfs/red/ipv4" + suffix, as a JSON pointer.
inline std::string red4(const std::string& suffix) {
  return "/vrfs/red/ipv4" + suffix;
}

// A patch that sets the member at `pointer` (RFC 6901) to `value`.
inline Json patchAt(const std::string& pointer, Json value) {
  Json patch = Json::object();
  patch[Json::json_pointer(pointer)] = std::move(value);
  return patch;
}

inline std::string describe(const PimSnmpd::ValidationErrors& errors) {
  std::string out;
  for (const auto& e : errors) out += "\n  " + e.toString();
  return out;
}

inline std::string readFile(const std::string& relativeToRepo) {
#ifdef PIMSNMP_SOURCE_DIR
  const std::filesystem::path repo(PIMSNMP_SOURCE_DIR);
#else
  const auto repo = std::filesystem::path(__FILE__).parent_path() / ".." / ".." / "..";
#endif
  std::ifstream in(repo / relativeToRepo);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// Records the notifications of the entities it watches, as "<label>:<attr>" or, when the watch
// was given a key printer, "<label>:<attr>:<key>".
class Watcher {
 public:
  using KeyPrinter = std::function<std::string(const Ent::Change&)>;

  void watch(std::string label, Ent::Ptr<const Ent::Entity> e, KeyPrinter key = nullptr) {
    reactors_.push_back(std::make_unique<Rx>(this, std::move(label), std::move(e), std::move(key)));
  }
  template <class K>
  void watchKeyed(std::string label, Ent::Ptr<const Ent::Entity> e) {
    watch(std::move(label), std::move(e), [](const Ent::Change& c) {
      std::ostringstream s;
      s << c.keyAs<K>();
      return s.str();
    });
  }

  std::vector<std::string> take() {
    std::vector<std::string> out;
    out.swap(log_);
    return out;
  }
  const std::vector<std::string>& log() const { return log_; }

 private:
  class Rx : public Ent::Reactor {
   public:
    Rx(Watcher* w, std::string label, Ent::Ptr<const Ent::Entity> e, KeyPrinter key)
        : Reactor(std::move(e)), w_(w), label_(std::move(label)), key_(std::move(key)) {}
    void onChange(const Ent::Change& c) override {
      std::string line = label_ + ":" + std::to_string(c.attr);
      if (key_ && c.key != nullptr) line += ":" + key_(c);
      w_->log_.push_back(std::move(line));
    }

   private:
    Watcher* w_;
    std::string label_;
    KeyPrinter key_;
  };

  std::vector<std::unique_ptr<Rx>> reactors_;
  std::vector<std::string> log_;
};

}  // namespace StateDocTest
