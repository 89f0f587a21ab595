#pragma once

namespace PimSnmpd {

inline constexpr const char* kVersion = "0.1.0";

}  // namespace PimSnmpd
