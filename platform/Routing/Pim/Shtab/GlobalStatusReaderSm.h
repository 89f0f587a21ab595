#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Clock/Clock.h"
#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Routing/Pim/AllStatusColl.h"
#include "platform/Routing/Pim/GlobalStatus.h"
#include "platform/Stadb/EntityManager.h"

namespace Routing::Pim::Shtab {

// Keeps `allStatusColl` holding exactly the VRF statuses of the PIM agent's global status of
// one family: the same Routing::Pim::Status records, inserted and removed by VRF as the global
// status changes (O(log n) per change), after a full copy on construction. Changes inside a
// record (its mode, its interfaces) need no copying: followers see them on the record.
//
// `clearOnDelete`: empty `allStatusColl` when the reader goes; otherwise what it copied stays.
// `clock` and `mount` (the entity manager the global status was mounted through) identify the
// reader's environment; the copying itself is synchronous and uses neither.
class GlobalStatusReaderSm : public Ent::Entity {
 public:
  // Throws Ent::NullArgument for a null status or collection.
  GlobalStatusReaderSm(Lanet::AddressFamily af, Ent::Ptr<const GlobalStatus> globalStatus,
                       Ent::Ptr<AllStatusColl> allStatusColl, bool clearOnDelete,
                       Ent::Ptr<Plat::Clock> clock, Ent::Ptr<Stadb::EntityManager> mount);
  ~GlobalStatusReaderSm() override;
  std::string_view typeName() const override { return "Routing::Pim::Shtab::GlobalStatusReaderSm"; }

  Lanet::AddressFamily af() const { return af_; }
  const Ent::Ptr<const GlobalStatus>& globalStatus() const { return globalStatus_; }
  const Ent::Ptr<AllStatusColl>& allStatusColl() const { return allStatusColl_; }
  bool clearOnDelete() const { return clearOnDelete_; }
  const Ent::Ptr<Plat::Clock>& clock() const { return clock_; }
  const Ent::Ptr<Stadb::EntityManager>& mount() const { return mount_; }

  void handleVrfStatus(const L3::VrfName& vrf);
  // Full copy; returns how many VRFs changed.
  size_t handleResync();
  // VRFs looked at so far: one per announced change, plus every VRF of a full copy.
  uint64_t keysExamined() const { return keysExamined_; }

 private:
  class RxGlobalStatus : public Ent::ReactorOf<GlobalStatus> {
   public:
    RxGlobalStatus(GlobalStatusReaderSm* owner, Ent::Ptr<const GlobalStatus> s)
        : ReactorOf(std::move(s)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    GlobalStatusReaderSm* owner_;
  };

  const Lanet::AddressFamily af_;
  const Ent::Ptr<const GlobalStatus> globalStatus_;
  const Ent::Ptr<AllStatusColl> allStatusColl_;
  const bool clearOnDelete_;
  const Ent::Ptr<Plat::Clock> clock_;
  const Ent::Ptr<Stadb::EntityManager> mount_;
  uint64_t keysExamined_ = 0;
  RxGlobalStatus rxGlobalStatus_;
};

}  // namespace Routing::Pim::Shtab
