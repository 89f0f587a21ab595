#include "tests/support/EmbeddedAgent.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace TestSupport {

namespace {

std::unique_ptr<EmbeddedAgent> agent;

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

}  // namespace TestSupport
