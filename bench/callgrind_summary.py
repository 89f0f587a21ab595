#!/usr/bin/env python3
"""Instructions per varbind of the table-walk request path, from `callgrind_annotate
--inclusive=yes --auto=no` output on stdin (used by bench/profile_walk.sh).

usage: callgrind_summary.py VARBINDS NAME

Prints the inclusive cost of the handlers on the path and, derived from them, what lies outside
the table (PDU decoding and encoding, VACM, the GETBULK repetition loop) and what the `table`
helper costs itself (everything under table_helper_handler but the handler below it)."""

import re
import sys

# Handlers of the request path, top down, and what they spend most on. One walk per dump, so
# a function name is that walk's.
WANTED = ["table_helper_handler", "netsnmp_serialize_helper_handler", "tableHintHandler",
          "batchHint", "netsnmp_table_iterator_helper_handler", "getFirstDataPoint",
          "getNextDataPoint", "Traits>::handler", "floorFirst", "floorNext", "floorHandler",
          "0x0000000000021460", "snmp_clone_varbind", "netsnmp_check_getnext_reply",
          "snmp_free_varbind"]
LABELS = {"0x0000000000021460": "table_container handler (reference)",
          "Traits>::handler": "MibTable handler (column values)",
          "floorHandler": "floor handler (column values)"}
# The handler right below the table helper, whichever the walked table has.
BELOW_TABLE = ["netsnmp_serialize_helper_handler", "netsnmp_table_iterator_helper_handler",
               "0x0000000000021460"]


def main():
    varbinds, name = int(sys.argv[1]), sys.argv[2]
    print(f"== {name}: {varbinds} varbinds (inclusive instructions per varbind)")
    found = {}
    order = []
    total = None
    for line in sys.stdin:
        m = re.match(r"\s*([\d,]+) \(\s*[\d.]+%\)\s+(\S.*)$", line)
        if not m:
            continue
        ir, fn = int(m.group(1).replace(",", "")), m.group(2)
        if "PROGRAM TOTALS" in fn:
            total = ir
            continue
        for w in WANTED:
            # Only the walked table's instantiation of the MibTable functions; the first (the
            # largest) line of a name is the whole of it.
            if (w in fn and w not in found and ("IpMcastRoute" in fn or "Traits" not in fn)
                    and not (w == "batchHint" and "tableHintHandler" in fn)):
                found[w] = ir
                order.append(w)
    per = lambda ir: ir / varbinds  # noqa: E731
    if total is not None:
        print(f"  {'total':44} {per(total):8.0f}")
    helper = found.get("table_helper_handler")
    below = max((found[b] for b in BELOW_TABLE if b in found), default=None)
    if total is not None and helper is not None:
        print(f"  {'outside the table (total - table helper)':44} {per(total - helper):8.0f}")
    if helper is not None and below is not None:
        print(f"  {'table helper itself (helper - handler below)':44} {per(helper - below):8.0f}")
    for w in order:
        print(f"  {LABELS.get(w, w):44} {per(found[w]):8.0f}")


if __name__ == "__main__":
    main()
