#pragma once

// What a module header needs to declare its tables' public entry points, without net-snmp.

#include <string>

#include "platform/Ent/Ptr.h"
#include "platform/Snmp/Config.h"

// Declares initialize_table_T(config, context), the one public function of table T: it
// registers T in an SNMP context ("" = the default VRF) over that context's store.
#define PIMSNMP_DECLARE_MIB_TABLE(T) \
  void initialize_table_##T(const ::Ent::Ptr<::Snmp::Config>& config, const std::string& context)
