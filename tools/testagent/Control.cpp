#include "tools/testagent/Control.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "PimSnmp/PimMIB/PimMIB.h"
#include "platform/Lanet/IpGenAddr.h"

namespace TestAgent {

namespace {

std::vector<std::string> words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> out;
  for (std::string w; in >> w;) out.push_back(w);
  return out;
}

bool parseAddress(const std::string& text, Lanet::IpGenAddr& out) {
  auto a = Lanet::IpGenAddr::parse(text);
  if (!a) return false;
  out = *a;
  return true;
}

bool parseInt(const std::string& text, long& out) {
  char* end = nullptr;
  errno = 0;
  out = std::strtol(text.c_str(), &end, 10);
  return errno == 0 && end && *end == '\0' && !text.empty();
}

// GROUP [SOURCE] of a route command; no SOURCE or "*" is (*,G).
bool parseRoute(const std::vector<std::string>& w, size_t at, Routing::Pim::RouteKey& out) {
  Lanet::IpGenAddr group;
  if (w.size() <= at || !parseAddress(w[at], group)) return false;
  if (w.size() == at + 1 || w[at + 1] == "*") {
    out = Routing::Pim::RouteKey::starG(group);
    return w.size() <= at + 2;
  }
  Lanet::IpGenAddr source;
  if (w.size() != at + 2 || !parseAddress(w[at + 1], source)) return false;
  out = {source, group};
  return true;
}

}  // namespace

std::string Control::execute(const std::string& line) {
  const std::vector<std::string> w = words(line);
  if (w.empty()) return "error empty command";
  const std::string& cmd = w[0];
  try {
    if (cmd == "ping") return "ok";
    if (cmd == "quit") {
      quit_ = true;
      return "ok";
    }
    if ((cmd == "add-row" || cmd == "del-row") && w.size() >= 3) {
      auto it = fixtures_.find(w[1]);
      if (it == fixtures_.end()) return "error unknown vrf " + w[1];
      FixtureVrf& f = *it->second;
      const bool add = cmd == "add-row";
      if (w[2] == "route") {
        Routing::Pim::RouteKey key;
        if (!parseRoute(w, 3, key)) return "error bad route";
        if (add) {
          f.routeIs(key, Lanet::IntfId(std::string("Ethernet3")),
                    *Lanet::IpGenAddr::parse("10.0.3.2"), 1, 100);
          return "ok";
        }
        return f.routeDel(key) ? "ok" : "error no such route";
      }
      if (w[2] == "neighbor") {
        Lanet::IpGenAddr address;
        long ifIndex = 0;
        if (add) {
          if (w.size() != 5 || !parseInt(w[3], ifIndex) || !parseAddress(w[4], address)) {
            return "error usage: add-row VRF neighbor IFINDEX ADDRESS";
          }
          f.neighborIs(static_cast<int32_t>(ifIndex), address);
          return "ok";
        }
        if (w.size() != 4 || !parseAddress(w[3], address)) {
          return "error usage: del-row VRF neighbor ADDRESS";
        }
        return f.neighborDel(address) ? "ok" : "error no such neighbor";
      }
      return "error unknown table " + w[2];
    }
    if (cmd == "neighbor-loss" && (w.size() == 3 || w.size() == 4)) {
      long ifIndex = 0;
      Lanet::IpGenAddr address;
      if (!parseInt(w[1], ifIndex) || !parseAddress(w[2], address) ||
          address.af() != Lanet::AddressFamily::ipv4) {
        return "error usage: neighbor-loss IFINDEX IPV4-ADDRESS [VRF]";
      }
      const std::string vrf = w.size() == 4 ? w[3] : "default";
      Snmp::pimNeighborLossNotify(static_cast<int32_t>(ifIndex), address.v4(), contextOf(vrf));
      return "ok";
    }
    if ((cmd == "register" || cmd == "unregister") && w.size() == 3) {
      std::vector<Module> modules;
      Module m;
      if (w[1] == "all") {
        modules = {Module::pimMib, Module::ipMRouteStdMib, Module::ipMcastMib};
      } else if (moduleFromName(w[1], m)) {
        modules = {m};
      } else {
        return "error unknown module " + w[1];
      }
      if (!agent_.vrf(w[2])) return "error unknown vrf " + w[2];
      size_t changed = 0;
      for (Module each : modules) {
        changed += cmd == "register" ? agent_.registerModule(each, w[2])
                                     : agent_.unregisterModule(each, w[2]);
      }
      return "ok " + std::to_string(changed);
    }
    if (cmd == "notification" && w.size() >= 2) {
      if (w[1] == "on" && w.size() == 2) {
        agent_.neighborLossEnabledIs(true, "");
        return "ok";
      }
      if (w[1] == "off") {
        std::string reason;
        for (size_t i = 2; i < w.size(); ++i) reason += (i > 2 ? " " : "") + w[i];
        agent_.neighborLossEnabledIs(false, reason);
        return "ok";
      }
    }
    if (cmd == "notification-delay" && w.size() == 2) {
      char* end = nullptr;
      const double d = std::strtod(w[1].c_str(), &end);
      if (!end || *end != '\0' || d < 0) return "error bad delay";
      agent_.neighborLossDelayIs(d);
      return "ok";
    }
  } catch (const std::exception& e) {
    return std::string("error ") + e.what();
  }
  return "error unknown command: " + line;
}

ControlChannel::ControlChannel(Control& control, int fd, int out)
    : control_(control), fd_(fd), out_(out) {
  registered_ = register_readfd(fd_, &ControlChannel::readable, this) == 0;
  if (!registered_) closed_ = true;
}

ControlChannel::~ControlChannel() {
  if (registered_) unregister_readfd(fd_);
}

void ControlChannel::readable(int, void* self) {
  static_cast<ControlChannel*>(self)->drain();
}

void ControlChannel::drain() {
  char buf[4096];
  const ssize_t n = read(fd_, buf, sizeof buf);
  if (n <= 0) {
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) return;
    closed_ = true;
    if (registered_) unregister_readfd(fd_);
    registered_ = false;
    return;
  }
  pending_.append(buf, static_cast<size_t>(n));
  for (size_t eol; (eol = pending_.find('\n')) != std::string::npos;) {
    const std::string line = pending_.substr(0, eol);
    pending_.erase(0, eol + 1);
    const std::string reply = control_.execute(line) + "\n";
    // The reader waits for this line: a short write would leave it hanging.
    for (size_t done = 0; done < reply.size();) {
      const ssize_t w = write(out_, reply.data() + done, reply.size() - done);
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) break;
      done += static_cast<size_t>(w);
    }
  }
}

}  // namespace TestAgent
