"""Harness of the end-to-end tests: real processes (pimsnmpd, pimsnmp-testagent, stock snmpd
and snmptrapd) and net-snmp's command-line tools, on random loopback ports, in a private
temporary directory.

Everything a test starts is stopped when it ends (`with Env() as env:`), and every wait is
bounded. Binaries come from the environment ctest sets: PIMSNMPD, PIMSNMPCTL, SOURCE_DIR,
PIMSNMP_TESTAGENT.
"""

import collections
import json
import os
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import traceback

PIMSNMPD = os.environ.get("PIMSNMPD", "pimsnmpd")
PIMSNMPCTL = os.environ.get("PIMSNMPCTL", "pimsnmpctl")
TESTAGENT = os.environ.get("PIMSNMP_TESTAGENT", "pimsnmp-testagent")
SOURCE_DIR = os.environ.get("SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))
SNMPD = shutil.which("snmpd") or "/usr/sbin/snmpd"
SNMPTRAPD = shutil.which("snmptrapd") or "/usr/sbin/snmptrapd"

PIM_MIB = "1.3.6.1.3.61"
IPMROUTE_MIB = "1.3.6.1.2.1.83"
IPMCAST_MIB = "1.3.6.1.2.1.168"
PIM_NEIGHBOR_LOSS = "1.3.6.1.3.61.1.0.1"
PIM_NEIGHBOR_IFINDEX = "1.3.6.1.3.61.1.1.3.1.2"
SNMP_TRAP_OID = "1.3.6.1.6.3.1.1.4.1.0"


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def check_eq(actual, expected, what):
    if actual != expected:
        raise Failure(f"{what}: expected {expected!r}, got {actual!r}")


def free_port():
    """A port free for both UDP and TCP on 127.0.0.1 (the kernel's pick, released)."""
    for _ in range(100):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as u:
            u.bind(("127.0.0.1", 0))
            port = u.getsockname()[1]
            try:
                with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as t:
                    t.bind(("127.0.0.1", port))
            except OSError:
                continue
            return port
    raise Failure("no free port")


def wait_for(condition, timeout, what, interval=0.05):
    """Polls `condition` until it returns something true; raises after `timeout` seconds."""
    deadline = time.monotonic() + timeout
    last = None
    while True:
        try:
            last = condition()
        except Failure as e:  # a check inside the condition: keep trying
            last = e
        if last and not isinstance(last, Failure):
            return last
        if time.monotonic() >= deadline:
            raise Failure(f"timed out after {timeout} s waiting for {what} (last: {last!r})")
        time.sleep(interval)


def run(*tests):
    """Runs the test functions in order, reporting each; exits 1 when one failed."""
    failed = False
    for t in tests:
        started = time.monotonic()
        try:
            t()
            print(f"PASS {t.__name__} ({time.monotonic() - started:.1f} s)", flush=True)
        except Exception as ex:  # report every kind of failure and go on with the next test
            failed = True
            print(f"FAIL {t.__name__}: {ex}", file=sys.stderr, flush=True)
            if not isinstance(ex, Failure):
                traceback.print_exc()
    sys.exit(1 if failed else 0)


# -- processes --------------------------------------------------------------------------------

class Proc:
    """A process whose output goes to a log file; with `control`, its stdin and stdout are
    pipes (a line protocol) and only stderr is logged."""

    def __init__(self, name, argv, env, log_path, control=False):
        self.name = name
        self.log_path = log_path
        self.log = open(log_path, "ab")
        self.check_exit = False  # whether an unclean exit fails the test
        self.buffer = b""
        pipe = subprocess.PIPE if control else None
        self.popen = subprocess.Popen(argv, env=env, stdin=pipe or subprocess.DEVNULL,
                                      stdout=pipe or self.log,
                                      stderr=self.log if control else subprocess.STDOUT)

    @property
    def pid(self):
        return self.popen.pid

    def alive(self):
        return self.popen.poll() is None

    def send_signal(self, signo):
        if self.alive():
            self.popen.send_signal(signo)

    def stop(self, signo=signal.SIGTERM, timeout=30):
        """Stops the process (sanitizer builds take a while to check for leaks at exit); returns
        its exit code, or kills it and raises after `timeout` seconds."""
        try:
            if self.alive():
                self.popen.send_signal(signo)
                try:
                    self.popen.wait(timeout)
                except subprocess.TimeoutExpired:
                    self.popen.kill()
                    self.popen.wait(5)
                    raise Failure(f"{self.name} did not stop within {timeout} s of signal {signo}")
        finally:
            for f in (self.popen.stdin, self.popen.stdout, self.log):
                if f:
                    f.close()
        return self.popen.returncode

    def output(self):
        if not self.log.closed:
            self.log.flush()
        with open(self.log_path, "rb") as f:
            return f.read().decode(errors="replace")

    def readline(self, timeout):
        """One line of stdout, or None at its end or after `timeout` seconds."""
        deadline = time.monotonic() + timeout
        while b"\n" not in self.buffer:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self.popen.stdout], [], [], left)[0]:
                return None
            chunk = os.read(self.popen.stdout.fileno(), 65536)
            if not chunk:
                return None
            self.buffer += chunk
        line, self.buffer = self.buffer.split(b"\n", 1)
        return line.decode()

    def writeline(self, line):
        self.popen.stdin.write(line.encode() + b"\n")
        self.popen.stdin.flush()


class FeedClient:
    """A feed connection: one request line, one JSON reply line."""

    def __init__(self, path, timeout=30):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(timeout)
        self.sock.connect(path)
        self.buf = b""

    def close(self):
        self.sock.close()

    def request(self, line):
        if isinstance(line, (dict, list)):
            line = json.dumps(line, separators=(",", ":"))
        self.sock.sendall(line.encode() + b"\n")
        while b"\n" not in self.buf:
            chunk = self.sock.recv(1 << 20)
            if not chunk:
                raise Failure("feed connection closed by the daemon")
            self.buf += chunk
        line, self.buf = self.buf.split(b"\n", 1)
        return json.loads(line)

    def patch(self, patch):
        reply = self.request(patch)
        check(reply.get("ok") is True, f"patch refused: {reply}")
        return reply


class Env:
    def __init__(self, name="e2e"):
        self.dir = tempfile.mkdtemp(prefix=f"pimsnmp-{name}-")
        self.procs = []
        # net-snmp's files under the directory: no system or home configuration, no MIBs.
        self.env = dict(os.environ, MIBS="", HOME=self.dir)
        for var, sub in (("SNMP_PERSISTENT_DIR", "snmp-persist"), ("SNMPCONFPATH", "snmp-conf"),
                         ("MIBDIRS", "no-mibs")):
            self.env[var] = self.path(sub)
            os.makedirs(self.env[var], exist_ok=True)

    def __enter__(self):
        return self

    def __exit__(self, exc_type, exc, tb):
        for p in reversed(self.procs):
            try:
                p.stop()
            except Failure:
                pass
        # A process with check_exit must end cleanly on SIGTERM: a sanitizer report (a leak
        # found at exit) shows up only as its exit status.
        unclean = [p for p in self.procs if p.check_exit and p.popen.returncode != 0]
        if exc_type is not None or unclean:
            for p in self.procs:
                sys.stderr.write(f"----- {p.name} output -----\n{p.output()[-6000:]}\n")
        shutil.rmtree(self.dir, ignore_errors=True)
        if unclean and exc_type is None:
            raise Failure(f"{unclean[0].name} exited with {unclean[0].popen.returncode}")
        return False

    def path(self, *parts):
        return os.path.join(self.dir, *parts)

    def write(self, name, text):
        p = self.path(name)
        with open(p, "w") as f:
            f.write(text if isinstance(text, str) else json.dumps(text, indent=1))
        return p

    def start(self, name, argv, control=False):
        p = Proc(name, argv, self.env, self.path(f"{name}.log"), control)
        self.procs.append(p)
        return p

    # -- pimsnmpd

    def pimsnmpd(self, state=None, config_lines=(), args=(), master=True, name="pimsnmpd",
                 wait=True):
        """Starts pimsnmpd (master on a random port unless args say otherwise) with a feed
        socket; waits until it answers on the feed. It must exit 0 when the test ends. Returns
        (proc, port, feed_path)."""
        feed = self.path(f"{name}.sock")
        argv = [PIMSNMPD, "--feed", f"unix:{feed}", "--persistent-dir", self.path(f"{name}-persist")]
        port = None
        if master:
            port = free_port()
            argv += ["--listen", f"udp:127.0.0.1:{port},tcp:127.0.0.1:{port}"]
        if state is not None:
            # A document (dict) is written to the temporary directory; a string is a path.
            path = state if isinstance(state, str) else self.write(f"{name}-state.json", state)
            argv += ["--state", path]
        if config_lines:
            argv += ["--config", self.write(f"{name}.conf", "\n".join(config_lines) + "\n")]
        argv += list(args)
        proc = self.start(name, argv)
        proc.check_exit = True
        if wait:
            self.wait_feed(proc, feed)
        return proc, port, feed

    def wait_feed(self, proc, feed, timeout=15):
        def up():
            check(proc.alive(), f"{proc.name} exited early:\n{proc.output()}")
            try:
                return os.path.exists(feed) and self.request(feed, "ping", timeout=5).get("ok")
            except OSError:
                return False
        wait_for(up, timeout, f"{proc.name} to answer on {feed}")

    def request(self, feed, line, timeout=30):
        """One request on a connection of its own."""
        c = FeedClient(feed, timeout)
        try:
            return c.request(line)
        finally:
            c.close()

    def ctl(self, feed, *args, check_rc=0):
        r = subprocess.run([PIMSNMPCTL, "-s", feed, *args], env=self.env, capture_output=True,
                           text=True, timeout=30)
        if check_rc is not None and r.returncode != check_rc:
            raise Failure(f"pimsnmpctl {' '.join(args)}: exit {r.returncode}\n{r.stdout}{r.stderr}")
        return r

    def status(self, feed):
        reply = self.request(feed, "status")
        check(reply.get("ok"), f"status refused: {reply}")
        return reply["status"]

    def document(self, feed):
        return self.request(feed, "dump")["document"]

    # -- stock net-snmp daemons

    def snmpd(self, config_lines, port=None, name="snmpd"):
        """Starts a stock snmpd as master (AgentX socket in the temp dir). Returns
        (proc, port, agentx_socket)."""
        port = port or free_port()
        agentx = self.path(f"{name}-agentx.sock")
        conf = self.write(f"{name}.conf", "\n".join([
            f"agentaddress udp:127.0.0.1:{port}",
            "master agentx",
            f"agentXSocket {agentx}",
            "agentXPerms 0600 0700",
            *config_lines,
        ]) + "\n")
        # -I -smux: no SMUX listener (port 199), which parallel tests would also contend for.
        proc = self.start(name, [SNMPD, "-f", "-Lo", "-C", "-c", conf, "-I", "-smux",
                                 "-p", self.path(f"{name}.pid")])
        wait_for(lambda: os.path.exists(agentx) or not proc.alive(), 15, f"{name} AgentX socket")
        check(proc.alive(), f"{name} exited:\n{proc.output()}")
        return proc, port, agentx

    def snmptrapd(self, name="snmptrapd", config_lines=(), fmt="TRAP %v\\n", args=("-On",)):
        """Starts snmptrapd printing one line per notification in the format `fmt` (default
        'TRAP <varbinds>'), OIDs numeric unless `args` say otherwise. Returns (proc, port)."""
        port = free_port()
        conf = self.write(f"{name}.conf", "\n".join(["disableAuthorization yes",
                                                     *config_lines]) + "\n")
        proc = self.start(name, [SNMPTRAPD, "-f", "-Lo", "-n", "-C", "-c", conf, *args,
                                 "-F", fmt, f"udp:127.0.0.1:{port}"])
        wait_for(lambda: "NET-SNMP version" in proc.output() or not proc.alive(), 15,
                 "snmptrapd to start")
        check(proc.alive(), f"snmptrapd exited:\n{proc.output()}")
        return proc, port


# -- SNMP clients -----------------------------------------------------------------------------

Var = collections.namedtuple("Var", "oid type value")
NO_SUCH_OBJECT, NO_SUCH_INSTANCE, END_OF_MIB = "noSuchObject", "noSuchInstance", "endOfMibView"
EXCEPTIONS = {
    "No Such Object available on this agent at this OID": NO_SUCH_OBJECT,
    "No Such Instance currently exists at this OID": NO_SUCH_INSTANCE,
    "No more variables left in this MIB View (It is past the end of the MIB tree)": END_OF_MIB,
}
LINE = re.compile(r"^\.?(\d+(?:\.\d+)*) = (?:([A-Za-z0-9-]+): ?)?(.*)$")
HEX_LINE = re.compile(r"^\s*[0-9A-F]{2}( [0-9A-F]{2})*\s*$")


def parse_vars(text):
    """The varbinds a net-snmp tool printed with -On -Ox, in order: integers, counters and
    TimeTicks (hundredths) as int, octet strings as bytes (type STRING), OIDs without the
    leading dot; an exception as its type (NO_SUCH_OBJECT ...) with the value None."""
    out = []
    for line in text.splitlines():
        m = LINE.match(line.strip())
        if not m:
            if out and out[-1].type == "STRING" and HEX_LINE.match(line):  # a wrapped hex string
                out[-1] = out[-1]._replace(value=out[-1].value + bytes.fromhex(line))
            else:
                check(not line.strip(), f"cannot parse line {line!r}")
            continue
        oid, type_, value = m.group(1), m.group(2), m.group(3).strip()
        if type_ is None:
            check(value in EXCEPTIONS or value == '""', f"cannot parse value {value!r}")
            type_, value = EXCEPTIONS.get(value, "STRING"), None if value in EXCEPTIONS else b""
        elif type_ in ("INTEGER", "Gauge32", "Counter32", "Counter64", "Timeticks", "Unsigned32"):
            # "Timeticks: (12002) 0:02:00.02": the number in parentheses.
            value = int(re.match(r"^\(?(-?\d+)", value).group(1))
        elif type_ == "Hex-STRING":
            type_, value = "STRING", bytes.fromhex(value)
        elif type_ == "STRING":
            value = value.strip('"').encode()
        elif type_ == "OID":
            value = value.lstrip(".")
        out.append(Var(oid, type_, value))
    return out


def snmp(env, tool, port, args, timeout=2, retries=1, transport="udp", **auth):
    """Runs a net-snmp tool (options, then OIDs in `args`) against 127.0.0.1:`port`, as SNMPv3
    noAuthNoPriv `user` (in `context`) or else v2c with `community`."""
    if auth.get("user") is not None:
        auth_args = ["-v3", "-u", auth["user"], "-l", "noAuthNoPriv"]
        auth_args += ["-n", auth["context"]] if auth.get("context") else []
    else:
        auth_args = ["-v2c", "-c", auth.get("community") or "public"]
    argv = [tool, *auth_args, "-On", "-Ox", "-t", str(timeout), "-r", str(retries),
            f"{transport}:127.0.0.1:{port}", *args]
    return subprocess.run(argv, env=env.env, capture_output=True, text=True,
                          timeout=timeout * (retries + 1) + 60)


def request(env, tool, port, args, **auth):
    """The varbinds of a tool run that must succeed."""
    r = snmp(env, tool, port, args, **auth)
    if r.returncode != 0:
        raise Failure(f"{tool} {' '.join(args)} {auth}: exit {r.returncode}: {r.stderr.strip()}")
    return parse_vars(r.stdout)


def walk(env, port, root, **auth):
    """Walks `root` (snmpbulkwalk); {oid: (type, value)} of the objects under it."""
    return {v.oid: (v.type, v.value) for v in request(env, "snmpbulkwalk", port, ["-Cr50", root],
                                                      **auth) if v.oid.startswith(root + ".")}


def get(env, port, oids, **auth):
    """{oid: (type, value)} of a GET; exceptions left out."""
    return {v.oid: (v.type, v.value) for v in request(env, "snmpget", port, oids, **auth)
            if v.value is not None}


def reachable(env, port, root, **auth):
    """True when a GETNEXT of `root` in the context returns an object under `root`. A context
    net-snmp never knew is not answered at all; one that was withdrawn answers with the end of
    the MIB view. Neither serves anything."""
    r = snmp(env, "snmpgetnext", port, [root], timeout=1, retries=0, **auth)
    return r.returncode == 0 and any(v.oid.startswith(root + ".") for v in parse_vars(r.stdout))


def columns(vbs, table_entry):
    """{column: {index: value}} of one table from walk output; `table_entry` is the entry OID."""
    out = {}
    prefix = table_entry + "."
    for oid, (_, value) in vbs.items():
        if oid.startswith(prefix):
            col, _, index = oid[len(prefix):].partition(".")
            out.setdefault(int(col), {})[index] = value
    return out


def inet_index(addr):
    """InetAddress OID suffix (length-prefixed octets) of an IPv4 or IPv6 address."""
    packed = socket.inet_pton(socket.AF_INET6 if ":" in addr else socket.AF_INET, addr)
    return ".".join([str(len(packed))] + [str(b) for b in packed])


# -- documents --------------------------------------------------------------------------------

def vrf_inputs(interfaces=None, routes=None, fib=None):
    """The seven inputs a VRF family needs to be served, plus routes and FIB."""
    fam = {
        "pimConfig": {"joinPruneInterval": 60},
        "pimStatus": {"mode": "sparse", "interfaces": interfaces or {}},
        "bsrConfig": {},
        "bsrStatus": {},
        "candidateRpStatus": {"rpType": "bsr", "groups": {}},
        "staticRpStatus": {"rpType": "static", "groups": {}},
        "mfibConfig": {"routing": True},
    }
    if routes is not None:
        fam["routes"] = routes
    if fib is not None:
        fam["fib"] = fib
    return fam


def two_vrf_document():
    """VRF default (Ethernet1/2/3) and VRF red (Vlan100/101), IPv4, with routes. Every PIM
    interface names its DR: an interface without one currently reads pimInterfaceDR as an
    empty IpAddress, which net-snmp cannot encode (the whole response is lost)."""
    return {
        "interfaces": {
            "Ethernet1": {"ifIndex": 1}, "Ethernet2": {"ifIndex": 2}, "Ethernet3": {"ifIndex": 3},
            "Vlan100": {"ifIndex": 100}, "Vlan101": {"ifIndex": 101},
        },
        "vrfs": {
            "default": {"ipv4": vrf_inputs(interfaces={
                    "Ethernet1": {"address": "10.0.1.1/24", "dr": "10.0.1.2",
                                  "neighbors": {"10.0.1.2": {"holdTime": 105},
                                                "10.0.1.3": {"holdTime": 105}}},
                    "Ethernet2": {"address": "10.0.2.1/24", "dr": "10.0.2.1",
                                  "neighbors": {"10.0.2.2": {"holdTime": 105}}},
                    "Ethernet3": {"address": "10.0.3.1/24", "dr": "10.0.3.1"},
                },
                routes={
                    "10.0.1.10,239.1.1.1": {
                        "flags": ["spt"],
                        "upstream": {"interface": "Ethernet1", "rpfNeighbor": "10.0.1.2"},
                        "interfaces": {"Ethernet2": {}, "Ethernet3": {}}},
                },
                fib={"oifIndexes": {"Ethernet1": 1, "Ethernet2": 2, "Ethernet3": 3},
                     "routes": {"10.0.1.10,239.1.1.1": {"oifs": ["Ethernet2", "Ethernet3"],
                                                        "packets": 100, "bytes": 150000}}})},
            "red": {"ipv4": vrf_inputs(interfaces={
                    "Vlan100": {"address": "172.16.0.1/24", "dr": "172.16.0.1",
                                "neighbors": {"172.16.0.2": {"holdTime": 105}}},
                    "Vlan101": {"address": "172.16.1.1/24", "dr": "172.16.1.1"},
                },
                routes={
                    "172.16.0.50,239.9.9.9": {
                        "upstream": {"interface": "Vlan100", "rpfNeighbor": "172.16.0.2"},
                        "interfaces": {"Vlan101": {}}},
                },
                fib={"oifIndexes": {"Vlan100": 1, "Vlan101": 2},
                     "routes": {"172.16.0.50,239.9.9.9": {"oifs": ["Vlan101"], "packets": 5,
                                                          "bytes": 600}}})},
        },
    }


def access_lines(prefix="public", contexts=("red",)):
    """Master-agent access: v2c community per context and a v3 user for all contexts."""
    lines = [f"rocommunity {prefix} 127.0.0.1"]
    lines += [f"rocommunity {prefix}-{c} 127.0.0.1 .1 {c}" for c in contexts]
    lines += ["createUser e2e", "rouser e2e noauth"]
    return lines


def table_counts(env, feed, context):
    """{table: rows} of a served context from the daemon's status (empty when not served)."""
    ctx = env.status(feed)["contexts"].get(context)
    if ctx is None:
        return {}
    return {t: n for tables in ctx["tables"].values() for t, n in tables.items()}


def wait_tables(env, feed, context, expected, timeout=15):
    """Waits until the store of `context` holds the expected row counts ({table: rows}): the
    routes present at start are entered by a rate-limited review, so rows may trail the
    document for a moment."""
    def reached():
        counts = table_counts(env, feed, context)
        return all(counts.get(t) == n for t, n in expected.items()) and counts
    return wait_for(reached, timeout, f"context {context!r} to hold {expected}")


def without_times(doc):
    """The document without the times the daemon fills in when an item first appears."""
    if isinstance(doc, dict):
        return {k: without_times(v) for k, v in doc.items()
                if k not in ("created", "lastRefresh", "expiry")}
    if isinstance(doc, list):
        return [without_times(v) for v in doc]
    return doc
