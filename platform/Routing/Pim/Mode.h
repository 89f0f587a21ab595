#pragma once

#include <cstdint>

namespace Routing::Pim {

// PIM mode, one byte. Interfaces carry modeSparse or modeDense. A VRF's Status carries the
// mode of its PIM instance; modeVrfSparse is the sparse-mode instance, the only one the SNMP
// agent serves (its global-status filter keeps the VRFs of that mode). Values are the
// platform's wire values and must not be renumbered.
enum Mode : uint8_t {
  modeNone = 0,
  modeSparse = 1,
  modeDense = 2,
  modeVrfSparse = 3,
};

}  // namespace Routing::Pim
