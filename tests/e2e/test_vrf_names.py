#!/usr/bin/env python3
"""Every VRF name the document accepts is served in the SNMP context of that name, or refused
with its reason; no name takes the daemon down. Names with each printable ASCII character,
percent sequences, slashes, dots, spaces and UTF-8 are added by patch one at a time; each
served one answers a v3 walk in its context with its own rows, and v2c through the
--community-prefix community wherever snmpd.conf can spell the name."""

import e2elib as e
from e2elib import check, check_eq

PIM_INTERFACE_ADDRESS = "1.3.6.1.3.61.1.1.2.1.2"  # pimInterfaceAddress, by ifIndex
# A name snmpd.conf cannot write as a community or context word: Communities.cpp's rule.
UNSPELLABLE = set(" \t\"'#\\")

SERVED = (
    [f"v{chr(c)}x" for c in range(0x21, 0x7f)]  # every printable ASCII character but space
    + ["a/b", "a%41", "red%2Fx", "%", "%%", "%2", "%zz", "a%2", ".", "..", "a.b", "x.config",
       "with space", " lead", "trail ", "a b c", "vrf-é", "日本語", "ß/€",
       "Ωmega%20", "x" * 32, "é" * 16, "default.x", "snmpPimMIB"]
)
# (name, a word of the reason)
REFUSED = [
    ("x" * 33, "at most 32"),
    ("y" * 100, "at most 32"),
    ("é" * 17, "34 bytes"),
    ("ctl\x01x", "control characters"),
    ("del\x7fx", "control characters"),
    ("c1\u0085x", "control characters"),
    ("", "not empty"),
]


def vrf_patch(name, ifindex_owner):
    return {"vrfs": {name: {"ipv4": e.vrf_inputs(interfaces={
        ifindex_owner: {"address": "10.0.1.1/24", "dr": "10.0.1.1"}})}}}


def main():
    base = {"interfaces": {"Ethernet1": {"ifIndex": 7}}, "vrfs": {}}
    lines = ["createUser e2e", "rouser e2e noauth"]
    with e.Env("vrf-names") as env:
        proc, port, feed = env.pimsnmpd(base, config_lines=lines,
                                        args=["--community-prefix", "public"])
        client = e.FeedClient(feed)
        for name, word in REFUSED:
            reply = client.request(vrf_patch(name, "Ethernet1"))
            check(reply.get("ok") is False, f"VRF {name!r} accepted: {reply}")
            reasons = " ".join(err["reason"] for err in reply.get("errors", []))
            check(word in reasons, f"VRF {name!r}: reason {reasons!r} lacks {word!r}")
            check(proc.alive(), f"pimsnmpd died on VRF {name!r}:\n{proc.output()}")
        for name in SERVED:
            reply = client.request(vrf_patch(name, "Ethernet1"))
            check(reply.get("ok") is True, f"VRF {name!r} refused: {reply}")
            check(proc.alive(), f"pimsnmpd died on VRF {name!r}:\n{proc.output()}")
        check_eq(sorted(env.document(feed)["vrfs"]), sorted(SERVED), "VRFs in the document")

        served = env.status(feed)["contexts"]
        for name in SERVED:
            check(name in served, f"context {name!r} not served: {sorted(served)}")
            rows = e.walk(env, port, e.PIM_MIB, user="e2e", context=name)
            check_eq(rows.get(f"{PIM_INTERFACE_ADDRESS}.7"), ("IpAddress", "10.0.1.1"),
                     f"pimInterfaceAddress in context {name!r} over v3")
            if UNSPELLABLE.isdisjoint(name):
                rows = e.walk(env, port, e.PIM_MIB, community=f"public-{name}")
                check_eq(rows.get(f"{PIM_INTERFACE_ADDRESS}.7"), ("IpAddress", "10.0.1.1"),
                         f"pimInterfaceAddress in context {name!r} over v2c")
        # A context of a name no VRF has answers nothing, also after all this.
        check(not e.reachable(env, port, e.PIM_MIB, user="e2e", context="a%2Fb"),
              "context 'a%2Fb' (the quoted spelling of 'a/b') answered")
        out = proc.output()
        check("no v2c community for context 'with space'" in out,
              "the unspellable name was not reported")
        check("Assertion" not in out and "Can not getEntityRelative" not in out,
              f"registration faults logged:\n{out[-3000:]}")

        # Every VRF goes again, in one patch, and the daemon still answers.
        client.patch({"vrfs": {name: None for name in SERVED}})
        check_eq(env.status(feed)["contexts"], {}, "contexts after removing every VRF")
        client.close()
        check(proc.alive(), "pimsnmpd exited")


if __name__ == "__main__":
    e.run(main)
