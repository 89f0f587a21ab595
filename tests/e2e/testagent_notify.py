#!/usr/bin/env python3
"""pimNeighborLoss from the test agent to snmptrapd: its varbinds, a disabled notification
(nothing sent, the reason traced) and a configured delay."""

import os
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from testagent_lib import (PIM_NEIGHBOR_IFINDEX, PIM_NEIGHBOR_LOSS, SNMP_TRAP_OID, Env, check,
                           check_eq, main, wait_for)

SYS_UPTIME = "1.3.6.1.2.1.1.3.0"


def agent_with_sink(env, *args):
    trapd = env.trapd()
    config = (f"rocommunity public 127.0.0.1\n"
              f"trap2sink 127.0.0.1:{trapd.port} public\n")
    return env.agent(*args, config=config), trapd


def check_neighbor_loss(vars_, neighbor, if_index):
    check_eq([(v.oid, v.type) for v in vars_],
             [(SYS_UPTIME, "Timeticks"), (SNMP_TRAP_OID, "OID"),
              (f"{PIM_NEIGHBOR_IFINDEX}.{neighbor}", "INTEGER")], "notification varbinds")
    check_eq(vars_[1].value, PIM_NEIGHBOR_LOSS, "snmpTrapOID.0")
    check_eq(vars_[2].value, if_index, "pimNeighborIfIndex")


def test_neighbor_loss_reaches_the_receiver():
    with Env("notify") as env:
        agent, trapd = agent_with_sink(env, "--contexts")
        agent.control("neighbor-loss 7 10.0.0.2")
        got = wait_for(lambda: trapd.notifications(), 10, "pimNeighborLoss")
        check_eq(len(got), 1, "notifications received")
        check_neighbor_loss(got[0], "10.0.0.2", 7)
        # One lost in VRF red goes out too.
        agent.control("neighbor-loss 8 10.7.0.9 red")
        got = wait_for(lambda: len(trapd.notifications()) >= 2 and trapd.notifications(), 10,
                       "the second pimNeighborLoss")
        check_eq(len(got), 2, "notifications received")
        check_neighbor_loss(got[1], "10.7.0.9", 8)


def test_disabled_notification_is_not_sent_and_the_reason_is_traced():
    with Env("notify-off") as env:
        agent, trapd = agent_with_sink(env, "--neighbor-loss-disabled", "maintenance window",
                                       "--trace", "PimMIB/4")
        agent.control("neighbor-loss 7 10.0.0.2")
        log = wait_for(lambda: "notification not sent" in agent.log() and agent.log(), 5,
                       "the trace of the dropped notification")
        line = next(l for l in log.splitlines() if "notification not sent" in l)
        check("pimNeighborLoss notification not sent. notificationStatus returned" in line,
              f"trace: {line}")
        check("maintenance window" in line, f"the reason is not traced: {line}")
        check("Adding pimNeighborLoss" not in log, "the notification was queued")
        # Switched on again, the next loss goes out, and it is the only one received: the
        # first never left.
        agent.control("notification on")
        agent.control("neighbor-loss 9 10.0.0.9")
        got = wait_for(lambda: trapd.notifications(), 10, "pimNeighborLoss")
        time.sleep(0.3)  # anything sent before it would have arrived before it
        got = trapd.notifications()
        check_eq(len(got), 1, "notifications received")
        check_neighbor_loss(got[0], "10.0.0.9", 9)


def test_delayed_notification_goes_out_after_the_delay():
    with Env("notify-delay") as env:
        agent, trapd = agent_with_sink(env, "--neighbor-loss-delay", "5")
        start = time.monotonic()
        agent.control("neighbor-loss 7 10.0.0.2")
        time.sleep(3)
        check_eq(trapd.notifications(), [], "notifications 3 s into a 5 s delay")
        got = wait_for(lambda: trapd.notifications(), 10, "the delayed pimNeighborLoss",
                       interval=0.02)
        elapsed = time.monotonic() - start
        check(4.5 <= elapsed <= 6.5, f"sent {elapsed:.2f} s after the loss, not ~5 s")
        check_neighbor_loss(got[0], "10.0.0.2", 7)


if __name__ == "__main__":
    main([
        test_neighbor_loss_reaches_the_receiver,
        test_disabled_notification_is_not_sent_and_the_reason_is_traced,
        test_delayed_notification_goes_out_after_the_delay,
    ])
