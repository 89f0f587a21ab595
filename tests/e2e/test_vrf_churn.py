#!/usr/bin/env python3
"""VRFs that come and go under fresh names leave nothing behind: each is served in its context
over v2c (--community-prefix) and v3 while it is there, and once it goes its community, its
context in net-snmp and the daemon's count of them are back where they started."""

import e2elib as e
from e2elib import check, check_eq

CYCLES = 10


def counts(env, feed):
    st = env.status(feed)
    return len(st.get("communities", [])), st["netsnmpContexts"], len(st["contexts"])


def main():
    with e.Env("vrf-churn") as env:
        doc = e.two_vrf_document()
        red = doc["vrfs"]["red"]
        proc, port, feed = env.pimsnmpd(doc, config_lines=["createUser e2e", "rouser e2e noauth"],
                                        args=["--community-prefix", "public"])
        e.wait_tables(env, feed, "red", {"ipMcastRouteTable": 1})
        before = counts(env, feed)
        c = e.FeedClient(feed)
        for i in range(CYCLES):
            name = f"churn{i}"
            c.patch({"vrfs": {name: red}})
            e.wait_tables(env, feed, name, {"ipMcastRouteTable": 1})
            check(e.reachable(env, port, e.IPMCAST_MIB, community=f"public-{name}"),
                  f"{name} over v2c")
            check(e.reachable(env, port, e.IPMCAST_MIB, user="e2e", context=name),
                  f"{name} over v3")
            # Another VRF in between, so that the served community and context change.
            check(e.reachable(env, port, e.IPMCAST_MIB, community="public-red"), "red over v2c")
            c.patch({"vrfs": {name: None}})
            e.wait_for(lambda: name not in env.status(feed)["contexts"], 10, f"{name} to go")
            check(not e.reachable(env, port, e.IPMCAST_MIB, community=f"public-{name}"),
                  f"{name} still answers over v2c after it went")
        check_eq(counts(env, feed), before, "communities, net-snmp contexts, served contexts")
        check(e.reachable(env, port, e.IPMCAST_MIB, community="public"), "default VRF over v2c")
        check(e.reachable(env, port, e.IPMCAST_MIB, community="public-red"), "red over v2c")
        check(proc.alive(), "pimsnmpd alive")


if __name__ == "__main__":
    e.run(main)
