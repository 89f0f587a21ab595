#pragma once

#include <memory>
#include <string_view>
#include <unordered_map>

#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Routing/Pim/AllStatusColl.h"
#include "platform/Routing/Pim/Mode.h"
#include "platform/Routing/Pim/Status.h"
#include "platform/Routing/Pim/StatusColl.h"

namespace Routing::Pim {

// Keeps in `statusColl` exactly the VRF statuses of `allStatusColl` whose mode is `mode` (the
// same records), following VRFs that come and go and each status's mode changes. Each event
// costs O(log n); construction copies what matches and drops from `statusColl` what does not.
class GlobalStatusModeFilterSm : public Ent::Entity {
 public:
  // Throws Ent::NullArgument for a null collection.
  GlobalStatusModeFilterSm(Ent::Ptr<const AllStatusColl> allStatusColl,
                           Ent::Ptr<StatusColl> statusColl, Mode mode);
  ~GlobalStatusModeFilterSm() override;
  std::string_view typeName() const override { return "Routing::Pim::GlobalStatusModeFilterSm"; }

  const Ent::Ptr<const AllStatusColl>& allStatusColl() const { return allStatusColl_; }
  const Ent::Ptr<StatusColl>& statusColl() const { return statusColl_; }
  Mode mode() const { return mode_; }

  // A VRF entered or left allStatusColl, or its record was replaced.
  void handleVrfStatus(const L3::VrfName& vrf);
  // The mode of the VRF's status changed.
  void handleMode(const L3::VrfName& vrf);

 private:
  class RxAllStatusColl : public Ent::ReactorOf<AllStatusColl> {
   public:
    RxAllStatusColl(GlobalStatusModeFilterSm* owner, Ent::Ptr<const AllStatusColl> c)
        : ReactorOf(std::move(c)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    GlobalStatusModeFilterSm* owner_;
  };
  class RxStatus : public Ent::ReactorOf<Status> {
   public:
    RxStatus(GlobalStatusModeFilterSm* owner, Ent::Ptr<const Status> s)
        : ReactorOf(std::move(s)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    GlobalStatusModeFilterSm* owner_;
  };

  // Puts the VRF into statusColl or takes it out, by its current record and mode.
  void evaluate(const L3::VrfName& vrf);

  const Ent::Ptr<const AllStatusColl> allStatusColl_;
  const Ent::Ptr<StatusColl> statusColl_;
  const Mode mode_;
  RxAllStatusColl rxAllStatusColl_;
  std::unordered_map<L3::VrfName, std::unique_ptr<RxStatus>> rxStatus_;
};

}  // namespace Routing::Pim
