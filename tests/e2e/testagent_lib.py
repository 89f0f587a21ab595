"""The test agent's side of the end-to-end harness (e2elib): pimsnmp-testagent (the three MIB
modules in an embedded net-snmp master over fixture stores, PIMSNMP_TESTAGENT) started with its
control channel, and its fixture rows (tools/testagent/Fixture.cpp) written out as the varbinds a
walk must return: `expected_walk(root, vrf)`."""

from e2elib import (END_OF_MIB, IPMCAST_MIB, IPMROUTE_MIB, NO_SUCH_INSTANCE,  # noqa: F401
                    NO_SUCH_OBJECT, PIM_MIB, TESTAGENT, Failure, check, check_eq, free_port,
                    request, run, snmp)
import e2elib
from operator import itemgetter as at


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
    return f"1.4.{group}.32.1.4.{source}.{source_len}"


def _table(entry, rows, *columns):
    """A table's varbinds, column by column: `rows` are (index, row) in index order, `columns`
    (column, type, the value of a row: a function, or one value for every row)."""
    return [(f"{entry}.{col}.{index}", t, value(r) if callable(value) else value)
            for col, t, value in columns for index, r in rows]


def expected_walk(root, vrf="default"):
    """The varbinds a walk of `root` in `vrf`'s context returns, in order: list of
    (oid, type, value) where value may be ("range", lo, hi)."""
    red = vrf == "red"
    routes = [(".".join(r[:3]), r) for r in _route_rows(vrf)]
    hops = _next_hops(vrf)
    if root == PIM_MIB:
        p = "1.3.6.1.3.61.1.1"
        intfs = [(7, "10.7.0.1", "255.255.255.0", 2, "10.7.0.1", 30, 60, -1)] if red else [
            (3, "10.0.3.1", "255.255.255.0", 2, "10.0.3.9", 30, 60, 7),
            (5, "10.0.5.1", "255.255.255.252", 1, "10.0.5.2", 10, 90, -1)]
        nbrs = [("10.7.0.2", 7, 2)] if red else [("10.0.3.2", 3, 2), ("10.0.5.2", 5, 1)]
        rps = [] if red else [
            ("1.224.0.0.0.240.0.0.0.10.9.9.9", (150, ticks_between(3000 - SLACK * 100, 3000))),
            ("1.239.0.0.0.255.0.0.0.10.8.8.8", (0, 0))]
        component = ("0.0.0.0", 0, 0) if red else ("10.7.7.7", 13000, 180)
        return [(f"{p}.1.0", "INTEGER", 60)] + _table(
            f"{p}.2.1", [(i[0], i) for i in intfs],
            (2, "IpAddress", at(1)), (3, "IpAddress", at(2)), (4, "INTEGER", at(3)),
            (5, "IpAddress", at(4)), (6, "INTEGER", at(5)), (7, "INTEGER", 1),
            (8, "INTEGER", at(6)), (9, "INTEGER", at(7))) + _table(
            f"{p}.3.1", [(n[0], n) for n in nbrs], (2, "INTEGER", at(1)),
            # created 120 s before the agent was ready; hold time 105 s from then, whole seconds
            (3, "Timeticks", ticks_between(12000, 12000 + SLACK * 100)),
            (4, "Timeticks", ticks_between(10500 - SLACK * 100, 10500)),
            (5, "INTEGER", at(2))) + _table(
            f"{p}.4.1", routes, (1, "Timeticks", 0), (2, "INTEGER", at(7)),
            (3, "INTEGER", at(8)), (4, "INTEGER", at(9)), (5, "STRING", at(10))) + _table(
            f"{p}.6.1", rps, (4, "INTEGER", at(0)), (5, "Timeticks", at(1))) + _table(
            f"{p}.7.1", [(f"{g}.{s}.{m}.{i}.{g}", reason) for g, s, m, i, _, reason in hops],
            (2, "INTEGER", lambda reason: reason)) + ([] if red else [
                (f"{p}.11.1.3.224.0.0.0.240.0.0.0", "IpAddress", "10.9.9.9"),
                (f"{p}.11.1.4.224.0.0.0.240.0.0.0", "INTEGER", 1)]) + _table(
            f"{p}.12.1", [(1, component)], (2, "IpAddress", at(0)), (3, "Timeticks", at(1)),
            (4, "INTEGER", at(2)), (5, "INTEGER", 1))
    if root == IPMROUTE_MIB:
        p = "1.3.6.1.2.1.83.1.1"
        return [(f"{p}.1.0", "INTEGER", 1)] + _table(
            f"{p}.2.1", routes, (4, "IpAddress", at(3)), (5, "INTEGER", at(4)),
            (6, "Timeticks", ticks_between(6000, 6000 + SLACK * 100)),
            (8, "Counter32", at(5)), (10, "Counter32", lambda r: r[6] & 0xFFFFFFFF),
            (16, "Counter64", at(6))) + _table(
            f"{p}.3.1", [(f"{g}.{s}.{m}.{i}.{g}", fwd) for g, s, m, i, fwd, _ in hops],
            (6, "INTEGER", lambda fwd: 2 if fwd else 1)) + _table(
            f"{p}.4.1", [(i, i) for i in ([7] if red else [3, 4, 5])],
            (2, "INTEGER", 0), (3, "INTEGER", 8), (4, "INTEGER", 0)) + [
            (f"{p}.7.0", "Gauge32", len(routes))]
    if root == IPMCAST_MIB:
        p = "1.3.6.1.2.1.168.1"
        # (upstream type, upstream, inIfIndex, octets, pkts)
        mroutes = [(mcast_route_index(g, s, 0 if s == "0.0.0.0" else 32),
                    (1, bytes(int(x) for x in up.split(".")), inif, octets, pkts))
                   for g, s, _, up, inif, pkts, octets, *_ in _route_rows(vrf)]
        if not red:
            mroutes.append(("2.16.255.14" + ".0" * 13 + ".1.128.2.16" + ".0" * 16 + ".0",
                            (2, bytes(16), 0, 1700, 17)))
        return [(f"{p}.1.0", "INTEGER", 1), (f"{p}.2.0", "Gauge32", len(mroutes))] + _table(
            f"{p}.3.1", [(i, i) for i in (["1.7"] if red else ["1.3", "1.4", "2.3"])],
            (3, "Gauge32", 0), (4, "Gauge32", 0), (5, "INTEGER", 5)) + _table(
            f"{p}.5.1", mroutes, (7, "INTEGER", at(0)), (8, "STRING", at(1)),
            (9, "INTEGER", at(2)), (10, "Timeticks", 94000), (18, "Counter64", at(3)),
            (19, "Counter64", at(4))) + _table(
            f"{p}.6.1", [(f"{mcast_route_index(g, s, 32)}.{i}.1.4.{g}", fwd)
                         for g, s, m, i, fwd, _ in hops],
            (10, "INTEGER", lambda fwd: 2 if fwd else 1)) + [(f"{p}.11.0", "INTEGER", 5)]
    raise ValueError(root)


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
