#!/usr/bin/env python3
"""The system group and the snmpEngine objects of a master pimsnmpd: values from the
configuration's sysName/sysLocation/sysContact/sysObjectID/sysDescr lines, the same in the
default context and every served VRF's (v2c and v3), gone with a withdrawn VRF and back with it;
the sysUpTime.0 a notification carries is the one served. As a subagent pimsnmpd leaves the
group to its master, and keeps its AgentX session across SIGHUP."""

import re
import signal

import e2elib as e
from e2elib import check, check_eq

SYS = "1.3.6.1.2.1.1"
SYS_DESCR, SYS_OBJECT_ID, SYS_UPTIME = f"{SYS}.1.0", f"{SYS}.2.0", f"{SYS}.3.0"
SYS_CONTACT, SYS_NAME, SYS_LOCATION = f"{SYS}.4.0", f"{SYS}.5.0", f"{SYS}.6.0"
ENGINE = "1.3.6.1.6.3.10.2.1"
ENGINE_ID, ENGINE_BOOTS, ENGINE_TIME, ENGINE_MAX = (f"{ENGINE}.{i}.0" for i in (1, 2, 3, 4))

CONFIG = [
    "sysDescr PimSnmp test router",
    "sysObjectID .1.3.6.1.4.1.8072.3.2.10.99",
    "sysContact noc@example.net",
    "sysName edge-7",
    "sysLocation rack 4, row B",
]
EXPECTED = {
    SYS_DESCR: ("STRING", b"PimSnmp test router"),
    SYS_OBJECT_ID: ("OID", "1.3.6.1.4.1.8072.3.2.10.99"),
    SYS_CONTACT: ("STRING", b"noc@example.net"),
    SYS_NAME: ("STRING", b"edge-7"),
    SYS_LOCATION: ("STRING", b"rack 4, row B"),
}


def system_values(env, port, **auth):
    """The group's configured values and sysUpTime.0."""
    got = e.get(env, port, [*EXPECTED, SYS_UPTIME], **auth)
    typ, ticks = got.pop(SYS_UPTIME, (None, None))
    check_eq(typ, "Timeticks", f"sysUpTime.0 type {auth}")
    return got, ticks


def uptime(env, port, **auth):
    return system_values(env, port, **auth)[1]


def trap_uptime(line):
    m = re.search(r"\.1\.3\.6\.1\.2\.1\.1\.3\.0 = Timeticks: \((\d+)\)", line)
    check(m, f"no sysUpTime.0 in {line}")
    return int(m.group(1))


def withdraw_red():
    return {"vrfs": {"red": {"ipv4": {"mfibConfig": None}}}}


def master(env):
    trapd, trap_port = env.snmptrapd()
    proc, port, feed = env.pimsnmpd(
        e.two_vrf_document(),
        config_lines=e.access_lines() + CONFIG + [f"trap2sink 127.0.0.1:{trap_port} public"])
    e.wait_tables(env, feed, "red", {"pimNeighborTable": 1})

    contexts = [dict(community="public"), dict(community="public-red"),
                dict(user="e2e"), dict(user="e2e", context="red")]
    for auth in contexts:
        check_eq(system_values(env, port, **auth)[0], EXPECTED, f"system group {auth}")
    # One agent, one clock: every context serves the same uptime.
    up_default, up_red = uptime(env, port, community="public"), uptime(env, port, community="public-red")
    check(0 <= up_red - up_default <= 100, f"uptimes {up_default} then {up_red}")

    # snmpEngine objects, as net-snmp keeps them.
    engine = e.get(env, port, [ENGINE_ID, ENGINE_BOOTS, ENGINE_TIME, ENGINE_MAX], user="e2e",
                   context="red")
    check_eq(engine[ENGINE_ID][0], "STRING", "snmpEngineID type")
    check(engine[ENGINE_ID][1].startswith(bytes.fromhex("80001F88")),
          f"net-snmp engine ID: {engine[ENGINE_ID]}")
    check(engine[ENGINE_BOOTS][1] >= 1, f"snmpEngineBoots {engine[ENGINE_BOOTS]}")
    check(engine[ENGINE_MAX][1] >= 484, f"snmpEngineMaxMessageSize {engine[ENGINE_MAX]}")
    check_eq(e.get(env, port, [ENGINE_ID], community="public")[ENGINE_ID], engine[ENGINE_ID],
             "snmpEngineID in the default context")

    # A withdrawn VRF serves nothing, the system group included; back, it is complete again.
    c = e.FeedClient(feed)
    c.patch(withdraw_red())
    e.wait_for(lambda: not e.reachable(env, port, SYS, community="public-red"), 10,
               "red's system group withdrawn")
    check(e.reachable(env, port, SYS, community="public"), "default context keeps the group")
    c.patch({"vrfs": {"red": {"ipv4": {"mfibConfig": {"routing": True}}}}})
    e.wait_for(lambda: e.reachable(env, port, SYS, community="public-red"), 10,
               "red's system group back")
    check_eq(system_values(env, port, community="public-red")[0], EXPECTED, "red after return")
    check_eq(env.status(feed)["agent"]["systemGroupContexts"], ["red"], "contexts with copies")
    shown = env.ctl(feed, "status").stdout
    check('system group in contexts: "" red; vrftrap2sink lines: 0' in shown, shown)

    # The sysUpTime.0 of a notification is the agent's uptime at the time it was sent.
    before = uptime(env, port, community="public-red")
    c.patch({"vrfs": {"red": {"ipv4": {"pimStatus": {"interfaces": {"Vlan100": {
        "neighbors": {"172.16.0.2": None}}}}}}}})
    lines = e.wait_for(lambda: [l for l in trapd.output().splitlines()
                                if l.startswith("TRAP ") and e.PIM_NEIGHBOR_LOSS in l], 10,
                       "pimNeighborLoss")
    after = uptime(env, port, community="public-red")
    sent = trap_uptime(lines[0])
    check(before <= sent <= after, f"trap sysUpTime {sent} outside served {before}..{after}")
    c.close()
    check_eq(proc.stop(), 0, "pimsnmpd exit code")


def subagent(env):
    snmpd, port, agentx = env.snmpd(e.access_lines() + ["sysName the-master"], name="snmpd")
    proc, _, feed = env.pimsnmpd(e.two_vrf_document(), master=False, name="sub",
                                 config_lines=CONFIG,
                                 args=["--agentx", agentx, "--agentx-ping", "1"])
    e.wait_for(lambda: e.reachable(env, port, e.IPMCAST_MIB, community="public-red"), 15,
               "red through snmpd")
    # The master's own group answers; the subagent registered none, in no context.
    check_eq(e.get(env, port, [SYS_NAME], community="public").get(SYS_NAME),
             ("STRING", b"the-master"), "sysName through the master")
    check_eq(e.get(env, port, [SYS_NAME], community="public-red"), {}, "sysName in red")
    # Nothing in the subagent takes the system group's configuration lines.
    check("Unknown token: sysName" in proc.output(), f"sysName ignored:\n{proc.output()}")
    # SIGHUP re-reads the subagent's configuration; its AgentX session and contexts stay.
    proc.send_signal(signal.SIGHUP)
    e.wait_for(lambda: "re-read configuration file" in proc.output(), 5, "subagent reload")
    check(e.reachable(env, port, e.IPMCAST_MIB, community="public-red"), "red after SIGHUP")
    check(env.status(feed)["agent"]["connected"], "still connected after SIGHUP")
    check(" warning: AgentX" not in proc.output(), f"session warnings:\n{proc.output()}")
    check_eq(proc.stop(), 0, "subagent exit code")
    check_eq(snmpd.stop(), 0, "snmpd exit code")


def main():
    with e.Env("system-group") as env:
        master(env)
        subagent(env)


if __name__ == "__main__":
    e.run(main)
