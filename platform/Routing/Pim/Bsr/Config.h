#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"

namespace Routing::Pim::Bsr {

// BSR configuration of one VRF.
class Config : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrBootstrapTimeout = 1,
    attrCandidateRpConfigCount = 2,
  };

  explicit Config(const L3::VrfName& vrfName) : Ent::Entity(vrfName.str()), vrfName_(vrfName) {}
  std::string_view typeName() const override { return "Routing::Pim::Bsr::Config"; }

  const L3::VrfName& vrfName() const { return vrfName_; }
  const L3::VrfName& key() const { return vrfName_; }

  // Seconds without a bootstrap message before the elected BSR is dropped.
  uint32_t bootstrapTimeout() const { return bootstrapTimeout_; }
  void bootstrapTimeoutIs(uint32_t s) {
    if (s == bootstrapTimeout_) return;
    bootstrapTimeout_ = s;
    notify(attrBootstrapTimeout);
  }
  // How many candidate-RP configurations the VRF has.
  uint32_t candidateRpConfigCount() const { return candidateRpConfigCount_; }
  void candidateRpConfigCountIs(uint32_t n) {
    if (n == candidateRpConfigCount_) return;
    candidateRpConfigCount_ = n;
    notify(attrCandidateRpConfigCount);
  }

 private:
  const L3::VrfName vrfName_;
  uint32_t bootstrapTimeout_ = 0;
  uint32_t candidateRpConfigCount_ = 0;
};

}  // namespace Routing::Pim::Bsr
