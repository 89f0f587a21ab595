#!/usr/bin/env python3
"""With the generated MIB modules (packaging/mibs) loaded, net-snmp's tools print pimsnmpd's
objects by name: column names, decoded indexes (dotted quads, IPv6 text), enumeration labels and
units, compared with the demo state; snmptrapd names pimNeighborLoss; the modules load with no
parser warning and name the OIDs the agent serves."""

import ipaddress
import json
import os
import subprocess

import e2elib as e
from e2elib import check, check_eq

MIB_DIR = os.path.join(e.SOURCE_DIR, "packaging", "mibs")
MODULES = ("PIMSNMP-PIM-MIB", "PIMSNMP-IPMROUTE-MIB", "PIMSNMP-IPMCAST-MIB")
# Only this directory: a plain Debian box's own MIB directory holds modules that import
# standard modules it does not ship, whose warnings are not ours.
MIBS = ["-M", MIB_DIR, "-m", "ALL"]
DEMO = os.path.join(e.SOURCE_DIR, "examples", "demo-state.json")


def run(env, argv):
    r = subprocess.run(argv, env=env.env, capture_output=True, text=True, timeout=60)
    if r.returncode != 0:
        raise e.Failure(f"{' '.join(argv)}: exit {r.returncode}\n{r.stdout}{r.stderr}")
    return r


def table(env, port, community, name, columns, *opts):
    """snmptable -Ci of `name`: {index: {column: value}} of the `columns`; checks the header."""
    r = run(env, ["snmptable", "-v2c", "-c", community, *MIBS, "-Ci", "-Cf", "|", *opts,
                  f"127.0.0.1:{port}", name])
    check_eq(r.stderr.strip(), "", f"snmptable {name} stderr")
    lines = [l for l in r.stdout.splitlines() if "|" in l]
    header = lines[0].split("|")
    check_eq(header[0], "index", f"{name} header")
    return {cells[0]: {c: v for c, v in zip(header[1:], cells[1:]) if c in columns}
            for cells in (l.split("|") for l in lines[1:])}


def walk_lines(env, port, community, name):
    r = run(env, ["snmpwalk", "-v2c", "-c", community, *MIBS, "-Os", f"127.0.0.1:{port}", name])
    check_eq(r.stderr.strip(), "", f"snmpwalk {name} stderr")
    return set(r.stdout.splitlines())


def inet_text(addr):
    """How net-snmp prints an InetAddress index: type label, then the address in quotes."""
    a = ipaddress.ip_address(addr)
    if a.version == 4:
        return f'ipv4."{a}"'
    return 'ipv6."' + ":".join(f"{b:02x}" for b in a.packed) + '"'


def route_key(key):
    """(source or None, group) of a document route key "S,G" / "*,G"."""
    source, group = key.split(",")
    return (None if source == "*" else source), group


def ifindexes(doc):
    return {name: i["ifIndex"] for name, i in doc["interfaces"].items()}


# A name of each module and the OID the agent serves it at.
NAMES = {
    "PIMSNMP-PIM-MIB": ("pimNeighborLoss", e.PIM_NEIGHBOR_LOSS),
    "PIMSNMP-IPMROUTE-MIB": ("ipMRouteTable", f"{e.IPMROUTE_MIB}.1.1.2"),
    "PIMSNMP-IPMCAST-MIB": ("ipMcastRouteTable", f"{e.IPMCAST_MIB}.1.5"),
}


def check_parser(env):
    # The tools' first run announces the directory it creates: not a parser message.
    os.makedirs(env.path("snmp-persist", "cert_indexes"), exist_ok=True)
    # Each module loads alone (its imports pulled in from the directory) and all load together,
    # without a parser warning, naming the OIDs the agent serves.
    for modules in [*MODULES, "ALL"]:
        names = NAMES.items() if modules == "ALL" else [(modules, NAMES[modules])]
        r = run(env, ["snmptranslate", "-M", MIB_DIR, "-m", modules, "-Pw", "-On",
                      *[f"{m}::{name}" for m, (name, _) in names]])
        check_eq(r.stderr, "", f"parser messages loading {modules}")
        check_eq(r.stdout.split(), [f".{oid}" for _, (_, oid) in names], f"OIDs in {modules}")


def check_pim(env, port, doc):
    v4 = doc["vrfs"]["default"]["ipv4"]
    ifindex = ifindexes(doc)
    expected = {addr: (str(ifindex[intf]), v4["pimStatus"]["mode"])
                for intf, i in v4["pimStatus"]["interfaces"].items()
                for addr in i.get("neighbors", {})}
    rows = table(env, port, "public", "PIMSNMP-PIM-MIB::pimNeighborTable",
                 ("pimNeighborIfIndex", "pimNeighborMode"))
    check_eq({ix: (r["pimNeighborIfIndex"], r["pimNeighborMode"]) for ix, r in rows.items()},
             expected, "pimNeighborTable by name (index, ifIndex, mode label)")
    # snmpwalk names each instance by its index: the neighbor's address.
    check_eq(walk_lines(env, port, "public", "PIMSNMP-PIM-MIB::pimNeighborMode"),
             {f"pimNeighborMode.{addr} = INTEGER: {mode}(2)" for addr, (_, mode) in expected.items()},
             "pimNeighborMode instances")


def check_ipmroute(env, port, doc):
    red = doc["vrfs"]["red"]["ipv4"]
    ifindex = ifindexes(doc)
    expected, states = {}, set()
    for key, route in red["routes"].items():
        source, group = route_key(key)
        index = f"{group}.{source}.255.255.255.255" if source else f"{group}.0.0.0.0.0.0.0.0"
        fib = red["fib"]["routes"][key]
        expected[index] = {
            "ipMRouteUpstreamNeighbor": route["upstream"]["rpfNeighbor"],
            "ipMRouteInIfIndex": str(ifindex[route["upstream"]["interface"]]),
            "ipMRoutePkts": f"{fib['packets']} packets",
            "ipMRouteOctets": f"{fib['bytes']} octets",
            "ipMRouteHCOctets": f"{fib['bytes']} octets",
        }
        # Next hops: one per outgoing interface, forwarding, indexed by name in the walk.
        states |= {f"ipMRouteNextHopState.{index}.{ifindex[i]}.{group} = INTEGER: forwarding(2)"
                   for i in route["interfaces"]}
    check_eq(table(env, port, "public-red", "PIMSNMP-IPMROUTE-MIB::ipMRouteTable",
                   next(iter(expected.values()))), expected, "ipMRouteTable of VRF red by name")
    check_eq(walk_lines(env, port, "public-red", "PIMSNMP-IPMROUTE-MIB::ipMRouteNextHopState"),
             states, "ipMRouteNextHopState instances of VRF red")


def check_ipmcast(env, port, doc):
    ifindex = ifindexes(doc)
    for vrf, community, af in (("blue", "public-blue", "ipv6"), ("default", "public", "ipv4")):
        fam = doc["vrfs"][vrf][af]
        full = 128 if af == "ipv6" else 32
        zero = "::" if af == "ipv6" else "0.0.0.0"
        expected = {}
        for key, route in fam["routes"].items():
            source, group = route_key(key)
            index = (f"{inet_text(group)}.{full}."
                     f"{inet_text(source or zero)}.{full if source else 0}")
            fib = fam["fib"]["routes"][key]
            expected[index] = {
                "ipMcastRouteUpstreamNeighborType": af,
                "ipMcastRouteInIfIndex": str(ifindex[route["upstream"]["interface"]]),
                "ipMcastRoutePkts": f"{fib['packets']} packets",
                "ipMcastRouteOctets": f"{fib['bytes']} octets",
            }
        check_eq(table(env, port, community, "PIMSNMP-IPMCAST-MIB::ipMcastRouteTable",
                       next(iter(expected.values())), "-Cw", "1000"),
                 expected, f"ipMcastRouteTable of VRF {vrf} by name")
    # The InetVersion index of the interface table by its label.
    blue = doc["vrfs"]["blue"]["ipv6"]
    check_eq(walk_lines(env, port, "public-blue", "PIMSNMP-IPMCAST-MIB::ipMcastInterfaceStorageType"),
             {f"ipMcastInterfaceStorageType.ipv6.{ifindex[i]} = INTEGER: readOnly(5)"
              for i in blue["pimStatus"]["interfaces"]},
             "ipMcastInterfaceTable of VRF blue: version label and storage type")


def main():
    with open(DEMO) as f:
        doc = json.load(f)
    with e.Env("mib-names") as env:
        check_parser(env)
        trapd, trap_port = env.snmptrapd("snmptrapd-names", args=MIBS)
        proc, port, feed = env.pimsnmpd(
            DEMO, config_lines=e.access_lines(contexts=("red", "blue")) +
            [f"trap2sink 127.0.0.1:{trap_port} public"])
        e.wait_tables(env, feed, "red", {"ipMRouteTable": len(doc["vrfs"]["red"]["ipv4"]["routes"])})
        e.wait_tables(env, feed, "blue",
                      {"ipMcastRouteTable": len(doc["vrfs"]["blue"]["ipv6"]["routes"])})
        e.wait_tables(env, feed, "",
                      {"ipMcastRouteTable": len(doc["vrfs"]["default"]["ipv4"]["routes"])})
        check_pim(env, port, doc)
        check_ipmroute(env, port, doc)
        check_ipmcast(env, port, doc)

        # A lost neighbor reaches snmptrapd by name.
        with open(os.path.join(e.SOURCE_DIR, "examples", "patch-remove-neighbor.json")) as f:
            e.FeedClient(feed).patch(json.load(f))
        line = e.wait_for(lambda: next((l for l in trapd.output().splitlines()
                                        if "pimNeighborLoss" in l), None), 10, "pimNeighborLoss")
        check("SNMPv2-MIB::snmpTrapOID.0 = OID: PIMSNMP-PIM-MIB::pimNeighborLoss" in line
              or "= OID: PIMSNMP-PIM-MIB::pimNeighborLoss" in line, f"trap OID by name: {line}")
        check("PIMSNMP-PIM-MIB::pimNeighborIfIndex.10.0.1.2 = INTEGER: 1" in line,
              f"varbind by name: {line}")


if __name__ == "__main__":
    e.run(main)
