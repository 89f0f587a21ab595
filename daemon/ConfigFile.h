#pragma once

// The net-snmp configuration file (--config): checked before net-snmp reads it, because the
// library only logs a file it cannot open and carries on with no access configured.

#include <optional>
#include <string>

namespace PimSnmpd {

// Why `path` cannot be read as a configuration file ("does not exist", "is a directory",
// "cannot be read: Permission denied"), or nullopt when it can.
std::optional<std::string> configUnreadable(const std::string& path);

}  // namespace PimSnmpd
