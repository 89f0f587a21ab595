#pragma once

// Test doubles of the feeder's surroundings, answering from the FRR lab's recorded captures: a
// vty server (pimd, zebra), the kernel, a pimsnmpd feed socket holding a real document, and a
// clock the test moves.

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "daemon/state/StateDocument.h"
#include "pimsnmp-frr/Feeder.h"
#include "pimsnmp-frr/kernel/Kernel.h"

namespace FrrTest {

// The directory of one capture set ("r1", "r2", "link-down", "state-docs").
std::string captureDir(const std::string& name);
// A capture file's text; the test fails (and the text is empty) when it is missing.
std::string readCapture(const std::string& set, const std::string& file);
PimSnmpFrr::FrrJson captureJson(const std::string& set, const std::string& file);

// Serves one connection at a time on a Unix stream socket, on its own thread: each request
// (the bytes up to `delimiter`) gets `handler(request)` written back.
class UnixServer {
 public:
  using Handler = std::function<std::string(const std::string&)>;
  UnixServer(std::string path, char delimiter, Handler handler);
  ~UnixServer();
  void stop();
  // How many requests equal to `request` were received.
  int count(const std::string& request) const;
  std::vector<std::string> requests() const;

 private:
  void serve();
  std::string path_;
  char delimiter_;
  Handler handler_;
  int listenFd_ = -1;
  int wakeFd_[2] = {-1, -1};
  std::thread thread_;
  mutable std::mutex mu_;
  std::vector<std::string> requests_;
};

// A vty server answering FRR commands from a router's capture directory: a command's file is
// its words joined by '_' (".json" or ".txt"); a `vrf all` command without its own capture
// gets the default form wrapped as {"default": ...}. Anything else is an unknown command.
class FakeVty {
 public:
  FakeVty(std::string path, std::string captureSet);
  // Replaces the answer to one command.
  void set(const std::string& command, const std::string& text, int status = 0);
  void stop() { server_.stop(); }
  int count(const std::string& command) const { return server_.count(command); }
  std::vector<std::string> commands() const { return server_.requests(); }

 private:
  std::string answer(const std::string& command);
  std::string set_;
  std::mutex mu_;
  std::map<std::string, std::string> overrides_;
  UnixServer server_;
};

// pimsnmpd's feed side: a real document, "dump" and merge patches as pimsnmpd answers them.
class FakeFeed {
 public:
  explicit FakeFeed(std::string path);
  PimSnmpd::Json document() const;
  // Loads a document as if pimsnmpd had read it from its state file.
  void load(const PimSnmpd::Json& doc);
  std::vector<PimSnmpd::Json> patches() const;
  // Refuses every patch from now on (as pimsnmpd refuses an invalid one).
  void refuseAll(bool refuse) { refuse_ = refuse; }
  void stop() { server_.stop(); }

 private:
  std::string answer(const std::string& line);
  mutable std::mutex mu_;
  PimSnmpd::Document doc_;
  std::vector<PimSnmpd::Json> patches_;
  std::atomic<bool> refuse_{false};
  UnixServer server_;
};

// The kernel as a router's captures show it: /proc/net/ip_mr_vif, /proc/net/ip_mr_cache and
// /sys/class/net (ifindex, operstate). Everything is public for tests to change.
class FakeKernel : public PimSnmpFrr::Kernel::Source {
 public:
  explicit FakeKernel(const std::string& captureSet);
  std::optional<std::vector<PimSnmpFrr::Kernel::MfcEntry>> dumpMfc() override { return mfc; }
  std::vector<PimSnmpFrr::Kernel::Vif> vifs() override { return vifTable; }
  std::string operState(const std::string& name) override;
  std::optional<int> ifIndex(const std::string& name) override;
  bool mcForwarding() override { return forwarding; }
  int eventFd() override { return -1; }
  bool drainEvents() override { return changed; }

  std::vector<PimSnmpFrr::Kernel::MfcEntry> mfc;
  std::vector<PimSnmpFrr::Kernel::Vif> vifTable;
  std::map<std::string, std::pair<int, std::string>> links;  // name -> ifindex, operstate
  bool forwarding = true;
  bool changed = true;
};

class FakeClock : public PimSnmpFrr::Clock {
 public:
  PimSnmpFrr::TimePoint now() override { return steady; }
  int64_t unixSeconds() override { return unix; }
  void advance(std::chrono::milliseconds d) {
    steady += d;
    unix = start + std::chrono::duration_cast<std::chrono::seconds>(steady - origin).count();
  }

  static constexpr int64_t start = 1795414345;
  PimSnmpFrr::TimePoint origin{std::chrono::hours(1000)};
  PimSnmpFrr::TimePoint steady = origin;
  int64_t unix = start;
};

// A unique path for a socket of this test process.
std::string tempSocket(const std::string& name);

// One router as its captures show it: pimd and zebra vty doubles in a private directory, and
// its kernel; every part may be changed before a snapshot.
struct CaptureRun {
  explicit CaptureRun(const std::string& set);
  ~CaptureRun();
  // The document a feeder builds once from this router.
  PimSnmpd::Json snapshot();

  std::string dir;
  bool made;
  FakeVty pimd, zebra;
  FakeKernel kernel;
  FakeClock clock;
};

// The document the feeder builds from one router's captures at `now`.
PimSnmpd::Json captureSnapshot(const std::string& set, int64_t now);

}  // namespace FrrTest
