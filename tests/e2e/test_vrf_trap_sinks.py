#!/usr/bin/env python3
"""Which VRF a pimNeighborLoss came from, for every kind of receiver: a `vrftrap2sink` gets the
default VRF's with the community prefix and VRF red's with "<prefix>-red"; a plain trap2sink
gets its one community; a v3 sink gets every VRF's in the default context (the VRF shows in the
varbind's ifIndex and in the vrftrap2sink community only). The varbinds are the same for all.
SIGHUP re-reads the sinks."""

import signal

import e2elib as e
from e2elib import check, check_eq

ENGINE = "0x8000000001020304"


def received(trapd, address):
    """{security info: varbinds} of the pimNeighborLoss notifications for `address`."""
    out = {}
    for line in trapd.output().splitlines():
        if line.startswith("TRAP ") and f"{e.PIM_NEIGHBOR_IFINDEX}.{address} " in line:
            info, _, varbinds = line[len("TRAP "):].partition(" | ")
            out[info.strip()] = varbinds.strip()
    return out


def sink_lines(trap_port, prefix):
    return [f"vrftrap2sink 127.0.0.1:{trap_port} {prefix}",
            f"trap2sink 127.0.0.1:{trap_port} plain",
            f"trapsess -v3 -e {ENGINE} -u tuser -l noAuthNoPriv 127.0.0.1:{trap_port}"]


def lose(client, vrf, intf, address):
    client.patch({"vrfs": {vrf: {"ipv4": {"pimStatus": {"interfaces": {intf: {
        "neighbors": {address: None}}}}}}}})


def expect(trapd, address, ifindex, expected_infos):
    got = e.wait_for(lambda: len(received(trapd, address)) >= len(expected_infos) and
                     received(trapd, address), 10, f"notifications for {address}")
    check_eq(sorted(got), sorted(expected_infos), f"receivers of the loss of {address}")
    varbinds = set(got.values())
    check_eq(len(varbinds), 1, f"one set of varbinds for every receiver: {got}")
    vb = varbinds.pop()
    check(f".{e.SNMP_TRAP_OID} = OID: .{e.PIM_NEIGHBOR_LOSS}" in vb, vb)
    check(f".{e.PIM_NEIGHBOR_IFINDEX}.{address} = INTEGER: {ifindex}" in vb, vb)


def main():
    with e.Env("vrf-trap-sinks") as env:
        # Each notification's security information (community, or v3 user and context).
        trapd, trap_port = env.snmptrapd(config_lines=[f"createUser -e {ENGINE} tuser"],
                                         fmt="TRAP %P | %v\\n")
        access = e.access_lines()
        proc, _, feed = env.pimsnmpd(e.two_vrf_document(),
                                     config_lines=access + sink_lines(trap_port, "traps"))
        e.wait_tables(env, feed, "red", {"pimNeighborTable": 1})
        check_eq(env.status(feed)["agent"]["vrfTrapSinks"], 1, "sinks configured")
        c = e.FeedClient(feed)

        lose(c, "default", "Ethernet1", "10.0.1.2")
        expect(trapd, "10.0.1.2", 1, ["TRAP2, SNMP v2c, community traps",
                                      "TRAP2, SNMP v2c, community plain",
                                      "TRAP2, SNMP v3, user tuser, context"])
        lose(c, "red", "Vlan100", "172.16.0.2")
        expect(trapd, "172.16.0.2", 100, ["TRAP2, SNMP v2c, community traps-red",
                                          "TRAP2, SNMP v2c, community plain",
                                          "TRAP2, SNMP v3, user tuser, context"])

        # SIGHUP: the sinks are read again (another prefix; no v3 sink this time).
        env.write("pimsnmpd.conf", "\n".join(access + sink_lines(trap_port, "vrf")[:2]) + "\n")
        proc.send_signal(signal.SIGHUP)
        e.wait_for(lambda: "re-read configuration file" in proc.output(), 5, "reload")
        lose(c, "default", "Ethernet2", "10.0.2.2")
        expect(trapd, "10.0.2.2", 2, ["TRAP2, SNMP v2c, community vrf",
                                      "TRAP2, SNMP v2c, community plain"])
        check_eq(env.status(feed)["agent"]["vrfTrapSinks"], 1, "sinks after the reload")
        c.close()
        check_eq(proc.stop(), 0, "pimsnmpd exit code")


if __name__ == "__main__":
    e.run(main)
