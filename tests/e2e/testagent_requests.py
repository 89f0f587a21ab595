#!/usr/bin/env python3
"""Single requests with snmpget and snmpgetnext: GETNEXT from between two rows, from a partial
index and past the end of a table, GETs of missing instances and of columns a table does not
serve; each also batched with the others in one PDU."""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from testagent_lib import (END_OF_MIB, NO_SUCH_INSTANCE, NO_SUCH_OBJECT, Env, check_eq, main,
                           mcast_route_index)

PIM_INTF = "1.3.6.1.3.61.1.1.2.1"
PIM_NBR = "1.3.6.1.3.61.1.1.3.1"
PIM_MROUTE = "1.3.6.1.3.61.1.1.4.1"
PIM_RPSET = "1.3.6.1.3.61.1.1.6.1"
PIM_NEXTHOP = "1.3.6.1.3.61.1.1.7.1"
PIM_COMPONENT = "1.3.6.1.3.61.1.1.12.1"
MROUTE = "1.3.6.1.2.1.83.1.1.2.1"
MROUTE_NEXTHOP = "1.3.6.1.2.1.83.1.1.3.1"
MCAST_ROUTE = "1.3.6.1.2.1.168.1.5.1"
MCAST_NEXTHOP = "1.3.6.1.2.1.168.1.6.1"

R1 = "239.1.1.1.10.1.1.1.255.255.255.255"
R3 = "239.1.1.3.10.1.1.1.255.255.255.255"
R5 = "239.5.5.5.10.1.1.1.255.255.255.255"
M1 = mcast_route_index("239.1.1.1", "10.1.1.1", 32)
M2 = mcast_route_index("239.1.1.1", "10.1.1.2", 32)
M6 = "2.16." + ".".join(["255", "14"] + ["0"] * 13 + ["1"]) + ".128.2.16." + \
     ".".join(["0"] * 16) + ".0"


def answers(vars_):
    return [(v.oid, v.type, v.value) for v in vars_]


def test_getnext_between_rows_from_partial_index_and_past_the_end():
    with Env("next") as env:
        agent = env.agent()
        cases = [
            # Between two rows.
            (f"{PIM_INTF}.2.4", (f"{PIM_INTF}.2.5", "IpAddress", "10.0.5.1")),
            (f"{PIM_NBR}.2.10.0.4.0", (f"{PIM_NBR}.2.10.0.5.2", "INTEGER", 5)),
            (f"{MROUTE}.5.239.1.1.2.0.0.0.0.0.0.0.0", (f"{MROUTE}.5.{R3}", "INTEGER", 3)),
            (f"{MCAST_ROUTE}.9.1.4.239.1.1.1.32.1.4.10.1.1.1.33",
             (f"{MCAST_ROUTE}.9.{M2}", "INTEGER", 5)),
            # Partial indexes.
            (f"{MROUTE}.5.239.1.1.3", (f"{MROUTE}.5.{R3}", "INTEGER", 3)),
            (f"{MROUTE}.5.239.3", (f"{MROUTE}.5.{R5}", "INTEGER", 3)),
            (f"{PIM_NEXTHOP}.2.239.1.1.1.10.1.1.1", (f"{PIM_NEXTHOP}.2.{R1}.4.239.1.1.1", "INTEGER", 3)),
            (f"{MCAST_ROUTE}.9.1.4.239.1.1.1", (f"{MCAST_ROUTE}.9.{M1}", "INTEGER", 3)),
            (f"{MROUTE}.5", (f"{MROUTE}.5.{R1}", "INTEGER", 3)),
            # Past the last row of a column: the next column's first row.
            (f"{PIM_INTF}.9.5", (f"{PIM_NBR}.2.10.0.3.2", "INTEGER", 3)),
            (f"{PIM_INTF}.2.6", (f"{PIM_INTF}.3.3", "IpAddress", "255.255.255.0")),
            # Past the end of a table: the next table's first row.
            (f"{MROUTE}.16.{R5}", (f"{MROUTE_NEXTHOP}.6.{R1}.4.239.1.1.1", "INTEGER", 2)),
            (f"{MCAST_ROUTE}.19.{M6}",
             (f"{MCAST_NEXTHOP}.10.{M1}.4.1.4.239.1.1.1", "INTEGER", 2)),
            (f"{MCAST_ROUTE}.30", (f"{MCAST_NEXTHOP}.10.{M1}.4.1.4.239.1.1.1", "INTEGER", 2)),
            # Past the end of a MIB: the next registered MIB (IP-MCAST-MIB sorts before PIM-MIB).
            ("1.3.6.1.2.1.168.1.11.0", ("1.3.6.1.3.61.1.1.1.0", "INTEGER", 60)),
            # Past everything served.
            (f"{PIM_COMPONENT}.5.1", (f"{PIM_COMPONENT}.5.1", END_OF_MIB, None)),
        ]
        for start, expected in cases:
            got = agent.getnext(start)
            check_eq(len(got), 1, f"GETNEXT {start}")
            check_eq(answers(got)[0], expected, f"GETNEXT {start}")
        # The same cases in one PDU.
        got = agent.getnext(*[start for start, _ in cases])
        check_eq(answers(got), [e for _, e in cases], "all GETNEXTs in one PDU")


def test_missing_instances_and_unserved_columns():
    with Env("missing") as env:
        agent = env.agent()
        cases = [
            (f"{PIM_INTF}.2.4", NO_SUCH_INSTANCE),
            (f"{PIM_INTF}.2.6", NO_SUCH_INSTANCE),
            (f"{PIM_NBR}.2.10.0.3.3", NO_SUCH_INSTANCE),
            (f"{MROUTE}.4.239.1.1.1.10.1.1.3.255.255.255.255", NO_SUCH_INSTANCE),
            (f"{MCAST_ROUTE}.7.1.4.239.9.9.9.32.1.4.10.1.1.1.32", NO_SUCH_INSTANCE),
            (f"{MCAST_ROUTE}.7.{M1}.5", NO_SUCH_INSTANCE),
            (f"{MROUTE}.4.239.1.1.1", NO_SUCH_INSTANCE),
            ("1.3.6.1.3.61.1.1.1.1", NO_SUCH_INSTANCE),
            # pimIpMRouteNextHopTable serves column 2 only.
            (f"{PIM_NEXTHOP}.1.{R1}.4.239.1.1.1", NO_SUCH_OBJECT),
            (f"{PIM_NEXTHOP}.3.{R1}.4.239.1.1.1", NO_SUCH_OBJECT),
            # Inside the valid range but not served, and outside it.
            (f"{MROUTE}.7.{R1}", NO_SUCH_OBJECT),
            (f"{MCAST_ROUTE}.11.{M1}", NO_SUCH_OBJECT),
            (f"{PIM_RPSET}.3.1.224.0.0.0.240.0.0.0.10.9.9.9", NO_SUCH_OBJECT),
            # pimRPTable is not served at all.
            ("1.3.6.1.3.61.1.1.5.1.2.239.1.1.1", NO_SUCH_OBJECT),
        ]
        for oid, kind in cases:
            got = agent.get(oid)
            check_eq([(v.oid, v.type) for v in got], [(oid, kind)], f"GET {oid}")
        # Mixed with present rows in one PDU: each answered on its own.
        got = agent.get(f"{PIM_INTF}.2.4", f"{PIM_INTF}.2.5", f"{PIM_NEXTHOP}.3.{R1}.4.239.1.1.1",
                        f"{PIM_NEXTHOP}.2.{R1}.5.239.1.1.1", f"{MROUTE}.8.{R5}")
        check_eq(answers(got), [(f"{PIM_INTF}.2.4", NO_SUCH_INSTANCE, None),
                                (f"{PIM_INTF}.2.5", "IpAddress", "10.0.5.1"),
                                (f"{PIM_NEXTHOP}.3.{R1}.4.239.1.1.1", NO_SUCH_OBJECT, None),
                                (f"{PIM_NEXTHOP}.2.{R1}.5.239.1.1.1", "INTEGER", 2),
                                (f"{MROUTE}.8.{R5}", "Counter32", 13)], "mixed GET")
        # A GETNEXT on an unserved column moves on to the next served one.
        got = agent.getnext(f"{PIM_NEXTHOP}.1")
        check_eq(answers(got), [(f"{PIM_NEXTHOP}.2.{R1}.4.239.1.1.1", "INTEGER", 3)],
                 "GETNEXT of pimIpMRouteNextHopTable column 1")
        got = agent.getnext(f"{MROUTE}.6.{R5}")
        check_eq(answers(got), [(f"{MROUTE}.8.{R1}", "Counter32", 5)],
                 "GETNEXT across the unserved ipMRouteTable column 7")


if __name__ == "__main__":
    main([
        test_getnext_between_rows_from_partial_index_and_past_the_end,
        test_missing_instances_and_unserved_columns,
    ])
