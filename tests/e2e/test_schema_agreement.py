#!/usr/bin/env python3
"""docs/state.schema.json and pimsnmpd give the same verdict on canonical spellings, names and
addresses the schema can express: the bundled example and mutations of it (prefix lengths with
leading zeros, interface addresses inside 224.0.0.0/4, control characters of both C0 and C1 in
names, over-long VRF names, non-canonical keys) are accepted by both or refused by both."""

import copy
import json
import os

import jsonschema

import e2elib as e
from e2elib import check

SCHEMA = os.path.join(e.SOURCE_DIR, "docs", "state.schema.json")
DEMO = os.path.join(e.SOURCE_DIR, "examples", "demo-state.json")
RED = ("vrfs", "red", "ipv4")


def pim_intf(doc, name="Ethernet4"):
    return doc["vrfs"]["red"]["ipv4"]["pimStatus"]["interfaces"].setdefault(name, {})


def set_address(text):
    def mutate(doc):
        pim_intf(doc)["address"] = text
    return mutate


def set_address6(text):
    def mutate(doc):
        doc["vrfs"]["blue"]["ipv6"]["pimStatus"]["interfaces"].setdefault("Ethernet9", {})[
            "address"] = text
    return mutate


def rename_vrf(name):
    def mutate(doc):
        doc["vrfs"][name] = doc["vrfs"].pop("red")
    return mutate


def rename_interface(name):
    def mutate(doc):
        doc["interfaces"][name] = {"ifIndex": 77}
    return mutate


def add_neighbor(address):
    def mutate(doc):
        pim_intf(doc, "Ethernet4").setdefault("neighbors", {})[address] = {}
    return mutate


def add_group(prefix):
    def mutate(doc):
        doc["vrfs"]["red"]["ipv4"]["staticRpStatus"].setdefault("groups", {})[prefix] = {}
    return mutate


# (what, mutation, accepted)
CASES = [
    ("interface address", set_address("10.4.4.1/24"), True),
    ("prefix length 024", set_address("10.4.4.1/024"), False),
    ("prefix length 09", set_address("10.4.4.1/09"), False),
    ("prefix length 33", set_address("10.4.4.1/33"), False),
    ("interface address in 224.0.0.0/4", set_address("224.1.1.1/24"), False),
    ("interface address 239.255.255.255", set_address("239.255.255.255/8"), False),
    ("interface address 223.255.255.255", set_address("223.255.255.255/8"), True),
    ("interface address 240.0.0.1", set_address("240.0.0.1/8"), True),
    ("unspecified interface address", set_address("0.0.0.0/8"), False),
    ("address 0.0.0.1", set_address("0.0.0.1/8"), True),
    ("leading zero in an address", set_address("10.04.4.1/24"), False),
    ("IPv6 interface address", set_address6("2001:DB8::9/64"), True),
    ("IPv6 prefix length 064", set_address6("2001:db8::9/064"), False),
    ("IPv6 multicast interface address", set_address6("ff02::9/64"), False),
    ("IPv6 address in 00ff::/16", set_address6("ff::9/64"), True),
    ("IPv6 unspecified interface address", set_address6("::/64"), False),
    ("IPv6 unspecified, long form", set_address6("0:0:0:0:0:0:0:0/64"), False),
    ("VRF of 32 bytes", rename_vrf("v" * 32), True),
    ("VRF of 33 bytes", rename_vrf("v" * 33), False),
    ("VRF with spaces and a slash", rename_vrf("a b/c%41"), True),
    ("VRF with Latin-1 letters", rename_vrf("vrf-\u00e9\u00a0"), True),
    ("VRF with a C0 control", rename_vrf("vrf\u0001"), False),
    ("VRF with DEL", rename_vrf("vrf\u007f"), False),
    ("VRF with a C1 control (NEL)", rename_vrf("vrf\u0085"), False),
    ("VRF with a C1 control (U+009F)", rename_vrf("\u009fvrf"), False),
    ("VRF with U+00A0", rename_vrf("\u00a0vrf"), True),
    ("interface with a C1 control", rename_interface("Eth\u0080"), False),
    ("interface with a space", rename_interface("Eth 1"), False),
    ("interface of 64 bytes", rename_interface("e" * 64), True),
    ("interface of 65 bytes", rename_interface("e" * 65), False),
    ("neighbor with a leading zero", add_neighbor("10.4.4.02"), False),
    ("neighbor", add_neighbor("10.4.4.2"), True),
    ("group range with length 04", add_group("224.0.0.0/04"), False),
    ("group range", add_group("232.0.0.0/8"), True),
]


def main():
    with open(SCHEMA) as f:
        schema = json.load(f)
    validator = jsonschema.Draft202012Validator(schema)
    with open(DEMO) as f:
        demo = json.load(f)
    # The Ethernet4 PIM interface the address cases edit needs an address when others add to it.
    base = copy.deepcopy(demo)
    pim_intf(base)["address"] = "10.4.4.1/24"
    with e.Env("schema") as env:
        proc, _, feed = env.pimsnmpd()
        client = e.FeedClient(feed)

        def daemon_accepts(doc):
            # The whole document as a patch over the empty one, taken back when it applied.
            reply = client.request(doc)
            if reply.get("ok"):
                client.patch({"interfaces": None, "vrfs": None})
            return reply.get("ok") is True, reply

        disagreements = []
        for what, mutate, expected in [("demo document", None, True),
                                       ("edited base", lambda d: None, True)] + CASES:
            doc = copy.deepcopy(demo if mutate is None else base)
            if mutate is not None:
                mutate(doc)
            doc.pop("$schema", None)
            schema_ok = validator.is_valid(doc)
            daemon_ok, reply = daemon_accepts(doc)
            if schema_ok != expected or daemon_ok != expected:
                errors = [err.message[:120] for err in validator.iter_errors(doc)][:2]
                disagreements.append(f"{what}: expected {'accepted' if expected else 'refused'}, "
                                     f"schema {schema_ok} {errors}, daemon {daemon_ok} "
                                     f"{reply.get('errors', '')}")
        client.close()
        check(proc.alive(), "pimsnmpd exited")
        check(not disagreements, "verdicts differ:\n  " + "\n  ".join(disagreements))


if __name__ == "__main__":
    e.run(main)
