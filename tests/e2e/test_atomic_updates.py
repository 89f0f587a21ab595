#!/usr/bin/env python3
"""Updates are all or nothing, and every accepted change reaches every row: after an interface
changes its ifIndex, and after a seeded random sequence of valid and invalid patches, every
context serves exactly the rows a fresh pimsnmpd started from the final document serves. A
patch whose only content for a member that does not exist yet is a null is refused with the
path and reason of what the new member lacks, and changes nothing."""

import json
import os
import random

import e2elib as e
from e2elib import check, check_eq

CONTEXTS = ("", "red", "blue")
PIM_INTERFACE_TABLE = "1.3.6.1.3.61.1.1.2"
ACCESS = ["createUser e2e", "rouser e2e noauth"]

REFUSED = [
    ({"vrfs": {"default": {"ipv4": {"routes": {"10.9.9.9,239.77.9.9": {
        "upstream": {"rpfNeighbor": None}}}}}}},
     "/vrfs/default/ipv4/routes/10.9.9.9,239.77.9.9/upstream/interface", "required member"),
    ({"vrfs": {"default": {"ipv4": {"pimStatus": {"interfaces": {"Ethernet9": {
        "neighbors": {"10.0.0.1": None}}}}}}}},
     "/vrfs/default/ipv4/pimStatus/interfaces/Ethernet9/address", "required member"),
]


def rows(env, feed, port):
    """Every served object of every served context, time columns left out (they move on their
    own). A context that is not served answers nothing, or nothing at all if it never was."""
    out = {}
    served = env.status(feed)["contexts"]
    for ctx in CONTEXTS:
        if ctx not in served:
            continue
        for root in (e.PIM_MIB, e.IPMROUTE_MIB, e.IPMCAST_MIB):
            for oid, (typ, value) in e.walk(env, port, root, user="e2e", context=ctx).items():
                if typ != "Timeticks":
                    out[(ctx, oid)] = (typ, value)
    return out


def settled(env, feed, port):
    """Rows once the start-up review has entered every route (the status counts stop moving)."""
    last = [None]

    def stable():
        counts = {c: e.table_counts(env, feed, c) for c in CONTEXTS}
        same = counts == last[0]
        last[0] = counts
        return same
    e.wait_for(stable, 20, "table counts to settle", interval=0.5)
    return sorted(env.status(feed)["contexts"]), rows(env, feed, port)


def expect_as_fresh(env, feed, port, what):
    doc = env.document(feed)
    served, live = settled(env, feed, port)
    name = f"fresh{len(env.procs)}"
    fresh_proc, fresh_port, fresh_feed = env.pimsnmpd(doc, config_lines=ACCESS, name=name)
    fresh_served, fresh = settled(env, fresh_feed, fresh_port)
    fresh_proc.stop()
    check_eq(served, fresh_served, f"{what}: contexts served")
    missing = sorted(set(fresh) - set(live))[:5]
    extra = sorted(set(live) - set(fresh))[:5]
    changed = sorted(k for k in set(live) & set(fresh) if live[k] != fresh[k])[:5]
    check(not missing and not extra and not changed,
          f"{what}: rows differ from a fresh daemon's: missing {missing}, extra {extra}, "
          f"changed {[(k, live[k], fresh[k]) for k in changed]}")
    return live


def random_patch(rng):
    intf = lambda: rng.choice(["Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet9"])
    vrf = rng.choice(["default", "red"])
    route = rng.choice(["10.0.1.10,239.1.1.1", "10.0.2.20,239.2.2.2", "*,239.7.7.7",
                        "10.9.9.9,239.77.9.9"])
    kind = rng.randrange(7)
    if kind == 0:
        return {"interfaces": {intf(): {"ifIndex": rng.randrange(1, 12)}}}
    if kind == 1:
        return {"vrfs": {vrf: {"ipv4": {"routes": {route: None if rng.random() < 0.3 else {
            "upstream": {"interface": intf()}, "interfaces": {intf(): {}}}}}}}}
    if kind == 2:
        return {"vrfs": {vrf: {"ipv4": {"routes": {route: {"upstream": {"rpfNeighbor": None}}}}}}}
    if kind == 3:
        # pimNeighborTable is indexed by address alone: each interface has its own neighbors.
        name = intf()
        n = name[-1]
        return {"vrfs": {vrf: {"ipv4": {"pimStatus": {"interfaces": {name: None if
                rng.random() < 0.3 else {"address": f"10.0.{n}.1/24", "dr": f"10.0.{n}.1",
                                         "neighbors": {f"10.0.{n}.2": {}}}}}}}}}
    if kind == 4:
        return {"vrfs": {vrf: {"ipv4": {"fib": {"oifIndexes": {intf(): rng.randrange(8)},
                                                "routes": {route: {"oifs": [intf()]}}}}}}}
    if kind == 5:
        name = intf()
        return {"vrfs": {vrf: {"ipv4": {"pimStatus": {"interfaces": {name: {
            "neighbors": {f"10.0.{name[-1]}.2": None}}}}}}}}
    return {"vrfs": {vrf: {"ipv4": {"pimConfig": None if rng.random() < 0.5 else {}}}}}


def main():
    demo = os.path.join(e.SOURCE_DIR, "examples", "demo-state.json")
    with e.Env("atomic") as env:
        proc, port, feed = env.pimsnmpd(demo, config_lines=ACCESS)
        client = e.FeedClient(feed)

        # Nulls for members that do not exist yet: refused, nothing changes.
        doc = env.document(feed)
        for patch, path, word in REFUSED:
            reply = client.request(patch)
            check(reply.get("ok") is False, f"accepted: {patch}")
            first = reply["errors"][0]
            check_eq(first["path"], path, "path of the refusal")
            check(word in first["reason"], f"reason {first['reason']!r} lacks {word!r}")
            check("internal error" not in json.dumps(reply), f"internal error: {reply}")
        check_eq(env.document(feed), doc, "document after the refusals")

        # A renumbered interface: every row keyed or valued by its ifIndex follows.
        client.patch({"interfaces": {"Ethernet1": {"ifIndex": 4242}}})
        live = expect_as_fresh(env, feed, port, "after Ethernet1 became ifIndex 4242")
        check(("", f"{PIM_INTERFACE_TABLE}.1.2.4242") in live,
              "pimInterfaceTable has no row under ifIndex 4242")
        check(("", f"{PIM_INTERFACE_TABLE}.1.2.1") not in live,
              "pimInterfaceTable kept its row under ifIndex 1")

        # A random sequence of valid and invalid patches.
        rng = random.Random(int(os.environ.get("PIMSNMP_E2E_SEED", "11")))
        accepted = 0
        for _ in range(int(os.environ.get("PIMSNMP_E2E_PATCHES", "150"))):
            before = env.document(feed)
            reply = client.request(random_patch(rng))
            check("internal error" not in json.dumps(reply), f"internal error: {reply}")
            if reply.get("ok"):
                accepted += 1
            else:
                check_eq(env.document(feed), before, "document after a refusal")
        check(20 < accepted < 130, f"{accepted} of 150 patches accepted: too few of one kind")
        expect_as_fresh(env, feed, port, "after the random patches")
        client.close()
        check(proc.alive(), "pimsnmpd exited")


if __name__ == "__main__":
    e.run(main)
