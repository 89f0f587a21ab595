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


def pim_intf(doc):
    return doc["vrfs"]["red"]["ipv4"]["pimStatus"]["interfaces"].setdefault("Ethernet4", {})


# Where the mutations write: a dict of the document.
INTF6 = lambda d: d["vrfs"]["blue"]["ipv6"]["pimStatus"]["interfaces"].setdefault(  # noqa: E731
    "Ethernet9", {})
NEIGHBORS = lambda d: pim_intf(d).setdefault("neighbors", {})  # noqa: E731
GROUPS = lambda d: d["vrfs"]["red"]["ipv4"]["staticRpStatus"].setdefault("groups", {})  # noqa
INTERFACES = lambda d: d["interfaces"]  # noqa: E731


def put(where, key, value):
    """A mutation: `key` of the dict `where(doc)` set to `value`."""
    return lambda doc: where(doc).__setitem__(key, value)


def rename_vrf(name):
    return lambda doc: doc["vrfs"].__setitem__(name, doc["vrfs"].pop("red"))


# (what, mutation, accepted)
CASES = [
    ("interface address", put(pim_intf, "address", "10.4.4.1/24"), True),
    ("prefix length 024", put(pim_intf, "address", "10.4.4.1/024"), False),
    ("prefix length 09", put(pim_intf, "address", "10.4.4.1/09"), False),
    ("prefix length 33", put(pim_intf, "address", "10.4.4.1/33"), False),
    ("interface address in 224.0.0.0/4", put(pim_intf, "address", "224.1.1.1/24"), False),
    ("interface address 239.255.255.255", put(pim_intf, "address", "239.255.255.255/8"), False),
    ("interface address 223.255.255.255", put(pim_intf, "address", "223.255.255.255/8"), True),
    ("interface address 240.0.0.1", put(pim_intf, "address", "240.0.0.1/8"), True),
    ("unspecified interface address", put(pim_intf, "address", "0.0.0.0/8"), False),
    ("address 0.0.0.1", put(pim_intf, "address", "0.0.0.1/8"), True),
    ("leading zero in an address", put(pim_intf, "address", "10.04.4.1/24"), False),
    ("IPv6 interface address", put(INTF6, "address", "2001:DB8::9/64"), True),
    ("IPv6 prefix length 064", put(INTF6, "address", "2001:db8::9/064"), False),
    ("IPv6 multicast interface address", put(INTF6, "address", "ff02::9/64"), False),
    ("IPv6 address in 00ff::/16", put(INTF6, "address", "ff::9/64"), True),
    ("IPv6 unspecified interface address", put(INTF6, "address", "::/64"), False),
    ("IPv6 unspecified, long form", put(INTF6, "address", "0:0:0:0:0:0:0:0/64"), False),
    ("VRF of 32 bytes", rename_vrf("v" * 32), True),
    ("VRF of 33 bytes", rename_vrf("v" * 33), False),
    ("VRF with spaces and a slash", rename_vrf("a b/c%41"), True),
    ("VRF with Latin-1 letters", rename_vrf("vrf-\u00e9\u00a0"), True),
    ("VRF with a C0 control", rename_vrf("vrf\u0001"), False),
    ("VRF with DEL", rename_vrf("vrf\u007f"), False),
    ("VRF with a C1 control (NEL)", rename_vrf("vrf\u0085"), False),
    ("VRF with a C1 control (U+009F)", rename_vrf("\u009fvrf"), False),
    ("VRF with U+00A0", rename_vrf("\u00a0vrf"), True),
    ("interface with a C1 control", put(INTERFACES, "Eth\u0080", {"ifIndex": 77}), False),
    ("interface with a space", put(INTERFACES, "Eth 1", {"ifIndex": 77}), False),
    ("interface of 64 bytes", put(INTERFACES, "e" * 64, {"ifIndex": 77}), True),
    ("interface of 65 bytes", put(INTERFACES, "e" * 65, {"ifIndex": 77}), False),
    ("neighbor with a leading zero", put(NEIGHBORS, "10.4.4.02", {}), False),
    ("neighbor", put(NEIGHBORS, "10.4.4.2", {}), True),
    ("group range with length 04", put(GROUPS, "224.0.0.0/04", {}), False),
    ("group range", put(GROUPS, "232.0.0.0/8", {}), True),
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
