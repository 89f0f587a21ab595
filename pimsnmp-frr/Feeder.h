#pragma once

// The feeder: polls pimd and zebra at their cadences, reads the kernel, builds the snapshot
// document and keeps pimsnmpd's document equal to it, one RFC 7396 difference per feed line.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

#include "pimsnmp-frr/FeedClient.h"
#include "pimsnmp-frr/FrrState.h"
#include "pimsnmp-frr/Options.h"
#include "pimsnmp-frr/Snapshot.h"
#include "pimsnmp-frr/Vty.h"
#include "pimsnmp-frr/kernel/Kernel.h"

namespace PimSnmpFrr {

using TimePoint = std::chrono::steady_clock::time_point;

// The feeder's time: a steady clock for cadences and the Unix time the document's times use.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual TimePoint now() = 0;
  virtual int64_t unixSeconds() = 0;
};

class SystemClock : public Clock {
 public:
  TimePoint now() override { return std::chrono::steady_clock::now(); }
  int64_t unixSeconds() override;
};

// When the route poll runs: a kernel event asks for it `delay` later, but never sooner than
// `minGap` after the previous one; without events it runs every `period`.
class RouteSchedule {
 public:
  RouteSchedule(Millis delay, Millis minGap, Millis period)
      : delay_(delay), minGap_(minGap), period_(period) {}
  void ran(TimePoint at) {
    last_ = at;
    due_ = at + period_;
  }
  void event(TimePoint at) {
    TimePoint want = at + delay_;
    if (last_ && want < *last_ + minGap_) want = *last_ + minGap_;
    if (want < due_) due_ = want;
  }
  void runNow(TimePoint at) { due_ = at; }
  TimePoint due() const { return due_; }

 private:
  Millis delay_, minGap_, period_;
  std::optional<TimePoint> last_;
  TimePoint due_{};
};

class Feeder {
 public:
  Feeder(Options options, Kernel::Source& kernel, Clock& clock);

  // Runs every task due now and returns when the next one is due.
  TimePoint runDue();
  // The kernel's event socket was readable.
  void kernelEvent();
  // Polls everything once and returns the snapshot (for --once).
  Json snapshotOnce();

  // Runs until `stopFd` (a signalfd, say) becomes readable. Returns the exit status.
  int run(int stopFd);

  // What pimsnmpd holds as far as the feeder knows (after the last accepted patch).
  const Json& daemonDocument() const { return daemon_; }
  bool synced() const { return synced_; }
  bool pimdUp() const { return pimd_.connected(); }
  bool withdrawn() const { return withdrawn_; }
  const FrrState& frrState() const { return frr_; }
  uint64_t patchesSent() const { return patchesSent_; }

 private:
  void reconnect(TimePoint now);
  void pollInterfaces();
  void pollNeighbors();
  void pollRoutes();
  void readKernelInterfaces();
  void dumpMfc();
  void publish();
  bool resync();
  // One pimd command; nullopt when it failed (a lost session is noted for the grace time).
  std::optional<std::string> pimd(const std::string& command, bool json = false);
  std::optional<FrrJson> pimdJson(const std::string& command);
  void pimdLost();
  void pimdAnswered();
  Json snapshot();

  Options o_;
  Kernel::Source& kernel_;
  Clock& clock_;
  VtyClient pimd_, zebra_;
  FeedClient feed_;

  FrrState frr_;
  KernelView kview_;
  Json daemon_ = Json::object();
  bool synced_ = false;
  bool withdrawn_ = false;
  bool pimdAnswered_ = false;
  bool feedAwayLogged_ = false;
  std::optional<TimePoint> pimdDownSince_;
  uint64_t patchesSent_ = 0;

  TimePoint nextReconnect_{}, nextNeighbors_{}, nextInterfaces_{}, nextCounters_{}, nextResync_{};
  RouteSchedule routes_;
};

}  // namespace PimSnmpFrr
