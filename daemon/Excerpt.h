#pragma once

// Bounded quotes of client input. A member name or value in a feed line can be megabytes;
// replies, the status report and the log quote its head and tail and say how much was left out.

#include <cstddef>
#include <string>
#include <string_view>

#include "daemon/state/StateDocument.h"

namespace PimSnmpd {

// The longest text excerpt() returns unchanged.
inline constexpr size_t kMaxExcerpt = 256;

// `text` itself when it fits in kMaxExcerpt bytes; otherwise its first and last bytes around
// "…[N bytes left out]…", at most kMaxExcerpt + 32 bytes, cut on UTF-8 character boundaries.
std::string excerpt(std::string_view text);

// Each path and reason of `errors` through excerpt().
void excerptErrors(ValidationErrors& errors);

}  // namespace PimSnmpd
