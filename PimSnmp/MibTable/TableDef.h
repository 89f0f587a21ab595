#pragma once

// Per-table descriptors: everything that differs between the thirteen tables
// (OID, index components, served columns, modes) as data, so that one
// iterator/handler implementation (MibTable.h) serves them all.

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "PimSnmp/MibTable/MibObject.h"
#include "PimSnmp/PimSnmp/StoreTable.h"
#include "platform/Trace/Trace.h"

namespace Routing::Pim::Snmp {

class PimMib;

// One index component of a table: how a hint varbind is read into the index
// and how the component of a row is written into an index varbind.
template <class Index>
struct IndexPart {
  const char* name;       // index column name, as traced: "ipMRouteNextHopGroup"
  const char* traceName;  // label in the iteration trace: "gAddr="
  u_char asnType;         // ASN type of the table_info index varbind
  // Reads the hint component into `index`; false when the value does not fit the field.
  // May throw when the component completes a value whose constructor rejects it.
  bool (*read)(const netsnmp_variable_list& hint, Index& index);
  // Encodes the row's component for snmp_set_var_typed_value; negative on failure.
  int (*encode)(const Index& index, uint8_t* buf, size_t capacity);
  // Text of the component for traces.
  std::string (*text)(const Index& index);
  Mib::IndexColumn column;  // the index object, for the INDEX clause of the module file
};

// One served column: the entry attribute it reads, through which converter.
template <class Entry>
struct ColumnDef {
  unsigned number;
  const char* name;       // "pimInterfaceMode"
  const char* attr;       // attribute word of the failure trace ("mode"; may be "")
  const char* converter;  // converter name of the failure trace ("ModeToAsnInteger")
  u_char asnType;         // varbind type
  int (*encode)(const Entry& entry, uint8_t* buf, size_t capacity);
  Mib::ObjectType object;      // SYNTAX, DESCRIPTION and UNITS of the module file
  bool ownSetMessage = false;  // the MIB declares it writable: SETs get their own trace
  size_t maxLength = 0;        // when non-zero, longer values are never sent
};

template <class Index, class Entry>
struct TableDef {
  using Coll = StoreColl<Index, Entry>;

  const char* name;           // "pimIpMRouteNextHopTable"
  const char* indexTypeName;  // named in "Bad hint for T: <type> ctor threw exception:"
  std::vector<oid> tableOid;  // registered as is
  int modes;                  // HANDLER_CAN_RONLY or HANDLER_CAN_RWRITE
  unsigned minColumn;
  unsigned maxColumn;
  std::vector<unsigned> validColumns;
  std::vector<IndexPart<Index>> indexes;
  std::vector<ColumnDef<Entry>> columns;
  const Coll& (*coll)(const PimMib& store);
  Trace::Handle* trace;               // the module's facility
  const char* description = nullptr;  // one line for the module file

  // Tables have at most a dozen columns: a linear look-up beats any index here.
  const ColumnDef<Entry>* column(unsigned number) const {
    for (const auto& c : columns) {
      if (c.number == number) return &c;
    }
    return nullptr;
  }
};

// The Traits shape MibTable<Traits> expects; a table's Traits derives from it and adds
// `static const Def& def();`.
template <class EntryT, class IndexT>
struct TableTraits {
  using Entry = EntryT;
  using Index = IndexT;
  using Def = TableDef<IndexT, EntryT>;
};

}  // namespace Routing::Pim::Snmp

// One served column of a descriptor whose entry type is `Entry`: `value` is an expression of
// the row `e`, converted by `conv` (traced by the name written here); `object` is its
// Mib::ObjectType. Optional trailing arguments are ColumnDef's ownSetMessage and maxLength.
#define PIMSNMP_COLUMN(number, name, attr, conv, asnType, value, object, ...) \
  ::Routing::Pim::Snmp::ColumnDef<Entry> {                                    \
    number, name, attr, #conv, asnType,                                       \
        [](const Entry& e, uint8_t* buf, size_t capacity) -> int {            \
          (void)e; /* constant columns do not read the row */                 \
          return conv(value, buf, capacity);                                  \
        },                                                                    \
        object __VA_OPT__(, ) __VA_ARGS__                                     \
  }
