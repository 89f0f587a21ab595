#!/usr/bin/env python3
"""Removing a neighbor delivers pimNeighborLoss, and which VRF it came from shows for every kind
of receiver: a `vrftrap2sink` gets the default VRF's with the community prefix and VRF red's with
"<prefix>-red"; a plain trap2sink gets its one community; a v3 sink gets every VRF's in the
default context (the VRF shows in the varbind's ifIndex and in the vrftrap2sink community only).
The varbinds are the same for all. SIGHUP re-reads the sinks. Nothing is sent while the
notification is disabled; with a delay it arrives that much later. Settings change at run time
through pimsnmpctl and come from the command line at start."""

import signal
import time

import e2elib as e
from e2elib import check, check_eq

ENGINE = "0x8000000001020304"


def received(trapd, address):
    """(security info, varbinds) of the pimNeighborLoss notifications for `address`."""
    return [tuple(p.strip() for p in line[len("TRAP "):].partition(" | ")[::2])
            for line in trapd.output().splitlines()
            if line.startswith("TRAP ") and f"{e.PIM_NEIGHBOR_IFINDEX}.{address} " in line]


def sink_lines(trap_port, prefix):
    return [f"vrftrap2sink 127.0.0.1:{trap_port} {prefix}",
            f"trap2sink 127.0.0.1:{trap_port} plain",
            f"trapsess -v3 -e {ENGINE} -u tuser -l noAuthNoPriv 127.0.0.1:{trap_port}"]


def neighbor(client, vrf, intf, address, value=None):
    """Patches a neighbor in (value {}) or out (None)."""
    client.patch({"vrfs": {vrf: {"ipv4": {"pimStatus": {"interfaces": {intf: {
        "neighbors": {address: value}}}}}}}})


def expect(trapd, address, ifindex, expected_infos, before=0, timeout=10):
    """The receivers of the notifications for `address` after the first `before` of them."""
    got = e.wait_for(lambda: len(received(trapd, address)) >= before + len(expected_infos) and
                     received(trapd, address)[before:], timeout, f"notifications for {address}")
    check_eq(sorted(info for info, _ in got), sorted(expected_infos),
             f"receivers of the loss of {address}")
    varbinds = {vb for _, vb in got}
    check_eq(len(varbinds), 1, f"one set of varbinds for every receiver: {got}")
    vb = varbinds.pop()
    check(f".{e.SNMP_TRAP_OID} = OID: .{e.PIM_NEIGHBOR_LOSS}" in vb, vb)
    check(f".{e.PIM_NEIGHBOR_IFINDEX}.{address} = INTEGER: {ifindex}" in vb, vb)


def main():
    with e.Env("neighbor-loss") as env:
        # Each notification's security information (community, or v3 user and context).
        trapd, trap_port = env.snmptrapd(config_lines=[f"createUser -e {ENGINE} tuser"],
                                         fmt="TRAP %P | %v\\n")
        access = e.access_lines()
        proc, _, feed = env.pimsnmpd(e.two_vrf_document(),
                                     config_lines=access + sink_lines(trap_port, "traps"))
        e.wait_tables(env, feed, "", {"pimNeighborTable": 3})
        e.wait_tables(env, feed, "red", {"pimNeighborTable": 1})
        check_eq(env.status(feed)["agent"]["vrfTrapSinks"], 1, "sinks configured")
        c = e.FeedClient(feed)

        neighbor(c, "default", "Ethernet1", "10.0.1.2")
        expect(trapd, "10.0.1.2", 1, ["TRAP2, SNMP v2c, community traps",
                                      "TRAP2, SNMP v2c, community plain",
                                      "TRAP2, SNMP v3, user tuser, context"])
        neighbor(c, "red", "Vlan100", "172.16.0.2")
        expect(trapd, "172.16.0.2", 100, ["TRAP2, SNMP v2c, community traps-red",
                                          "TRAP2, SNMP v2c, community plain",
                                          "TRAP2, SNMP v3, user tuser, context"])

        # SIGHUP: the sinks are read again (another prefix; no v3 sink this time).
        env.write("pimsnmpd.conf", "\n".join(access + sink_lines(trap_port, "vrf")[:2]) + "\n")
        proc.send_signal(signal.SIGHUP)
        e.wait_for(lambda: "re-read configuration file" in proc.output(), 5, "reload")
        two = ["TRAP2, SNMP v2c, community vrf", "TRAP2, SNMP v2c, community plain"]
        neighbor(c, "default", "Ethernet2", "10.0.2.2")
        expect(trapd, "10.0.2.2", 2, two)
        check_eq(env.status(feed)["agent"]["vrfTrapSinks"], 1, "sinks after the reload")

        # Disabled: nothing reaches the receivers, and the status gives the reason.
        env.ctl(feed, "notify", "pimNeighborLoss", "off", "planned", "maintenance")
        n = env.status(feed)["notifications"]["groups"]["pim"]["pimNeighborLoss"]
        check_eq((n["enabled"], n["reason"]), (False, "planned maintenance"), "disabled setting")
        sent = env.status(feed)["traps"]["sent"]
        neighbor(c, "default", "Ethernet2", "10.0.2.2", {})
        neighbor(c, "default", "Ethernet2", "10.0.2.2")
        time.sleep(2)
        check_eq(len(received(trapd, "10.0.2.2")), 2, "traps while disabled")
        check_eq(env.status(feed)["traps"]["sent"], sent, "traps sent while disabled")

        # Delayed by 2 s: queued at once, delivered about 2 s later.
        env.ctl(feed, "notify", "pimNeighborLoss", "on")
        env.ctl(feed, "notify", "pimNeighborLoss", "delay", "2")
        neighbor(c, "default", "Ethernet2", "10.0.2.2", {})
        removed = time.monotonic()
        neighbor(c, "default", "Ethernet2", "10.0.2.2")
        check_eq(env.status(feed)["traps"]["queued"], 1, "queued delayed trap")
        time.sleep(1)
        check_eq(len(received(trapd, "10.0.2.2")), 2, "delayed trap not yet delivered after 1 s")
        expect(trapd, "10.0.2.2", 2, two, before=2, timeout=6)
        elapsed = time.monotonic() - removed
        check(elapsed >= 1.8, f"delayed trap arrived after {elapsed:.2f} s, expected about 2 s")
        check_eq(env.status(feed)["traps"]["queued"], 0, "queue drained")

        # The same settings from the command line.
        proc2, _, feed2 = env.pimsnmpd(
            e.two_vrf_document(), name="configured",
            args=["--neighbor-loss", "off", "--neighbor-loss-reason", "lab", "--neighbor-loss-delay",
                  "3"])
        n = env.status(feed2)["notifications"]["groups"]["pim"]["pimNeighborLoss"]
        check_eq((n["enabled"], n["reason"], n["delay"]), (False, "lab", 3), "start-up settings")


if __name__ == "__main__":
    e.run(main)
