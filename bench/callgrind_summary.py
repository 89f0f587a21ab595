#!/usr/bin/env python3
"""Instructions per varbind of the table-walk request path, from `callgrind_annotate
--inclusive=yes --auto=no` output on stdin (used by bench/profile_walk.sh).

usage: callgrind_summary.py VARBINDS NAME"""

import re
import sys

# Handlers of the request path, top down, and what they spend most on.
WANTED = ["table_helper_handler", "netsnmp_serialize_helper_handler", "tableHintHandler",
          "batchHintIndexes", "netsnmp_table_iterator_helper_handler", "getFirstDataPoint",
          "getNextDataPoint", "Traits>::handler", "0x0000000000021460", "snmp_clone_varbind",
          "netsnmp_check_getnext_reply", "snmp_free_varbind"]
LABELS = {"0x0000000000021460": "table_container handler (reference)",
          "Traits>::handler": "MibTable handler (column values)"}


def main():
    varbinds, name = int(sys.argv[1]), sys.argv[2]
    print(f"== {name}: {varbinds} varbinds (inclusive instructions per varbind)")
    seen = set()
    for line in sys.stdin:
        m = re.match(r"\s*([\d,]+) \(\s*[\d.]+%\)\s+(\S.*)$", line)
        if not m:
            continue
        ir, fn = int(m.group(1).replace(",", "")), m.group(2)
        if "PROGRAM TOTALS" in fn:
            print(f"  {'total':44} {ir / varbinds:8.0f}")
            continue
        for w in WANTED:
            # Only the walked table's instantiation of the MibTable functions.
            if w in fn and w not in seen and ("IpMcastRoute" in fn or "Traits" not in fn):
                seen.add(w)
                print(f"  {LABELS.get(w, w):44} {ir / varbinds:8.0f}")


if __name__ == "__main__":
    main()
