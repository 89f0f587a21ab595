#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

struct variable_list;
typedef struct variable_list netsnmp_variable_list;

namespace Snmp {

// The agent's queue of outgoing notifications. Entries leave in order of due time (seconds on
// the platform clock), entries due at the same time in the order they were queued. Nothing is
// sent from inside enqueueTrap: callers are state-machine handlers, and a notification goes
// out from the agent's event loop (processDue, run by a net-snmp alarm once attached) so that
// its order against other queued notifications holds.
class TrapManager {
 public:
  // Sends one notification; must not keep or free `vars`.
  using Sender = std::function<void(netsnmp_variable_list* vars, const std::string& context)>;

  struct Pending {
    double due;
    uint64_t sequence;
    std::string context;
    const netsnmp_variable_list* vars;
    std::optional<std::string> origin;
  };

  // Names the VRF (by its SNMP context string) whose state raises the notifications queued
  // while the scope lives. A notification is sent in the context its caller gives, which for
  // pimNeighborLoss is the default context whatever the VRF; a receiver that tells VRFs apart
  // by community (vrftrap2sink) reads the origin instead. Scopes nest.
  class OriginScope {
   public:
    explicit OriginScope(std::string vrfContext);
    ~OriginScope();
    OriginScope(const OriginScope&) = delete;
    OriginScope& operator=(const OriginScope&) = delete;

   private:
    std::optional<std::string> previous_;
  };
  // The origin of the innermost OriginScope, else null.
  static const std::string* queuingOrigin();
  // While a notification is being sent: the origin it was queued with, else null.
  static const std::string* sendingOrigin();

  // The process's queue, created on first use; sends through net-snmp until senderIs.
  static TrapManager& instance();

  TrapManager();
  ~TrapManager();
  TrapManager(const TrapManager&) = delete;
  TrapManager& operator=(const TrapManager&) = delete;

  // Takes ownership of `varbinds` (a list starting with snmpTrapOID.0; net-snmp adds
  // sysUpTime.0). A due time of 0, or any time not after now, means "send at once": on the
  // next event-loop turn, after whatever is already due. A null list is ignored.
  void enqueueTrap(netsnmp_variable_list* varbinds, std::string context, double dueTime);

  // Sends (and frees) every entry due at or before `now`; returns how many were sent.
  size_t processDue(double now);

  size_t queueLength() const { return queue_.size(); }
  std::optional<double> nextDueTime() const;
  // The queue in sending order, for tests and status output.
  std::vector<Pending> pending() const;
  uint64_t sentCount() const { return sent_; }
  // Frees every queued entry without sending it; returns how many.
  size_t clear();

  // Replaces how notifications are sent (tests); an empty function restores net-snmp's
  // send_trap_vars_with_context.
  void senderIs(Sender sender);

  // Once attached, a net-snmp alarm runs processDue when the earliest entry falls due. Attach
  // after the agent library is initialised and detach before it shuts down.
  void attachToAgentLoop();
  void detachFromAgentLoop();
  bool attachedToAgentLoop() const { return attached_; }

 private:
  struct Key {
    double due;
    uint64_t sequence;
    bool operator<(const Key& o) const {
      return due < o.due || (due == o.due && sequence < o.sequence);
    }
  };
  struct Entry {
    std::string context;
    netsnmp_variable_list* vars;
    std::optional<std::string> origin;
  };

  static void alarmFired(unsigned int reg, void* arg);
  void rearm();
  void send(Entry& entry);

  std::map<Key, Entry> queue_;
  uint64_t nextSequence_ = 0;
  uint64_t sent_ = 0;
  Sender sender_;
  bool attached_ = false;
  unsigned int alarm_ = 0;
  double alarmDue_ = 0;
};

}  // namespace Snmp
