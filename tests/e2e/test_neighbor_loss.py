#!/usr/bin/env python3
"""Removing a neighbor delivers pimNeighborLoss to snmptrapd; nothing is sent while the
notification is disabled; with a delay it arrives that much later. Settings change at run
time through pimsnmpctl and come from the command line at start."""

import time

import e2elib as e
from e2elib import check, check_eq


def loss_lines(trapd):
    return [l for l in trapd.output().splitlines()
            if l.startswith("TRAP ") and e.PIM_NEIGHBOR_LOSS in l]


def expect_loss(trapd, count_before, address, ifindex, timeout=5):
    lines = e.wait_for(lambda: len(loss_lines(trapd)) > count_before and loss_lines(trapd),
                       timeout, f"pimNeighborLoss for {address}")
    line = lines[count_before]
    check(f"{e.SNMP_TRAP_OID} = OID: .{e.PIM_NEIGHBOR_LOSS}" in line,
          f"snmpTrapOID is pimNeighborLoss: {line}")
    check(f"{e.PIM_NEIGHBOR_IFINDEX}.{address} = INTEGER: {ifindex}" in line,
          f"pimNeighborIfIndex.{address} = {ifindex} in {line}")
    return line


def neighbor(vrf, intf, address, value):
    return {"vrfs": {vrf: {"ipv4": {"pimStatus": {"interfaces": {
        intf: {"neighbors": {address: value}}}}}}}}


def main():
    with e.Env("neighbor-loss") as env:
        trapd, trap_port = env.snmptrapd()
        proc, port, feed = env.pimsnmpd(
            e.two_vrf_document(),
            config_lines=e.access_lines() + [f"trap2sink 127.0.0.1:{trap_port} public"])
        e.wait_tables(env, feed, "", {"pimNeighborTable": 3})
        e.wait_tables(env, feed, "red", {"pimNeighborTable": 1})
        c = e.FeedClient(feed)

        # Default VRF: 10.0.1.2 is Ethernet1's (ifIndex 1) lower neighbor.
        c.patch(neighbor("default", "Ethernet1", "10.0.1.2", None))
        expect_loss(trapd, 0, "10.0.1.2", 1)
        # VRF red, on Vlan100 (ifIndex 100).
        c.patch(neighbor("red", "Vlan100", "172.16.0.2", None))
        expect_loss(trapd, 1, "172.16.0.2", 100)

        # Disabled: nothing reaches the receiver, and the status gives the reason.
        env.ctl(feed, "notify", "pimNeighborLoss", "off", "planned", "maintenance")
        n = env.status(feed)["notifications"]["groups"]["pim"]["pimNeighborLoss"]
        check_eq((n["enabled"], n["reason"]), (False, "planned maintenance"), "disabled setting")
        sent = env.status(feed)["traps"]["sent"]
        c.patch(neighbor("default", "Ethernet2", "10.0.2.2", None))
        time.sleep(2)
        check_eq(len(loss_lines(trapd)), 2, "traps while disabled")
        check_eq(env.status(feed)["traps"]["sent"], sent, "traps sent while disabled")

        # Delayed by 2 s: queued at once, delivered about 2 s later.
        env.ctl(feed, "notify", "pimNeighborLoss", "on")
        env.ctl(feed, "notify", "pimNeighborLoss", "delay", "2")
        c.patch(neighbor("default", "Ethernet2", "10.0.2.2", {}))
        removed = time.monotonic()
        c.patch(neighbor("default", "Ethernet2", "10.0.2.2", None))
        check_eq(env.status(feed)["traps"]["queued"], 1, "queued delayed trap")
        time.sleep(1)
        check_eq(len(loss_lines(trapd)), 2, "delayed trap not yet delivered after 1 s")
        expect_loss(trapd, 2, "10.0.2.2", 2, timeout=6)
        elapsed = time.monotonic() - removed
        check(elapsed >= 1.8, f"delayed trap arrived after {elapsed:.2f} s, expected about 2 s")
        check_eq(env.status(feed)["traps"]["queued"], 0, "queue drained")
        c.close()
        check_eq(proc.stop(), 0, "pimsnmpd exit code")

        # The same settings from the command line.
        proc2, _, feed2 = env.pimsnmpd(
            e.two_vrf_document(), name="configured",
            args=["--neighbor-loss", "off", "--neighbor-loss-reason", "lab", "--neighbor-loss-delay",
                  "3"])
        n = env.status(feed2)["notifications"]["groups"]["pim"]["pimNeighborLoss"]
        check_eq((n["enabled"], n["reason"], n["delay"]), (False, "lab", 3), "start-up settings")
        check_eq(proc2.stop(), 0, "second pimsnmpd exit code")


if __name__ == "__main__":
    e.run(main)
