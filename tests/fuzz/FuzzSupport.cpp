#include "tests/fuzz/FuzzSupport.h"

#include <sanitizer/common_interface_defs.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "PimSnmp/PimSnmpAgent/NeighborLossNotifier.h"
#include "platform/SnmpUtil/AgentHost.h"

namespace Fuzz {

namespace {

// Losses are what the applier makes, not what is looked at here; without a sink configured
// they would only be queued.
class QuietNotifier : public Routing::Pim::SnmpAgent::NeighborLossNotifier {
 public:
  void pimNeighborLossNotify(int32_t, Lanet::IpAddr, const std::string&) override {}
};

// The process's net-snmp master: MIB contexts can only be registered with the library up.
void startAgentOnce() {
  static std::unique_ptr<Snmp::AgentHost> host = [] {
    static QuietNotifier quiet;
    Routing::Pim::SnmpAgent::neighborLossNotifierIs(&quiet);
    std::string dir = (std::filesystem::temp_directory_path() / "pimsnmp-fuzz.XXXXXX").string();
    if (mkdtemp(dir.data()) == nullptr) fail("cannot create the agent's directory");
    Snmp::AgentHostOptions o;
    o.appName = "pimsnmp-fuzz";
    o.listen = "udp:127.0.0.1:0";
    o.persistentDir = dir;
    o.persistState = false;
    o.log = Snmp::AgentHostOptions::Log::off;
    auto h = std::make_unique<Snmp::AgentHost>(o);
    if (!h->init()) fail("the net-snmp agent did not start", h->error());
    // Nothing of it needs to outlive the start.
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    return h;
  }();
}

}  // namespace

void fail(std::string_view what, std::string_view detail) {
  std::string message(what);
  if (!detail.empty()) message += ": " + std::string(detail.substr(0, 2000));
  // libFuzzer may have closed stderr (-close_fd_mask=2); the sanitizers' report goes on.
  __sanitizer_report_error_summary(message.c_str());
  std::fprintf(stderr, "fuzz check failed: %s\n", message.c_str());
  std::abort();
}

std::string readSourceFile(std::string_view relativeToRepo) {
  std::ifstream in(std::filesystem::path(PIMSNMP_SOURCE_DIR) / relativeToRepo);
  if (!in) fail("cannot read", relativeToRepo);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

Platform::Platform(bool withAgent)
    : clock_(Ent::make<Plat::ManualClock>(1000.0)),
      scopedClock_(clock_),
      root_(Ent::make<Ent::Dir>("root")),
      scopedRoot_(withAgent ? std::make_unique<SnmpUtil::ScopedEntityRoot>(root_) : nullptr),
      state_(root_) {
  if (!withAgent) return;
  startAgentOnce();
  status_ = Ent::make<Snmp::Status>();
  tree_ = std::make_unique<PimSnmpd::AgentTree>(state_, status_, clock_);
  tree_->bringUp();
  status_->initializedIs(true);
}

Platform::~Platform() {
  if (tree_) tree_->tearDown();
}

}  // namespace Fuzz
