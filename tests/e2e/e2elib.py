"""Harness of the end-to-end tests: real pimsnmpd, snmpd and snmptrapd processes and the
net-snmp command-line tools, on random loopback ports, in a private temporary directory.

Everything a test starts is stopped when it ends (`with Env() as env:`), and every wait is
bounded. Binaries come from the environment ctest sets: PIMSNMPD, PIMSNMPCTL, SOURCE_DIR.
"""

import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

PIMSNMPD = os.environ.get("PIMSNMPD", "pimsnmpd")
PIMSNMPCTL = os.environ.get("PIMSNMPCTL", "pimsnmpctl")
SOURCE_DIR = os.environ.get("SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))
SNMPD = shutil.which("snmpd") or "/usr/sbin/snmpd"
SNMPTRAPD = shutil.which("snmptrapd") or "/usr/sbin/snmptrapd"
from e2ecommon import (IPMCAST_MIB, IPMROUTE_MIB, PIM_MIB, PIM_NEIGHBOR_IFINDEX,  # noqa: F401
                       PIM_NEIGHBOR_LOSS, SNMP_TRAP_OID, Failure, auth_args, check, check_eq,
                       free_port, private_snmp_env, wait_for)


class Proc:
    def __init__(self, name, argv, env, log_path):
        self.name = name
        self.argv = argv
        self.log_path = log_path
        self.log = open(log_path, "ab")
        self.popen = subprocess.Popen(argv, env=env, stdout=self.log, stderr=subprocess.STDOUT,
                                      stdin=subprocess.DEVNULL)

    @property
    def pid(self):
        return self.popen.pid

    def alive(self):
        return self.popen.poll() is None

    def send_signal(self, signo):
        if self.alive():
            self.popen.send_signal(signo)

    def stop(self, signo=signal.SIGTERM, timeout=10):
        """Stops the process; returns its exit code (killing it after `timeout` seconds)."""
        if self.alive():
            self.popen.send_signal(signo)
            try:
                self.popen.wait(timeout)
            except subprocess.TimeoutExpired:
                self.popen.kill()
                self.popen.wait(5)
                raise Failure(f"{self.name} did not stop within {timeout} s of signal {signo}")
        self.log.close()
        return self.popen.returncode

    def output(self):
        if not self.log.closed:
            self.log.flush()
        with open(self.log_path, "rb") as f:
            return f.read().decode(errors="replace")


class FeedClient:
    """A feed connection: one request line, one JSON reply line."""

    def __init__(self, path, timeout=30):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(timeout)
        self.sock.connect(path)
        self.buf = b""

    def close(self):
        self.sock.close()

    def send_line(self, line):
        if isinstance(line, (dict, list)):
            line = json.dumps(line, separators=(",", ":"))
        self.sock.sendall(line.encode() + b"\n")

    def read_reply(self):
        while b"\n" not in self.buf:
            chunk = self.sock.recv(1 << 20)
            if not chunk:
                raise Failure("feed connection closed by the daemon")
            self.buf += chunk
        line, self.buf = self.buf.split(b"\n", 1)
        return json.loads(line)

    def request(self, line):
        self.send_line(line)
        return self.read_reply()

    def patch(self, patch):
        reply = self.request(patch)
        check(reply.get("ok") is True, f"patch refused: {reply}")
        return reply


class Env:
    def __init__(self, name="e2e"):
        self.dir = tempfile.mkdtemp(prefix=f"pimsnmp-{name}-")
        self.procs = []
        self.env = private_snmp_env(self.dir)

    def __enter__(self):
        return self

    def __exit__(self, exc_type, exc, tb):
        failed = exc_type is not None
        for p in reversed(self.procs):
            try:
                p.stop(signal.SIGTERM, timeout=5)
            except Failure:
                pass
        if failed:
            for p in self.procs:
                sys.stderr.write(f"----- {p.name} output -----\n{p.output()[-6000:]}\n")
        shutil.rmtree(self.dir, ignore_errors=True)
        return False

    def path(self, *parts):
        return os.path.join(self.dir, *parts)

    def write(self, name, text):
        p = self.path(name)
        with open(p, "w") as f:
            f.write(text if isinstance(text, str) else json.dumps(text, indent=1))
        return p

    def start(self, name, argv):
        p = Proc(name, argv, self.env, self.path(f"{name}.log"))
        self.procs.append(p)
        return p

    # -- pimsnmpd

    def pimsnmpd(self, state=None, config_lines=(), args=(), master=True, name="pimsnmpd",
                 wait=True):
        """Starts pimsnmpd (master on a random port unless args say otherwise) with a feed
        socket; waits until it answers on the feed. Returns (proc, port, feed_path)."""
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
        if wait:
            self.wait_feed(proc, feed)
        return proc, port, feed

    def wait_feed(self, proc, feed, timeout=15):
        def up():
            check(proc.alive(), f"{proc.name} exited early:\n{proc.output()}")
            if not os.path.exists(feed):
                return False
            try:
                c = FeedClient(feed, timeout=5)
                ok = c.request("ping").get("ok")
                c.close()
                return ok
            except OSError:
                return False
        wait_for(up, timeout, f"{proc.name} to answer on {feed}")

    def ctl(self, feed, *args, check_rc=0):
        r = subprocess.run([PIMSNMPCTL, "-s", feed, *args], env=self.env, capture_output=True,
                           text=True, timeout=30)
        if check_rc is not None and r.returncode != check_rc:
            raise Failure(f"pimsnmpctl {' '.join(args)}: exit {r.returncode}\n{r.stdout}{r.stderr}")
        return r

    def status(self, feed):
        c = FeedClient(feed)
        try:
            reply = c.request("status")
        finally:
            c.close()
        check(reply.get("ok"), f"status refused: {reply}")
        return reply["status"]

    def document(self, feed):
        c = FeedClient(feed)
        try:
            reply = c.request("dump")
        finally:
            c.close()
        return reply["document"]

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

LINE = re.compile(r"^\.?([0-9.]+) = (?:([A-Za-z0-9-]+): )?(.*)$")
TICKS = re.compile(r"^\((\d+)\)")
# What net-snmp prints for SNMPv2 exceptions: not objects.
EXCEPTIONS = ("No more variables left", "No Such Object", "No Such Instance")


def parse_varbinds(text):
    """{oid: (type, value)} from net-snmp tool output with -On -Oe -Ox; integers as int,
    Timeticks as hundredths, octet strings as upper-case hex."""
    out = {}
    for line in text.splitlines():
        m = LINE.match(line.strip())
        if not m:
            continue
        oid, typ, value = m.group(1), m.group(2) or "", m.group(3).strip()
        if value.startswith(EXCEPTIONS):
            continue
        if typ in ("INTEGER", "Counter32", "Counter64", "Gauge32", "Unsigned32"):
            try:
                value = int(value)
            except ValueError:
                pass
        elif typ == "Timeticks":
            t = TICKS.match(value)
            value = int(t.group(1)) if t else value
        elif typ == "Hex-STRING":
            value = value.replace(" ", "").upper()
        out[oid] = (typ, value)
    return out


def snmp(env, tool, port, oids, timeout=2, retries=1, transport="udp", **auth):
    argv = [tool, *auth_args(**auth), "-On", "-Oe", "-Ox", "-t", str(timeout), "-r",
            str(retries), f"{transport}:127.0.0.1:{port}", *oids]
    return subprocess.run(argv, env=env.env, capture_output=True, text=True,
                          timeout=timeout * (retries + 1) + 60)


def walk(env, port, root, **auth):
    """Walks `root` (snmpbulkwalk); {oid: (type, value)}. Raises when the agent fails."""
    r = snmp(env, "snmpbulkwalk", port, ["-Cr50", root], **auth)
    if r.returncode != 0:
        raise Failure(f"walk {root} {auth}: exit {r.returncode}: {r.stderr.strip()}")
    vbs = parse_varbinds(r.stdout)
    return {o: v for o, v in vbs.items() if o.startswith(root + ".")}


def get(env, port, oids, **auth):
    r = snmp(env, "snmpget", port, oids, **auth)
    if r.returncode != 0:
        raise Failure(f"get {oids} {auth}: exit {r.returncode}: {r.stderr.strip()}")
    return parse_varbinds(r.stdout)


def reachable(env, port, root, **auth):
    """True when a GETNEXT of `root` in the context returns an object under `root`. A context
    net-snmp never knew is not answered at all; one that was withdrawn answers with the end of
    the MIB view. Neither serves anything."""
    r = snmp(env, "snmpgetnext", port, [root], timeout=1, retries=0, **auth)
    return r.returncode == 0 and bool(
        [o for o in parse_varbinds(r.stdout) if o.startswith(root.lstrip(".") + ".")])


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


def inet_hex(addr):
    packed = socket.inet_pton(socket.AF_INET6 if ":" in addr else socket.AF_INET, addr)
    return packed.hex().upper()


def run(main):
    """Runs a test's main(); exit 0 on success, 1 with the reason otherwise."""
    started = time.monotonic()
    try:
        main()
    except Failure as e:
        print(f"FAIL: {e}", file=sys.stderr)
        sys.exit(1)
    print(f"PASS ({time.monotonic() - started:.1f} s)")


# -- documents --------------------------------------------------------------------------------

def vrf_inputs(af, interfaces=None, routes=None, fib=None, **extra):
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
    fam.update(extra)
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
            "default": {"ipv4": vrf_inputs(
                "ipv4",
                interfaces={
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
            "red": {"ipv4": vrf_inputs(
                "ipv4",
                interfaces={
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
