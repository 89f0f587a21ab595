"""Harness of the FRR network-namespace lab: the four-router lab of frrlab.sh, processes and
net-snmp tools run inside a router's namespace, and the cleanup that always runs.

Namespaces are named pst<pid>-<node> after the test process, so parallel runs do not meet and
a later run can remove what a killed one left behind. Without root, the lab runs inside an
unprivileged user namespace where the system allows one; where it does not, the test says so
and exits with SKIP (77), which ctest reports as skipped.
"""

import os
import re
import shutil
import signal
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "e2e"))
import e2elib as e  # noqa: E402
from e2elib import Failure, check  # noqa: E402,F401

SKIP = 77


def _binary(variable, built, installed):
    """The environment's choice, else the default build directory's, else the installed one."""
    path = os.path.join(HERE, "..", "..", "build", built)
    return os.environ.get(variable) or (os.path.abspath(path) if os.path.exists(path)
                                        else installed)


PIMSNMPD = _binary("PIMSNMPD", "daemon/pimsnmpd", "pimsnmpd")
PIMSNMP_FRR = _binary("PIMSNMP_FRR", "pimsnmp-frr/pimsnmp-frr", "pimsnmp-frr")
# Cadences for a short test: routes soon after kernel events, counters every second.
FAST_FEEDER = ["--route-delay", "0.2", "--route-min-gap", "1", "--route-period", "5",
               "--counter-period", "1", "--grace", "30"]
FRRLAB = os.path.join(HERE, "frrlab.sh")
FRR_DAEMONS = "/usr/lib/frr"
NS_PATTERN = re.compile(r"^pst(\d+)-")


def skip(reason):
    bar = "*" * 78
    print(f"{bar}\nSKIPPED: {reason}\n{bar}", flush=True)
    sys.exit(SKIP)


def _terminate(signo, _frame):
    raise KeyboardInterrupt(f"signal {signo}")


def ensure_privileges():
    """Root goes on; otherwise re-runs this script in a user + network + mount namespace when
    the system allows unprivileged user namespaces, and skips loudly when it does not."""
    missing = [p for p in (os.path.join(FRR_DAEMONS, "pimd"), shutil.which("ip") or "",
                           shutil.which("vtysh") or "") if not os.path.exists(p)]
    if missing:
        skip(f"FRR or iproute2 not installed ({', '.join(missing) or 'ip'}); "
             "scripts/bootstrap.sh installs them")
    if os.geteuid() == 0:
        return
    unshare = shutil.which("unshare")
    probe = unshare and subprocess.run([unshare, "-rnm", "true"], capture_output=True)
    if not probe or probe.returncode != 0:
        skip("the FRR lab needs root or unprivileged user namespaces, and neither is available"
             + (f" ({probe.stderr.decode().strip()})" if probe else " (no unshare)"))
    env = dict(os.environ, LAB_ROOTLESS="1")
    r = subprocess.run([unshare, "-rnm", "--propagation", "private", sys.executable,
                        os.path.abspath(sys.argv[0]), *sys.argv[1:]], env=env)
    sys.exit(r.returncode)


def rootless_mounts(workdir):
    """Inside the user namespace: a private /run for the namespace files, a /var/tmp for FRR's
    crash-log directories, and an /etc/group where the namespace's root is in frr and frrvty
    (FRR refuses to start otherwise)."""
    for target in ("/run", "/var/tmp"):
        subprocess.run(["mount", "-t", "tmpfs", "none", target], check=True)
    os.makedirs("/run/netns", exist_ok=True)
    with open("/etc/group") as f:
        groups = f.read()
    groups = re.sub(r"^((?:frr|frrvty):[^:]*:[^:]*:)(.*)$",
                    lambda m: m.group(1) + (m.group(2) + ",root" if m.group(2) else "root"),
                    groups, flags=re.M)
    path = os.path.join(workdir, "group")
    with open(path, "w") as f:
        f.write(groups)
    subprocess.run(["mount", "--bind", path, "/etc/group"], check=True)


def remove_stale_labs():
    """Removes the namespaces of earlier runs whose process is gone (a run killed hard)."""
    r = subprocess.run(["ip", "netns", "list"], capture_output=True, text=True)
    stale = set()
    for line in r.stdout.splitlines():
        m = NS_PATTERN.match(line)
        if m and not os.path.exists(f"/proc/{m.group(1)}"):
            stale.add(f"pst{m.group(1)}")
    for prefix in stale:
        subprocess.run(["bash", FRRLAB, "down"], env=dict(os.environ, LAB_NS=prefix),
                       capture_output=True, timeout=60)


class Lab:
    """One lab; `with Lab(env) as lab:` tears it down however the block ends."""

    def __init__(self, env, seconds=120):
        self.env = env
        self.prefix = f"pst{os.getpid()}"
        self.dir = env.path("lab")
        self.vars = dict(os.environ, LAB_NS=self.prefix, LAB_DIR=self.dir,
                         LAB_SECONDS=str(seconds))
        os.makedirs(self.dir, exist_ok=True)
        # FRR's daemons run as user frr: they must reach their directories below these.
        os.chmod(env.dir, 0o711)
        os.chmod(self.dir, 0o711)
        if os.environ.get("LAB_ROOTLESS") == "1":
            rootless_mounts(env.dir)

    def __enter__(self):
        signal.signal(signal.SIGTERM, _terminate)
        remove_stale_labs()
        return self

    def __exit__(self, *exc):
        self.script("down", check_rc=False)
        left = subprocess.run(["ip", "netns", "list"], capture_output=True, text=True).stdout
        if self.prefix + "-" in left:
            print(f"WARNING: namespaces of {self.prefix} remain", file=sys.stderr)
        return False

    def script(self, *args, timeout=90, check_rc=True):
        r = subprocess.run(["bash", FRRLAB, *args], env=self.vars, capture_output=True,
                           text=True, timeout=timeout)
        if check_rc and r.returncode != 0:
            raise Failure(f"frrlab.sh {' '.join(args)}: exit {r.returncode}\n{r.stderr[-3000:]}")
        return r.stdout

    def up(self):
        self.script("up")

    def traffic(self):
        self.script("traffic")

    def ns(self, node):
        return f"{self.prefix}-{node}"

    def argv(self, node, argv):
        return ["ip", "netns", "exec", self.ns(node), *argv]

    def vty_dir(self, router):
        return os.path.join(self.dir, router)

    def vtysh(self, router, *commands):
        args = []
        for c in commands:
            args += ["-c", c]
        return self.script("vtysh", router, *args)

    def pid(self, router, daemon):
        with open(os.path.join(self.dir, router, f"{daemon}.pid")) as f:
            return int(f.read().strip())

    def app_pid(self, name):
        with open(os.path.join(self.dir, f"{name}.app.pid")) as f:
            return int(f.read().strip())

    def stop_app(self, name):
        """Stops one of the lab's bounded programs (receiver, sender, fake BSR) at once."""
        try:
            os.kill(self.app_pid(name), signal.SIGTERM)
        except (FileNotFoundError, ProcessLookupError):
            pass

    def ifindex(self, node, ifname):
        r = subprocess.run(self.argv(node, ["cat", f"/sys/class/net/{ifname}/ifindex"]),
                           capture_output=True, text=True, check=True)
        return int(r.stdout)

    def start(self, node, name, argv):
        """A process of the test inside node's namespace (stopped by the Env, and by `down`)."""
        return self.env.start(name, self.argv(node, argv))

    # -- net-snmp tools inside a namespace

    def snmp(self, node, tool, port, oids, timeout=2, retries=1):
        argv = self.argv(node, [tool, "-v2c", "-c", "public", "-On", "-Ox", "-t",
                                str(timeout), "-r", str(retries), f"udp:127.0.0.1:{port}",
                                *oids])
        return subprocess.run(argv, env=self.env.env, capture_output=True, text=True,
                              timeout=timeout * (retries + 1) + 30)

    def walk(self, node, port, root):
        r = self.snmp(node, "snmpbulkwalk", port, ["-Cr50", root])
        if r.returncode != 0:
            raise Failure(f"walk {root}: exit {r.returncode}: {r.stderr.strip()}")
        return {v.oid: (v.type, v.value) for v in e.parse_vars(r.stdout)
                if v.oid.startswith(root + ".")}

    def table(self, node, port, entry_oid):
        """{column: {index: value}} of one table."""
        return e.columns(self.walk(node, port, entry_oid), entry_oid)


class Agent:
    """snmptrapd, pimsnmpd and pimsnmp-frr in one router's namespace, on loopback there."""

    def __init__(self, lab, router, feeder_args=FAST_FEEDER):
        env = lab.env
        self.lab, self.router = lab, router
        self.trap_port, self.port = e.free_port(), e.free_port()
        conf = env.write("snmptrapd.conf", "disableAuthorization yes\n")
        self.trapd = lab.start(router, "snmptrapd", [
            e.SNMPTRAPD, "-f", "-Lo", "-n", "-C", "-c", conf, "-On", "-F", "TRAP %v\\n",
            f"udp:127.0.0.1:{self.trap_port}"])
        self.feed = env.path("feed.sock")
        agent_conf = env.write("pimsnmpd.conf", "\n".join([
            "rocommunity public 127.0.0.1",
            f"trap2sink 127.0.0.1:{self.trap_port} public"]) + "\n")
        self.pimsnmpd = lab.start(router, "pimsnmpd", [
            PIMSNMPD, "--feed", f"unix:{self.feed}", "--persistent-dir", env.path("persist"),
            "--listen", f"udp:127.0.0.1:{self.port}", "--config", agent_conf])
        env.wait_feed(self.pimsnmpd, self.feed)
        self.feeder = lab.start(router, "pimsnmp-frr", [
            PIMSNMP_FRR, "--vty-dir", lab.vty_dir(router), "--feed", f"unix:{self.feed}",
            *feeder_args])

    def table(self, entry_oid):
        check(self.feeder.alive(), f"pimsnmp-frr exited:\n{self.feeder.output()}")
        return self.lab.table(self.router, self.port, entry_oid)

    def document(self):
        return self.lab.env.document(self.feed)
