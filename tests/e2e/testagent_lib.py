"""Harness of the test-agent end-to-end tests: pimsnmp-testagent (the three MIB modules in an
embedded net-snmp master over fixture stores) and net-snmp's command-line tools, on random
loopback ports, in a private temporary directory.

`with Env() as env:` stops everything it started when the block ends; every wait is bounded.
The agent binary comes from PIMSNMP_TESTAGENT (set by ctest).

The fixture rows (tools/testagent/Fixture.cpp) are written out below as the varbinds a walk must
return: `expected_walk(root, vrf)`.
"""

import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import traceback

TESTAGENT = os.environ.get("PIMSNMP_TESTAGENT", "pimsnmp-testagent")
from e2ecommon import (IPMCAST_MIB, IPMROUTE_MIB, PIM_MIB, Failure,  # noqa: F401
                       auth_args, check, check_eq, free_port, private_snmp_env)

PIM_RP_TABLE = "1.3.6.1.3.61.1.1.5"

# Client timeout (seconds) and retries: the agent is local, an answer takes milliseconds.
CLIENT_TIMEOUT = "2"
CLIENT_RETRIES = "1"

NO_SUCH_OBJECT = "noSuchObject"
NO_SUCH_INSTANCE = "noSuchInstance"
END_OF_MIB = "endOfMibView"


def oid_key(oid):
    """OID text (with or without a leading dot) as a tuple for comparison in OID order."""
    return tuple(int(x) for x in oid.strip(".").split("."))


def under(oid, root):
    return oid_key(oid)[: len(oid_key(root))] == oid_key(root)


# --- net-snmp output ------------------------------------------------------------------------

class Var:
    """One varbind as a net-snmp tool printed it with -On -Ox."""

    def __init__(self, oid, type_, value):
        self.oid = oid
        self.type = type_
        self.value = value

    def __repr__(self):
        return f"{self.oid} = {self.type}: {self.value}"


_EXCEPTIONS = {
    "No Such Object available on this agent at this OID": NO_SUCH_OBJECT,
    "No Such Instance currently exists at this OID": NO_SUCH_INSTANCE,
    "No more variables left in this MIB View (It is past the end of the MIB tree)": END_OF_MIB,
}

_LINE = re.compile(r"^\.?(\d+(?:\.\d+)*) = (.*)$")


def parse_value(text):
    """(type, value) of the right-hand side of a printed varbind. Integers become int,
    octet strings a bytes object, addresses and OIDs stay text."""
    text = text.strip()
    if text in _EXCEPTIONS:
        return _EXCEPTIONS[text], None
    if text == '""':
        return "STRING", b""
    m = re.match(r"^([A-Za-z0-9-]+): ?(.*)$", text)
    if not m:
        raise Failure(f"cannot parse value {text!r}")
    type_, value = m.group(1), m.group(2).strip()
    if type_ in ("INTEGER", "Gauge32", "Counter32", "Counter64", "Timeticks", "Unsigned32"):
        # "Timeticks: (12002) 0:02:00.02": the number in parentheses.
        value = int(re.match(r"^\(?(-?\d+)", value).group(1))
    elif type_ in ("Hex-STRING", "STRING"):
        if type_ == "Hex-STRING":
            value = bytes(int(b, 16) for b in value.split())
        else:
            value = value.strip('"').encode()
        type_ = "STRING"
    elif type_ == "OID":
        value = value.lstrip(".")
    return type_, value


def parse_vars(output):
    out = []
    for line in output.splitlines():
        if not line.strip():
            continue
        m = _LINE.match(line.strip())
        if not m:
            if out and line.startswith(" "):  # a wrapped hex string
                prev = out[-1]
                if prev.type == "STRING":
                    prev.value += bytes(int(b, 16) for b in line.split())
                continue
            raise Failure(f"cannot parse line {line!r}")
        type_, value = parse_value(m.group(2))
        out.append(Var(m.group(1), type_, value))
    return out


# --- processes ------------------------------------------------------------------------------

class Env:
    """A private directory and the processes of one test; everything is stopped on exit."""

    def __init__(self, name="testagent"):
        self.name = name
        self.procs = []

    def __enter__(self):
        self.dir = tempfile.mkdtemp(prefix=f"pimsnmp-{self.name}-")
        self.env = private_snmp_env(self.dir)
        return self

    def __exit__(self, exc_type, exc, tb):
        for p in reversed(self.procs):
            p.stop()
        # The agent must end cleanly on SIGTERM: a sanitizer report (a leak found at exit)
        # shows up only as its exit status.
        unclean = [p for p in self.procs if p.check_exit and p.popen.returncode != 0]
        logs = {p.name: p.stderr_text_closed() for p in unclean}
        shutil.rmtree(self.dir, ignore_errors=True)
        if unclean and exc_type is None:
            p = unclean[0]
            raise Failure(f"{p.name} exited with {p.popen.returncode}:\n{logs[p.name][-4000:]}")
        return False

    def path(self, name):
        return os.path.join(self.dir, name)

    def write(self, name, text):
        with open(self.path(name), "w") as f:
            f.write(text)
        return self.path(name)

    def spawn(self, name, argv, stdin=None):
        log = open(self.path(f"{name}.log"), "w+")
        p = subprocess.Popen(argv, env=self.env, stdin=stdin, stdout=subprocess.PIPE,
                             stderr=log, text=True, bufsize=1)
        proc = Proc(name, p, log)
        self.procs.append(proc)
        return proc

    # Agent ----------------------------------------------------------------------------------

    def agent(self, *args, config="rocommunity public 127.0.0.1\n", name="agent"):
        """Starts the test agent on a free port with `config` as its snmpd.conf; waits until
        it is ready. Retries on another port when the chosen one was taken meanwhile."""
        conf = self.write(f"{name}.conf", config)
        for _ in range(5):
            port = free_port()
            proc = self.spawn(name, [TESTAGENT, "--port", str(port), "--config", conf,
                                     "--persistent-dir", self.path(f"{name}-persist"),
                                     "--control", *args], stdin=subprocess.PIPE)
            line = proc.readline(timeout=30)
            if line and line.startswith("ready"):
                proc.check_exit = True
                return Agent(self, proc, port)
            proc.stop()
            self.procs.remove(proc)
        # Stopped, so its log is closed: read it by name.
        raise Failure(f"the test agent did not start:\n{proc.stderr_text_closed()}")

    # Clients --------------------------------------------------------------------------------

    def tool(self, tool, args, timeout=30):
        """Runs a net-snmp tool; returns (exit code, stdout, stderr)."""
        try:
            r = subprocess.run([tool, *args], env=self.env, capture_output=True, text=True,
                               timeout=timeout)
        except subprocess.TimeoutExpired:
            raise Failure(f"{tool} {' '.join(args)} did not finish in {timeout} s")
        return r.returncode, r.stdout, r.stderr


class Proc:
    def __init__(self, name, popen, log):
        self.name = name
        self.popen = popen
        self.log = log
        self._buffer = ""
        self.check_exit = False

    def readline(self, timeout):
        """One line of stdout, or None at end of output or after `timeout` seconds."""
        import select
        deadline = time.monotonic() + timeout
        fd = self.popen.stdout
        while "\n" not in self._buffer:
            left = deadline - time.monotonic()
            if left <= 0:
                return None
            ready, _, _ = select.select([fd], [], [], left)
            if not ready:
                return None
            chunk = os.read(fd.fileno(), 65536).decode()
            if not chunk:
                return None
            self._buffer += chunk
        line, self._buffer = self._buffer.split("\n", 1)
        return line

    def alive(self):
        return self.popen.poll() is None

    def stderr_text(self):
        self.log.flush()
        return self.stderr_text_closed()

    def stderr_text_closed(self):
        try:
            with open(self.log.name) as f:
                return f.read()
        except OSError:
            return ""

    def stop(self):
        if self.popen.poll() is None:
            self.popen.send_signal(signal.SIGTERM)
            try:
                # Sanitizer builds take a while to check for leaks at exit.
                self.popen.wait(timeout=30)
            except subprocess.TimeoutExpired:
                self.popen.kill()
                self.popen.wait(timeout=5)
        for f in (self.popen.stdin, self.popen.stdout):
            if f:
                try:
                    f.close()
                except OSError:
                    pass
        self.log.close()


class Agent:
    def __init__(self, env, proc, port):
        self.env = env
        self.proc = proc
        self.port = port
        self.peer = f"udp:127.0.0.1:{port}"

    def control(self, command):
        """Runs a control command; returns its reply after "ok", raises on "error"."""
        self.proc.popen.stdin.write(command + "\n")
        self.proc.popen.stdin.flush()
        reply = self.proc.readline(timeout=10)
        if reply is None:
            raise Failure(f"no reply to {command!r}; agent log:\n{self.proc.stderr_text()}")
        if not reply.startswith("ok"):
            raise Failure(f"{command!r}: {reply}")
        return reply[2:].strip()

    def alive(self):
        return self.proc.alive() and self.control("ping") == ""

    def log(self):
        return self.proc.stderr_text()

    # Requests -------------------------------------------------------------------------------

    def _run(self, tool, oids, community="public", v3user=None, context=None, extra=()):
        args = [*auth_args(community, context, v3user), "-On", "-Ox", "-t",
                CLIENT_TIMEOUT, "-r", CLIENT_RETRIES, *extra, self.peer, *oids]
        code, out, err = self.env.tool(tool, args)
        return code, out, err

    def request(self, tool, oids, **kw):
        """GET/GETNEXT of several OIDs in one PDU; returns the varbinds."""
        code, out, err = self._run(tool, oids, **kw)
        if code != 0:
            raise Failure(f"{tool} {oids} failed ({code}): {err.strip()}")
        return parse_vars(out)

    def get(self, *oids, **kw):
        return self.request("snmpget", list(oids), **kw)

    def getnext(self, *oids, **kw):
        return self.request("snmpgetnext", list(oids), **kw)

    def walk(self, root, bulk=False, **kw):
        tool = "snmpbulkwalk" if bulk else "snmpwalk"
        extra = ["-Cr25"] if bulk else []
        # -Cc: tolerate increasing-OID violations instead of stopping, so the test sees them.
        code, out, err = self._run(tool, [root], extra=[*extra, "-Cc"], **kw)
        if code != 0:
            raise Failure(f"{tool} {root} failed ({code}): {err.strip()}")
        got = parse_vars(out)
        # snmpwalk reports the end of the agent's whole view as one last varbind, and an empty
        # subtree as the exception of a GET on the root.
        while got and got[-1].type == END_OF_MIB:
            got.pop()
        if len(got) == 1 and got[0].oid == root.strip(".") and got[0].type in (
                NO_SUCH_OBJECT, NO_SUCH_INSTANCE):
            got.pop()
        return got

    def set(self, oid, type_, value, **kw):
        """SET of one varbind; returns (exit code, stdout + stderr)."""
        code, out, err = self._run("snmpset", [oid, type_, value], **kw)
        return code, out + err


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


# --- running --------------------------------------------------------------------------------

def main(tests):
    """Runs the test functions in order; prints each result; exits non-zero on a failure."""
    failed = 0
    for t in tests:
        start = time.monotonic()
        try:
            t()
            print(f"PASS {t.__name__} ({time.monotonic() - start:.1f} s)", flush=True)
        except Exception:  # report every kind of failure and go on with the next test
            failed += 1
            print(f"FAIL {t.__name__}", flush=True)
            traceback.print_exc()
    sys.exit(1 if failed else 0)
