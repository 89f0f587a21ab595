#pragma once

// Line commands that let a test change the agent between two requests. Each command gets
// exactly one reply line, "ok ..." or "error ...", so a test knows the change is done before
// it sends its next request.
//
//   ping
//   add-row VRF route GROUP [SOURCE]        (no SOURCE or "*": (*,G))
//   del-row VRF route GROUP [SOURCE]
//   add-row VRF neighbor IFINDEX ADDRESS
//   del-row VRF neighbor ADDRESS
//   neighbor-loss IFINDEX ADDRESS [VRF]     pimNeighborLoss for VRF (default "default")
//   register MODULE VRF | unregister MODULE VRF     MODULE: PimMIB, ipMRouteStdMIB,
//                                                   ipMcastMIB or all
//   notification on | notification off REASON...   pimNeighborLoss enabled or not
//   notification-delay SECONDS
//   quit

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "tools/testagent/AgentSetup.h"
#include "tools/testagent/Fixture.h"

namespace TestAgent {

class Control {
 public:
  Control(AgentSetup& agent, std::map<std::string, std::unique_ptr<FixtureVrf>>& fixtures)
      : agent_(agent), fixtures_(fixtures) {}

  // Runs one command line; returns the reply line (without newline).
  std::string execute(const std::string& line);
  bool quitRequested() const { return quit_; }

 private:
  AgentSetup& agent_;
  std::map<std::string, std::unique_ptr<FixtureVrf>>& fixtures_;
  bool quit_ = false;
};

// Reads commands from `fd` on the agent's event loop and writes each reply to `out` (a
// file descriptor). End of input counts as "quit".
class ControlChannel {
 public:
  ControlChannel(Control& control, int fd, int out);
  ~ControlChannel();
  ControlChannel(const ControlChannel&) = delete;
  ControlChannel& operator=(const ControlChannel&) = delete;

  bool closed() const { return closed_; }

 private:
  static void readable(int fd, void* self);
  void drain();

  Control& control_;
  int fd_;
  int out_;
  std::string pending_;
  bool closed_ = false;
  bool registered_ = false;
};

}  // namespace TestAgent
