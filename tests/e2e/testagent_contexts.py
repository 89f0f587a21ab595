#!/usr/bin/env python3
"""Two VRFs as two SNMP contexts, reached with a v2c community mapped to the context and with
SNMPv3 -n: each sees only its own rows. Unregistering PIM-MIB in one context removes it there
and nowhere else."""

from testagent_lib import (IPMCAST_MIB, IPMROUTE_MIB, NO_SUCH_OBJECT, PIM_MIB, Env, check,
                           check_eq, check_vars, expected_walk, run, under)

CONFIG = """rocommunity public 127.0.0.1
rocommunity public-red 127.0.0.1 .1 red
createUser tester
rouser tester noauth
"""

ROOTS = (PIM_MIB, IPMROUTE_MIB, IPMCAST_MIB)
# (description, request options) per VRF.
DEFAULT_VIEWS = [("v2c public", {}), ("v3 default context", {"user": "tester"})]
RED_VIEWS = [("v2c public-red", {"community": "public-red"}),
             ("v3 -n red", {"user": "tester", "context": "red"})]


def test_each_context_sees_its_own_rows():
    with Env("contexts") as env:
        agent = env.agent("--contexts", config=CONFIG)
        for vrf, views in (("default", DEFAULT_VIEWS), ("red", RED_VIEWS)):
            for view, kw in views:
                for root in ROOTS:
                    got = agent.walk(root, bulk=True, **kw)
                    check_vars(got, expected_walk(root, vrf), f"{view}: walk of {root}")


def test_unregistering_pim_mib_in_one_context():
    with Env("unregister") as env:
        agent = env.agent("--contexts", config=CONFIG)
        check_eq(agent.control("unregister PimMIB red"), "1", "modules unregistered")
        for view, kw in RED_VIEWS:
            check_eq(agent.walk(PIM_MIB, **kw), [], f"{view}: PIM-MIB walk after unregister")
            got = agent.get("1.3.6.1.3.61.1.1.1.0", "1.3.6.1.3.61.1.1.2.1.2.7", **kw)
            check_eq([v.type for v in got], [NO_SUCH_OBJECT, NO_SUCH_OBJECT],
                     f"{view}: PIM-MIB GET after unregister")
            # Nothing of PIM-MIB on the way past it either.
            got = agent.getnext("1.3.6.1.3", **kw)
            check(not under(got[0].oid, PIM_MIB), f"{view}: GETNEXT found {got[0]}")
            # The context's other modules still answer.
            for root in (IPMROUTE_MIB, IPMCAST_MIB):
                check_vars(agent.walk(root, bulk=True, **kw), expected_walk(root, "red"),
                           f"{view}: walk of {root} after unregister")
        for view, kw in DEFAULT_VIEWS:
            check_vars(agent.walk(PIM_MIB, bulk=True, **kw), expected_walk(PIM_MIB),
                       f"{view}: default context after red's unregister")

        # Registered again, it serves the context's rows again.
        check_eq(agent.control("register PimMIB red"), "1", "modules registered")
        check_vars(agent.walk(PIM_MIB, bulk=True, community="public-red"),
                   expected_walk(PIM_MIB, "red"), "PIM-MIB in red after registering again")

        # With every module withdrawn the context serves none of their objects; net-snmp
        # keeps the context itself, so it answers noSuchObject (not noSuchContext).
        check_eq(agent.control("unregister all red"), "3", "modules unregistered")
        scalars = ["1.3.6.1.3.61.1.1.1.0", "1.3.6.1.2.1.83.1.1.1.0", "1.3.6.1.2.1.168.1.11.0"]
        for view, kw in RED_VIEWS:
            check_eq([v.type for v in agent.get(*scalars, **kw)], [NO_SUCH_OBJECT] * 3,
                     f"{view}: scalars after every module's unregister")
            for root in ROOTS:
                check_eq(agent.walk(root, **kw), [], f"{view}: walk of {root} after unregister")
        check_eq([v.value for v in agent.get(*scalars)], [60, 1, 5],
                 "default context after red's unregister")

if __name__ == "__main__":
    run(test_each_context_sees_its_own_rows, test_unregistering_pim_mib_in_one_context)
