#include "platform/Routing/Pim/Shtab/GlobalStatusReaderSm.h"

#include <utility>

#include "platform/Ent/Error.h"
#include "platform/Routing/Pim/Shtab/CollMirror.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimShtab")

namespace Routing::Pim::Shtab {

namespace {
template <class T>
Ent::Ptr<T> required(Ent::Ptr<T> p, const char* what) {
  if (!p) throw Ent::NullArgument(std::string("GlobalStatusReaderSm: null ") + what);
  return p;
}
}  // namespace

GlobalStatusReaderSm::GlobalStatusReaderSm(Lanet::AddressFamily af,
                                           Ent::Ptr<const GlobalStatus> globalStatus,
                                           Ent::Ptr<AllStatusColl> allStatusColl,
                                           bool clearOnDelete, Ent::Ptr<Plat::Clock> clock,
                                           Ent::Ptr<Stadb::EntityManager> mount)
    : Ent::Entity("globalStatusReaderSm"),
      af_(af),
      globalStatus_(required(std::move(globalStatus), "global status")),
      allStatusColl_(required(std::move(allStatusColl), "status collection")),
      clearOnDelete_(clearOnDelete),
      clock_(std::move(clock)),
      mount_(std::move(mount)),
      rxGlobalStatus_(this, globalStatus_) {
  handleResync();
}

GlobalStatusReaderSm::~GlobalStatusReaderSm() {
  isDeletingIs(true);
  if (clearOnDelete_) allStatusColl_->vrfStatusDelAll();
}

void GlobalStatusReaderSm::handleVrfStatus(const L3::VrfName& vrf) {
  TRACE8("af {}, vrf {}", af_, vrf);
  ++keysExamined_;
  mirrorKey(
      globalStatus_->vrfStatus(), allStatusColl_->vrfStatus(), vrf,
      [&](Ent::Ptr<Status> s) { allStatusColl_->vrfStatusIs(std::move(s)); },
      [&](const L3::VrfName& k) { allStatusColl_->vrfStatusDel(k); });
}

size_t GlobalStatusReaderSm::handleResync() {
  size_t changes = 0;
  bool changed = false;
  std::optional<L3::VrfName> at;
  while ((at = mirrorNext<L3::VrfName>(
              globalStatus_->vrfStatus(), allStatusColl_->vrfStatus(), at,
              [&](Ent::Ptr<Status> s) { allStatusColl_->vrfStatusIs(std::move(s)); },
              [&](const L3::VrfName& k) { allStatusColl_->vrfStatusDel(k); }, &changed))) {
    ++keysExamined_;
    changes += changed ? 1 : 0;
  }
  TRACE8("af {}, {} VRFs changed", af_, changes);
  return changes;
}

void GlobalStatusReaderSm::RxGlobalStatus::onChange(const Ent::Change& change) {
  if (owner_->isDeleting() || change.attr != GlobalStatus::attrVrfStatus) return;
  const L3::VrfName vrf = change.keyAs<L3::VrfName>();
  owner_->handleVrfStatus(vrf);
}

}  // namespace Routing::Pim::Shtab
