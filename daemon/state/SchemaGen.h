#pragma once

// The JSON Schema (draft 2020-12) of the state document, generated from its description
// (daemon/state/Description.h). docs/state.schema.json is this text; a unit test keeps the two
// equal (run it with PIMSNMP_WRITE_SCHEMA=1 to rewrite the file).

#include <string>

#include <nlohmann/json.hpp>

namespace PimSnmpd {

nlohmann::ordered_json stateSchema();

// The file's text: stateSchema() indented by two, with a final newline.
std::string stateSchemaText();

}  // namespace PimSnmpd
