#pragma once

// Start-row hints for net-snmp table_iterator tables.
//
// net-snmp's iterator asks get_first_data_point for the first row of every walk. Left alone it
// walks from the top, which makes a GET cost a scan and a full walk quadratic. With
// NETSNMP_ITERATOR_FLAG_SORTED it passes the table_info of the first request of the batch as a
// hint, which is wrong for a batch of several requests (the first may be processed already, or
// not be the smallest) and for the later passes of a GETNEXT that wraps to the next column.
//
// Tables registered with registerTableIteratorWithHint get a "table_hint" handler right above
// the iterator. For each call it works out the smallest index among the batch's unprocessed
// requests; get_first_data_point reads it with tableHint(), which hands it out on the iterator's
// first pass only. Starting at that row (or at the first row not less than it) is correct for
// every request of the batch: no row before it can answer a GET or a GETNEXT of any of them,
// and for GETNEXT the row itself answers none either. The hint is the table helper's own parsed
// index list whenever that holds the whole index, so a walk's step copies nothing.
// For GET (and SET_RESERVE1) the handler also ends the walk once it has passed the largest
// requested index, so a GET of a missing row costs one descent instead of a walk to the end
// (it stands in for iinfo->get_next_data_point for the duration of such a call).

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace Snmp {

constexpr const char* kTableHintHandlerName = "table_hint";

// The hint record: `word` is 1 when `indexes` holds the index values (one varbind per index
// column, typed as in the table's table_info) of the row to start at; anything else means
// "start at the first row". The list belongs to the framework and lives until the iterator
// returns; copy what must outlive get_first_data_point. `exclusive` is set for GETNEXT: every
// request of the batch asks for a row after its own index, none of which sorts before the
// hint, so a row equal to the hint answers nothing and the walk may start after it.
struct TableHint {
  int word = 0;
  netsnmp_variable_list* indexes = nullptr;
  bool exclusive = false;
};

// Call at the top of get_first_data_point with the value found in *loop_context on entry.
// Returns the batch's hint on the iterator's first pass, and no hint on every later pass (a
// GETNEXT that ran off the end of a column restarts from the top of the next column) or when
// the table was not registered through registerTableIteratorWithHint. get_first_data_point
// must still overwrite *loop_context (with null when it returns null): the iterator frees
// whatever is left there.
TableHint tableHint(const void* loopContext);

// Registers an iterator table as netsnmp_register_table_iterator does, but builds the chain
//   bulk_to_next -> table -> [serialize ->] table_hint -> table_iterator -> reginfo's handler
// before registering, so every copy net-snmp makes of the registration has it. Sets
// NETSNMP_ITERATOR_FLAG_SORTED on `iinfo`: the get_first/get_next callbacks must yield rows in
// index (OID) order. `serialize` passes the requests of a batch to the iterator one at a time.
// Returns MIB_REGISTERED_OK (0) or a net-snmp error; on error `reginfo` has been freed, as
// netsnmp_register_table_iterator does.
int registerTableIteratorWithHint(netsnmp_handler_registration* reginfo,
                                  netsnmp_iterator_info* iinfo, bool serialize = true);

// The hint of one batch: the smallest index among `requests` that are not processed yet, or
// null when one of them starts at the top of the table (no index, a partial one) or nothing
// applies. For MODE_GETNEXT, requests past the table's last column are ignored.
// When the table helper parsed that request's whole index, `indexes` is the request's own
// parsed list (owned false: it belongs to the request); otherwise it is a list parsed here from
// the index OID (owned true: free it with snmp_free_varbind). Exposed for tests.
struct BatchHint {
  netsnmp_variable_list* indexes = nullptr;
  bool owned = false;
};
BatchHint batchHint(netsnmp_request_info* requests, int mode,
                    const netsnmp_table_registration_info& table);

}  // namespace Snmp
