#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Lanet/IntfId.h"

namespace Routing::Pim::SparseMode {

// Per-interface assert state of a route (RFC 4601 assert state machine).
enum AssertState : uint8_t {
  assertStateNoInfo = 0,
  assertStateWinner = 1,
  assertStateLoser = 2,
};

// Per-interface (S,G,rpt) downstream state of a route (RFC 4601). rptStateNoInfo means the
// interface is not pruned off the shared tree.
enum RptState : uint8_t {
  rptStateInvalid = 0,
  rptStateNoInfo = 1,
  rptStatePruned = 2,
  rptStatePrunePending = 3,
};

// The (S,G,I) state of one interface of a sparse-mode route. Records are created per route
// and interface (up to millions), so they carry no entity name.
class Intf : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrAssertState = 1,
    attrAssertMetric = 2,
    attrAssertMetricPref = 3,
    attrAssertRptBit = 4,
    attrRptState = 5,
    attrForward = 6,
  };

  explicit Intf(const Lanet::IntfId& intfId) : intfId_(intfId) {}
  std::string_view typeName() const override { return "Routing::Pim::SparseMode::Intf"; }

  const Lanet::IntfId& intfId() const { return intfId_; }
  const Lanet::IntfId& key() const { return intfId_; }

  uint8_t assertState() const { return assertState_; }
  void assertStateIs(uint8_t s) {
    if (s == assertState_) return;
    assertState_ = s;
    notify(attrAssertState);
  }
  uint32_t assertMetric() const { return assertMetric_; }
  void assertMetricIs(uint32_t m) {
    if (m == assertMetric_) return;
    assertMetric_ = m;
    notify(attrAssertMetric);
  }
  uint32_t assertMetricPref() const { return assertMetricPref_; }
  void assertMetricPrefIs(uint32_t p) {
    if (p == assertMetricPref_) return;
    assertMetricPref_ = p;
    notify(attrAssertMetricPref);
  }
  bool assertRptBit() const { return assertRptBit_; }
  void assertRptBitIs(bool b) {
    if (b == assertRptBit_) return;
    assertRptBit_ = b;
    notify(attrAssertRptBit);
  }
  uint8_t rptState() const { return rptState_; }
  void rptStateIs(uint8_t s) {
    if (s == rptState_) return;
    rptState_ = s;
    notify(attrRptState);
  }
  // Traffic of the route is forwarded out of this interface.
  bool forward() const { return forward_; }
  void forwardIs(bool f) {
    if (f == forward_) return;
    forward_ = f;
    notify(attrForward);
  }

 private:
  const Lanet::IntfId intfId_;
  uint32_t assertMetric_ = 0;
  uint32_t assertMetricPref_ = 0;
  uint8_t assertState_ = assertStateNoInfo;
  uint8_t rptState_ = rptStateInvalid;
  bool assertRptBit_ = false;
  bool forward_ = false;
};

}  // namespace Routing::Pim::SparseMode
