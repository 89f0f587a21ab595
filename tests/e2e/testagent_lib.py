"""The test agent's side of the end-to-end harness (e2elib): pimsnmp-testagent (the three MIB
modules in an embedded net-snmp master over fixture stores, PIMSNMP_TESTAGENT) started with its
control channel, and its fixture rows (tools/testagent/Fixture.cpp) written out as the varbinds a
walk must return: `expected_walk(root, vrf)`."""

from e2elib import (END_OF_MIB, IPMCAST_MIB, IPMROUTE_MIB, NO_SUCH_INSTANCE,  # noqa: F401
                    NO_SUCH_OBJECT, PIM_MIB, TESTAGENT, Failure, check, check_eq, free_port,
                    request, run, snmp)
import e2elib


def oid_key(oid):
    """OID text (with or without a leading dot) as a tuple for comparison in OID order."""
    return tuple(int(x) for x in oid.strip(".").split("."))


def under(oid, root):
    return oid_key(oid)[: len(oid_key(root))] == oid_key(root)


class Env(e2elib.Env):
    def agent(self, *args, config="rocommunity public 127.0.0.1\n", name="agent"):
        """Starts the test agent on a free port with `config` as its snmpd.conf; waits until
        it is ready. Retries on another port when the chosen one was taken meanwhile."""
        conf = self.write(f"{name}.conf", config)
        for _ in range(5):
            port = free_port()
            proc = self.start(name, [TESTAGENT, "--port", str(port), "--config", conf,
                                     "--persistent-dir", self.path(f"{name}-persist"),
                                     "--control", *args], control=True)
            if (proc.readline(timeout=30) or "").startswith("ready"):
                proc.check_exit = True
                return Agent(self, proc, port)
            proc.stop()
            self.procs.remove(proc)
        raise Failure(f"the test agent did not start:\n{proc.output()}")


class Agent:
    def __init__(self, env, proc, port):
        self.env = env
        self.proc = proc
        self.port = port

    def control(self, command):
        """Runs a control command; returns its reply after "ok", raises on "error"."""
        self.proc.writeline(command)
        reply = self.proc.readline(timeout=10)
        if reply is None:
            raise Failure(f"no reply to {command!r}; agent log:\n{self.proc.output()}")
        if not reply.startswith("ok"):
            raise Failure(f"{command!r}: {reply}")
        return reply[2:].strip()

    def alive(self):
        return self.proc.alive() and self.control("ping") == ""

    def request(self, tool, *args, **auth):
        """The varbinds of one request (GET, GETNEXT, GETBULK: one PDU)."""
        return request(self.env, tool, self.port, list(args), **auth)

    def get(self, *oids, **auth):
        return self.request("snmpget", *oids, **auth)

    def getnext(self, *oids, **auth):
        return self.request("snmpgetnext", *oids, **auth)

    def walk(self, root, bulk=False, **auth):
        # -Cc: tolerate increasing-OID violations instead of stopping, so the test sees them.
        got = self.request("snmpbulkwalk" if bulk else "snmpwalk",
                           *(["-Cr25"] if bulk else []), "-Cc", root, **auth)
        # snmpwalk reports the end of the agent's whole view as one last varbind, and an empty
        # subtree as the exception of a GET on the root.
        while got and got[-1].type == END_OF_MIB:
            got.pop()
        if len(got) == 1 and got[0].oid == root.strip(".") and got[0].type in (
                NO_SUCH_OBJECT, NO_SUCH_INSTANCE):
            got.pop()
        return got

    def set(self, oid, type_, value, **auth):
        """SET of one varbind; returns (exit code, stdout + stderr)."""
        r = snmp(self.env, "snmpset", self.port, [oid, type_, value], **auth)
        return r.returncode, r.stdout + r.stderr


# --- expected rows --------------------------------------------------------------------------

def ip(text):
    return [int(x) for x in text.split(".")]


def ticks_between(lo, hi):
    """A TimeTicks value that depends on when it was read."""
    return ("range", lo, hi)


V4_FLAGS_SPT = bytes([1, 0, 0, 0])  # pimIpMRouteFlags: the uint32 1 as laid out in memory
V4_FLAGS_NONE = bytes(4)

# How long a test may run after the agent started (time-dependent columns are checked
# against it).
SLACK = 120


def _route_rows(vrf):
    """(group, source, mask, upstream, inIfIndex, pkts, octets, assert metric, pref, rpt bit,
    flags) of the IPv4 routes, in index order."""
    if vrf == "red":
        return [("239.7.7.7", "10.7.7.7", "255.255.255.255", "10.7.0.2", 7, 9, 900, 0, 0, 2,
                 V4_FLAGS_NONE)]
    return [
        ("239.1.1.1", "10.1.1.1", "255.255.255.255", "10.0.3.2", 3, 5, 0x100000010, 20, 110, 1,
         V4_FLAGS_SPT),
        ("239.1.1.1", "10.1.1.2", "255.255.255.255", "10.0.5.2", 5, 7, 700, 0, 0, 2,
         V4_FLAGS_NONE),
        ("239.1.1.3", "10.1.1.1", "255.255.255.255", "10.0.3.2", 3, 11, 1100, 0, 0, 2,
         V4_FLAGS_NONE),
        ("239.2.2.2", "0.0.0.0", "0.0.0.0", "0.0.0.0", 0, 0, 0, 0, 0, 2, V4_FLAGS_NONE),
        ("239.5.5.5", "10.1.1.1", "255.255.255.255", "10.0.3.2", 3, 13, 1300, 0, 0, 2,
         V4_FLAGS_NONE),
    ]


def _next_hops(vrf):
    """(route group, source, mask, ifIndex, forwarding, pim prune reason)."""
    if vrf == "red":
        return [("239.7.7.7", "10.7.7.7", "255.255.255.255", 8, True, 2)]
    return [("239.1.1.1", "10.1.1.1", "255.255.255.255", 4, True, 3),
            ("239.1.1.1", "10.1.1.1", "255.255.255.255", 5, False, 2)]


def mcast_route_index(group, source, source_len):
    """ipMcastRouteTable index of an IPv4 route (group /32)."""
    return (f"1.4.{group}.32.1.4.{source}.{source_len}")


def expected_walk(root, vrf="default"):
    """The varbinds a walk of `root` in `vrf`'s context returns, in order: list of
    (oid, type, value) where value may be ("range", lo, hi)."""
    rows = []
    add = lambda oid, t, v: rows.append((oid, t, v))
    if root == PIM_MIB:
        p = "1.3.6.1.3.61.1.1"
        add(f"{p}.1.0", "INTEGER", 60)
        if vrf == "red":
            intfs = [(7, "10.7.0.1", "255.255.255.0", 2, "10.7.0.1", 30, 60, -1)]
            nbrs = [("10.7.0.2", 7, 2)]
        else:
            intfs = [(3, "10.0.3.1", "255.255.255.0", 2, "10.0.3.9", 30, 60, 7),
                     (5, "10.0.5.1", "255.255.255.252", 1, "10.0.5.2", 10, 90, -1)]
            nbrs = [("10.0.3.2", 3, 2), ("10.0.5.2", 5, 1)]
        for col, t, f in [(2, "IpAddress", lambda r: r[1]), (3, "IpAddress", lambda r: r[2]),
                          (4, "INTEGER", lambda r: r[3]), (5, "IpAddress", lambda r: r[4]),
                          (6, "INTEGER", lambda r: r[5]), (7, "INTEGER", lambda r: 1),
                          (8, "INTEGER", lambda r: r[6]), (9, "INTEGER", lambda r: r[7])]:
            for r in intfs:
                add(f"{p}.2.1.{col}.{r[0]}", t, f(r))
        for col in (2, 3, 4, 5):
            for addr, ifindex, mode in nbrs:
                if col == 2:
                    add(f"{p}.3.1.2.{addr}", "INTEGER", ifindex)
                elif col == 3:  # created 120 s before the agent was ready
                    add(f"{p}.3.1.3.{addr}", "Timeticks", ticks_between(12000, 12000 + SLACK * 100))
                elif col == 4:  # hold time 105 s from then, whole seconds
                    add(f"{p}.3.1.4.{addr}", "Timeticks", ticks_between(10500 - SLACK * 100, 10500))
                else:
                    add(f"{p}.3.1.5.{addr}", "INTEGER", mode)
        routes = _route_rows(vrf)
        for col in range(1, 6):
            for g, s, m, _, _, _, _, metric, pref, rpt, flags in routes:
                idx = f"{g}.{s}.{m}"
                add(f"{p}.4.1.{col}.{idx}", *{
                    1: ("Timeticks", 0), 2: ("INTEGER", metric), 3: ("INTEGER", pref),
                    4: ("INTEGER", rpt), 5: ("STRING", flags)}[col])
        if vrf != "red":
            rps = [("224.0.0.0", "240.0.0.0", "10.9.9.9", 150, ticks_between(3000 - SLACK * 100, 3000)),
                   ("239.0.0.0", "255.0.0.0", "10.8.8.8", 0, 0)]
            for g, m, a, hold, _ in rps:
                add(f"{p}.6.1.4.1.{g}.{m}.{a}", "INTEGER", hold)
            for g, m, a, _, expiry in rps:
                add(f"{p}.6.1.5.1.{g}.{m}.{a}", "Timeticks", expiry)
        for g, s, m, ifindex, _, reason in _next_hops(vrf):
            add(f"{p}.7.1.2.{g}.{s}.{m}.{ifindex}.{g}", "INTEGER", reason)
        if vrf != "red":
            add(f"{p}.11.1.3.224.0.0.0.240.0.0.0", "IpAddress", "10.9.9.9")
            add(f"{p}.11.1.4.224.0.0.0.240.0.0.0", "INTEGER", 1)
            component = ("10.7.7.7", 13000, 180)
        else:
            component = ("0.0.0.0", 0, 0)
        add(f"{p}.12.1.2.1", "IpAddress", component[0])
        add(f"{p}.12.1.3.1", "Timeticks", component[1])
        add(f"{p}.12.1.4.1", "INTEGER", component[2])
        add(f"{p}.12.1.5.1", "INTEGER", 1)
    elif root == IPMROUTE_MIB:
        p = "1.3.6.1.2.1.83.1.1"
        add(f"{p}.1.0", "INTEGER", 1)
        routes = _route_rows(vrf)
        for col in (4, 5, 6, 8, 10, 16):
            for g, s, m, up, inif, pkts, octets, *_ in routes:
                idx = f"{g}.{s}.{m}"
                add(f"{p}.2.1.{col}.{idx}", *{
                    4: ("IpAddress", up), 5: ("INTEGER", inif),
                    6: ("Timeticks", ticks_between(6000, 6000 + SLACK * 100)),
                    8: ("Counter32", pkts), 10: ("Counter32", octets & 0xFFFFFFFF),
                    16: ("Counter64", octets)}[col])
        for g, s, m, ifindex, fwd, _ in _next_hops(vrf):
            add(f"{p}.3.1.6.{g}.{s}.{m}.{ifindex}.{g}", "INTEGER", 2 if fwd else 1)
        intfs = [7] if vrf == "red" else [3, 4, 5]
        for col, value in ((2, 0), (3, 8), (4, 0)):
            for i in intfs:
                add(f"{p}.4.1.{col}.{i}", "INTEGER", value)
        add(f"{p}.7.0", "Gauge32", len(routes))
    elif root == IPMCAST_MIB:
        p = "1.3.6.1.2.1.168.1"
        v4 = _route_rows(vrf)
        mroutes = []
        for g, s, m, up, inif, pkts, octets, *_ in v4:
            slen = 0 if s == "0.0.0.0" else 32
            mroutes.append((mcast_route_index(g, s, slen), 1, bytes(ip(up)), inif, octets, pkts))
        if vrf != "red":
            v6 = "2.16." + ".".join(["255", "14"] + ["0"] * 13 + ["1"]) + ".128.2.16." + \
                 ".".join(["0"] * 16) + ".0"
            mroutes.append((v6, 2, bytes(16), 0, 1700, 17))
        add(f"{p}.1.0", "INTEGER", 1)
        add(f"{p}.2.0", "Gauge32", len(mroutes))
        intfs = ["1.7"] if vrf == "red" else ["1.3", "1.4", "2.3"]
        for col, t, value in ((3, "Gauge32", 0), (4, "Gauge32", 0), (5, "INTEGER", 5)):
            for i in intfs:
                add(f"{p}.3.1.{col}.{i}", t, value)
        for col in (7, 8, 9, 10, 18, 19):
            for idx, uptype, up, inif, octets, pkts in mroutes:
                add(f"{p}.5.1.{col}.{idx}", *{
                    7: ("INTEGER", uptype), 8: ("STRING", up), 9: ("INTEGER", inif),
                    10: ("Timeticks", 94000), 18: ("Counter64", octets),
                    19: ("Counter64", pkts)}[col])
        for g, s, m, ifindex, fwd, _ in _next_hops(vrf):
            idx = mcast_route_index(g, s, 32)
            add(f"{p}.6.1.10.{idx}.{ifindex}.1.4.{g}", "INTEGER", 2 if fwd else 1)
        add(f"{p}.11.0", "INTEGER", 5)
    else:
        raise ValueError(root)
    return rows


def value_matches(expected, actual):
    if isinstance(expected, tuple) and expected and expected[0] == "range":
        return isinstance(actual, int) and expected[1] <= actual <= expected[2]
    return expected == actual


def check_vars(actual, expected, what):
    """`actual` (Vars) must be exactly `expected` ((oid, type, value) rows), in order."""
    problems = []
    for i in range(max(len(actual), len(expected))):
        a = actual[i] if i < len(actual) else None
        e = expected[i] if i < len(expected) else None
        if a is None:
            problems.append(f"missing {e}")
        elif e is None:
            problems.append(f"unexpected {a}")
        elif a.oid != e[0] or a.type != e[1] or not value_matches(e[2], a.value):
            problems.append(f"#{i}: expected {e}, got {a}")
        if len(problems) > 10:
            break
    if problems:
        raise Failure(f"{what}:\n  " + "\n  ".join(problems))


def check_increasing(vars_, what):
    for a, b in zip(vars_, vars_[1:]):
        if not oid_key(a.oid) < oid_key(b.oid):
            raise Failure(f"{what}: {b.oid} follows {a.oid}")
