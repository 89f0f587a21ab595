#pragma once

// Writes a MIB module file (SMIv2 text) from a Mib::Module read off the agent's descriptors,
// and checks first that the descriptors can make one.

#include <string>
#include <vector>

#include "PimSnmp/MibTable/MibModule.h"

namespace Routing::Pim::Snmp::Mib {

// What keeps `module` from being written: a column whose SYNTAX disagrees with the varbind
// type the agent sends, a missing or unquotable DESCRIPTION, an enumeration without labels, an
// object with no named parent node, an imported index object no module in `all` defines.
// Empty when it can be written.
std::vector<std::string> problemsOf(const Module& module, const std::vector<const Module*>& all);

// The module file's text. `all` resolves imported index objects to their module.
std::string moduleText(const Module& module, const std::vector<const Module*>& all);

// The SYNTAX clause of `syntax` ("INTEGER { dense(1), sparse(2) }", "InterfaceIndex").
std::string syntaxText(const Syntax& syntax);

}  // namespace Routing::Pim::Snmp::Mib
