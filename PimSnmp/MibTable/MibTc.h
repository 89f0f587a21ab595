#pragma once

// The textual conventions the served columns use. Each module file defines the ones its objects
// name (a plain Debian box has none of the standard modules that define them); names, values
// and hints match those conventions, so net-snmp decodes InetAddress indexes by type.

#include <vector>

#include "PimSnmp/MibTable/MibObject.h"

namespace Routing::Pim::Snmp::Mib {

const TextualConvention& truthValue();
const TextualConvention& rowStatus();
const TextualConvention& storageType();
const TextualConvention& timeStamp();
const TextualConvention& interfaceIndex();
const TextualConvention& interfaceIndexOrZero();
const TextualConvention& inetAddressType();
const TextualConvention& inetAddress();
const TextualConvention& inetAddressPrefixLength();
const TextualConvention& inetVersion();

// All of the above, in the order a module file defines them.
const std::vector<const TextualConvention*>& textualConventions();

}  // namespace Routing::Pim::Snmp::Mib
