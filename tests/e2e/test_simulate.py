#!/usr/bin/env python3
"""The demo set-up: the shipped demo document and configuration with --simulate. Counters
grow and a neighbor flaps (pimNeighborLoss reaches snmptrapd), as updates through the applier
(none refused). The route that comes and goes is checked by
Simulator.KeepsTheShippedDemoMovingWithoutARefusal."""

import os

import e2elib as e
from e2elib import check, check_eq

MC_PKTS = "1.3.6.1.2.1.168.1.5.1.19"


def main():
    with e.Env("simulate") as env:
        trapd, trap_port = env.snmptrapd()
        with open(os.path.join(e.SOURCE_DIR, "packaging", "pimsnmpd.conf")) as f:
            shipped = f.read().splitlines()
        proc, port, feed = env.pimsnmpd(
            os.path.join(e.SOURCE_DIR, "examples", "demo-state.json"),
            config_lines=shipped + [f"trap2sink 127.0.0.1:{trap_port} public"],
            args=["--simulate", "--simulate-period", "0.1", "--community-prefix", "public"])
        status = env.status(feed)
        contexts = sorted(status["contexts"])
        check(len(contexts) >= 2, f"the demo serves several contexts: {contexts}")

        # Counters grow between two reads.
        def packets():
            return sum(v for _, v in e.walk(env, port, MC_PKTS, community="public").values())
        first = packets()
        e.wait_for(lambda: packets() > first, 5, "ipMcastRoutePkts to grow")

        # A neighbor flaps: the loss reaches the trap receiver.
        e.wait_for(lambda: any(e.PIM_NEIGHBOR_LOSS in l for l in trapd.output().splitlines()
                               if l.startswith("TRAP ")), 10, "pimNeighborLoss from the simulation")

        status = env.status(feed)
        check(status["simulation"]["steps"] >= 12, f"simulation steps: {status['simulation']}")
        check_eq(status["state"]["updatesRefused"], 0, "refused simulation updates")


if __name__ == "__main__":
    e.run(main)
