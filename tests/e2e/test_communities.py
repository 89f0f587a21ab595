#!/usr/bin/env python3
"""v2c communities of the configuration next to --community-prefix ones: hand-written com2sec
lines (with -Cn, ADDR/LEN and negated sources, first match wins) and rocommunity lines answer in
their context over UDP and TCP, as net-snmp maps them; a wrong community or a wrong source gets
no answer; SIGHUP replaces them."""

import signal

import e2elib as e
from e2elib import check, check_eq

PIM_INTERFACE_ADDRESS = "1.3.6.1.3.61.1.1.2.1.2"  # by ifIndex: 1-3 default, 100-101 red
SHARED = ["group pimsnmpVrf v1 pimsnmpVrf", "group pimsnmpVrf v2c pimsnmpVrf",
          "view pimsnmpVrfAll included .1",
          'access pimsnmpVrf "" any noauth prefix pimsnmpVrfAll none none']
LINES = ["com2sec pimsnmpVrf 127.0.0.1 hand",
         "com2sec -Cn red pimsnmpVrf 127.0.0.1 hand-red",
         "com2sec pimsnmpVrf !127.0.0.2 both",
         "com2sec -Cn red pimsnmpVrf 127.0.0.0/8 both",
         "rocommunity ro-red 127.0.0.1 .1 red"]


def vrf_of(env, port, community, source="127.0.0.1", transport="udp"):
    """The VRF whose first PIM interface a GETNEXT gets ('default', 'red'), None without an
    answer. net-snmp's TCP client does not bind --clientaddr: over TCP the source is 127.0.0.1."""
    r = e.snmp(env, "snmpgetnext", port, [f"--clientaddr={source}", PIM_INTERFACE_ADDRESS],
               timeout=1, retries=0, transport=transport, community=community)
    if r.returncode != 0:
        check("Timeout" in r.stderr, f"{community} from {source}: {r.stderr.strip()}")
        return None
    index = e.parse_vars(r.stdout)[0].oid.removeprefix(PIM_INTERFACE_ADDRESS + ".")
    return {"1": "default", "100": "red"}.get(index, f"row {index!r}")


def check_vrfs(env, port, cases, what):
    for community, source, transport, vrf in cases:
        check_eq(vrf_of(env, port, community, source, transport), vrf,
                 f"{what}: {community} from {source} over {transport}")


def main():
    with e.Env("communities") as env:
        conf = ["createUser e2e", "rouser e2e noauth", *SHARED, *LINES]
        proc, port, feed = env.pimsnmpd(e.two_vrf_document(), config_lines=conf,
                                        args=["--community-prefix", "public"])
        e.wait_tables(env, feed, "red", {"pimInterfaceTable": 2})
        check_eq(env.status(feed).get("configuredCommunities"), 5, "entries taken from the file")
        check("5 com2sec entries of the configuration" in proc.output(), "taken-over entries logged")
        check_vrfs(env, port, [
            ("hand", "127.0.0.1", "udp", "default"), ("hand", "127.0.0.1", "tcp", "default"),
            ("hand-red", "127.0.0.1", "udp", "red"), ("hand-red", "127.0.0.1", "tcp", "red"),
            ("hand-red", "127.0.0.2", "udp", None),  # wrong source
            ("hand-blue", "127.0.0.1", "udp", None),  # wrong community
            ("both", "127.0.0.1", "udp", "red"),  # the negated line does not match, the next does
            ("both", "127.0.0.2", "udp", None),  # the negated line refuses it
            ("ro-red", "127.0.0.1", "udp", "red"), ("ro-red", "127.0.0.3", "udp", None),
            ("hand-blue", "127.0.0.1", "tcp", None),
            ("public-red", "127.0.0.1", "udp", "red"), ("public", "127.0.0.1", "tcp", "default"),
            ("hand-red", "127.0.0.1", "udp", "red"),
        ], "before SIGHUP")

        # The file changes: the old lines go, the new ones answer, the prefix's stay.
        env.write("pimsnmpd.conf", "\n".join(
            ["createUser e2e", "rouser e2e noauth", *SHARED,
             "com2sec -Cn red pimsnmpVrf 127.0.0.2 moved"]) + "\n")
        proc.send_signal(signal.SIGHUP)
        e.wait_for(lambda: env.status(feed).get("configuredCommunities") == 1, 15,
                   "the re-read configuration's entries")
        check_vrfs(env, port, [
            ("hand-red", "127.0.0.1", "udp", None), ("ro-red", "127.0.0.1", "udp", None),
            ("moved", "127.0.0.2", "udp", "red"), ("moved", "127.0.0.1", "udp", None),
            ("public-red", "127.0.0.1", "udp", "red"), ("public", "127.0.0.1", "udp", "default"),
        ], "after SIGHUP")
        check(proc.alive(), f"pimsnmpd exited:\n{proc.output()}")


if __name__ == "__main__":
    e.run(main)
