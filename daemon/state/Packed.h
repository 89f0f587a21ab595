#pragma once

// A compact binary form of one document value, read and written along its description: an
// object is a bitmask of the members present followed by their values in declaration order, an
// enumeration or flag its index, a number a varint, a string its length and bytes. Member
// names and JSON punctuation are not stored. The daemon keeps its routes in this form: a route
// takes a few dozen bytes instead of a JSON tree's kilobyte and a half.
//
// Packing never fails: a value the description cannot express exactly (an integral float such
// as 5.0, say) is kept in MessagePack instead, so that unpacking always gives back the value
// that was packed, equal to the last bit.

#include <cstdint>
#include <string>
#include <string_view>

#include "daemon/state/Description.h"
#include "daemon/state/Json.h"

namespace PimSnmpd::Packed {

// LEB128: seven bits a byte, low first. takeVarint reads from the front of `in` and advances it;
// the input is the daemon's own output, so it is trusted.
void putVarint(std::string& out, uint64_t n);
uint64_t takeVarint(std::string_view& in);

// Appends the packed form of `v` (a value of kind `d`) to `out`.
void pack(const Description::Value& d, const Json& v, std::string& out);

// The value packed in `in` by pack() with the same description.
Json unpack(const Description::Value& d, std::string_view in);

}  // namespace PimSnmpd::Packed
