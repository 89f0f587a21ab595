#include "tests/support/EmbeddedAgent.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace TestSupport {

namespace {

std::unique_ptr<EmbeddedAgent> agent;

class AgentEnvironment : public ::testing::Environment {
  void TearDown() override {
    if (!agent) return;
    if (agent->host) agent->host->shutdown();
    std::error_code ec;
    std::filesystem::remove_all(agent->dir, ec);
    agent.reset();
  }
};
[[maybe_unused]] ::testing::Environment* const environment =
    ::testing::AddGlobalTestEnvironment(new AgentEnvironment);

}  // namespace

int freeUdpPort() {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t len = sizeof a;
  getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  close(fd);
  return ntohs(a.sin_port);
}

EmbeddedAgent& embeddedAgent(const std::string& appName,
                             const std::vector<std::string>& configLines) {
  if (agent) return *agent;
  agent = std::make_unique<EmbeddedAgent>();
  std::string tmpl = "/tmp/" + appName + "-XXXXXX";
  agent->dir = mkdtemp(tmpl.data()) ? tmpl : "/tmp";
  {
    std::ofstream conf(agent->dir + "/agent.conf");
    for (const auto& line : configLines) conf << line << "\n";
  }
  // A port picked free can be taken before the agent binds it: try a few.
  for (int attempt = 0; attempt < 5 && !agent->host; ++attempt) {
    agent->port = freeUdpPort();
    Snmp::AgentHostOptions o;
    o.appName = appName;
    o.listen = "udp:127.0.0.1:" + std::to_string(agent->port);
    o.configFile = agent->dir + "/agent.conf";
    o.persistentDir = agent->dir + "/persist";
    o.persistState = false;
    o.log = Snmp::AgentHostOptions::Log::off;
    auto host = std::make_unique<Snmp::AgentHost>(o);
    if (host->init()) agent->host = std::move(host);
  }
  return *agent;
}

snmp_pdu* exchange(Snmp::AgentHost& host, int port, const std::string& community, snmp_pdu* pdu,
                   std::chrono::milliseconds timeout) {
  netsnmp_pdu* response = nullptr;
  netsnmp_session s;
  snmp_sess_init(&s);
  s.version = SNMP_VERSION_2c;
  const std::string peer = "udp:127.0.0.1:" + std::to_string(port);
  s.peername = const_cast<char*>(peer.c_str());
  s.community = reinterpret_cast<u_char*>(const_cast<char*>(community.c_str()));
  s.community_len = community.size();
  s.retries = 0;
  s.timeout = std::chrono::microseconds(timeout).count();
  s.callback = [](int op, netsnmp_session*, int, netsnmp_pdu* p, void* magic) {
    if (op == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) {
      *static_cast<netsnmp_pdu**>(magic) = snmp_clone_pdu(p);
    }
    return 1;
  };
  s.callback_magic = &response;
  netsnmp_session* ss = snmp_open(&s);
  if (!ss || snmp_send(ss, pdu) == 0) snmp_free_pdu(pdu);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (ss && !response && std::chrono::steady_clock::now() < deadline) host.runOnce(0.05);
  if (ss) snmp_close(ss);
  return response;
}

}  // namespace TestSupport
