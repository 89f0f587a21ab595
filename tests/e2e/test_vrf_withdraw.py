#!/usr/bin/env python3
"""Removing a VRF's input withdraws its context and restoring it serves it again, whether the
change comes as a feed patch, as a new version of the state file (followed with inotify) or
on SIGHUP. v2c reaches every VRF through the communities --community-prefix generates, also
for a VRF that appears later. VRFs that come and go under fresh names leave nothing behind:
each is served over v2c and v3 while it is there, and once it goes its community, its context
in net-snmp and the daemon's count of them are back where they started."""

import json
import os
import signal

import e2elib as e
from e2elib import check, check_eq


def served(env, port, context):
    community = "public" if context == "" else f"public-{context}"
    return e.reachable(env, port, e.IPMCAST_MIB, community=community)


def wait_served(env, feed, port, context, rows=1):
    e.wait_tables(env, feed, context, {"ipMcastRouteTable": rows})
    e.wait_for(lambda: served(env, port, context), 10, f"context {context!r} to answer")


def wait_withdrawn(env, feed, port, context):
    e.wait_for(lambda: context not in env.status(feed)["contexts"], 10,
               f"context {context!r} to be withdrawn")
    check(not served(env, port, context), f"withdrawn context {context!r} serves nothing")


def counts(env, feed):
    st = env.status(feed)
    return len(st.get("communities", [])), st["netsnmpContexts"], len(st["contexts"])


def write_atomically(path, doc):
    tmp = path + ".tmp"
    with open(tmp, "w") as f:
        json.dump(doc, f)
    os.rename(tmp, path)


def main():
    with e.Env("vrf-withdraw") as env:
        doc = e.two_vrf_document()
        state = env.write("state.json", doc)
        proc, port, feed = env.pimsnmpd(state, config_lines=["createUser e2e", "rouser e2e noauth"],
                                        args=["--community-prefix", "public"])
        wait_served(env, feed, port, "")
        wait_served(env, feed, port, "red")
        c = e.FeedClient(feed)

        before = counts(env, feed)
        for i in range(10):
            name = f"churn{i}"
            c.patch({"vrfs": {name: doc["vrfs"]["red"]}})
            wait_served(env, feed, port, name)
            check(e.reachable(env, port, e.IPMCAST_MIB, user="e2e", context=name),
                  f"{name} over v3")
            # Another VRF in between, so that the served community and context change.
            check(served(env, port, "red"), "red over v2c")
            c.patch({"vrfs": {name: None}})
            wait_withdrawn(env, feed, port, name)
        check_eq(counts(env, feed), before, "communities, net-snmp contexts, served contexts")

        # One of the seven inputs goes: the context goes. It comes back with the input.
        c.patch({"vrfs": {"red": {"ipv4": {"pimConfig": None}}}})
        wait_withdrawn(env, feed, port, "red")
        check(served(env, port, ""), "the default VRF is still served")
        c.patch({"vrfs": {"red": {"ipv4": {"pimConfig": {"joinPruneInterval": 60}}}}})
        wait_served(env, feed, port, "red")

        # The state file changes (replaced by rename): red goes, a new VRF green comes.
        without_red = e.two_vrf_document()
        green = without_red["vrfs"].pop("red")
        without_red["vrfs"]["green"] = green
        write_atomically(state, without_red)
        wait_withdrawn(env, feed, port, "red")
        wait_served(env, feed, port, "green")
        check_eq(e.without_times(env.document(feed)), without_red, "document after the file changed")

        # Written in place: back to the original.
        with open(state, "w") as f:
            json.dump(doc, f)
        wait_served(env, feed, port, "red")
        wait_withdrawn(env, feed, port, "green")

        # A patch removes red; SIGHUP re-reads the file, which still has it.
        c.patch({"vrfs": {"red": None}})
        wait_withdrawn(env, feed, port, "red")
        proc.send_signal(signal.SIGHUP)
        wait_served(env, feed, port, "red")

        # A broken file is refused: nothing changes, the daemon keeps serving and says why.
        before = env.document(feed)
        refused = env.status(feed)["state"]["updatesRefused"]
        with open(state, "w") as f:
            f.write('{"vrfs": {"red": {"ipv4": {"pimConfig": {"joinPruneInterval": "often"}}}}}')
        e.wait_for(lambda: env.status(feed)["state"]["updatesRefused"] > refused, 10,
                   "the broken file to be refused")
        last = env.status(feed)["state"]["refusals"][-1]
        check_eq(last["source"], f"state file {state}", "refusal source")
        check_eq(last["errors"][0]["path"], "/vrfs/red/ipv4/pimConfig/joinPruneInterval",
                 "refusal path")
        check_eq(env.document(feed), before, "document after a refused file")
        check(served(env, port, "red") and served(env, port, ""), "still serving")
        check("refused update from state file" in proc.output(), "refusal logged")

        # Deleting the file keeps the current state.
        os.remove(state)
        e.wait_for(lambda: "removed; keeping the current state" in proc.output(), 10,
                   "the removal to be noticed")
        check(served(env, port, "red"), "still serving after the file was removed")


if __name__ == "__main__":
    e.run(main)
