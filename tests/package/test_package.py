"""The Debian package: build it with CPack, inspect it with dpkg-deb, install it into a scratch
root (maintainer scripts run there through DPKG_ROOT; nothing on the host changes), start the
installed daemon from the installed files as its unit would, query it, and purge it again.

Environment (from ctest): BUILD_DIR, SOURCE_DIR, CPACK, PIMSNMP_VERSION. Needs root: the
package's files belong to root and the daemon runs as the package's user.
"""

import gzip
import os
import re
import shlex
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "e2e"))
from e2elib import (IPMCAST_MIB, IPMROUTE_MIB, PIM_MIB, Failure, check, check_eq,  # noqa: E402
                    free_port, run, wait_for)

BUILD_DIR = os.environ["BUILD_DIR"]
SOURCE_DIR = os.environ["SOURCE_DIR"]
CPACK = os.environ.get("CPACK", "cpack")
VERSION = os.environ["PIMSNMP_VERSION"]
SKIP = 77

CONFFILES = {"/etc/pimsnmp/pimsnmpd.conf": 0o640, "/etc/pimsnmp/state.json": 0o640,
             "/etc/default/pimsnmpd": 0o644}
UNIT = "/lib/systemd/system/pimsnmpd.service"
# Besides /etc, what the package holds that no install() rule installs.
PACKAGE_ONLY = {"/usr/share/doc/pimsnmp/changelog.gz", "/usr/share/lintian/overrides/pimsnmp"}
EXPOSURE = 32  # systemd-analyze security threshold, tenths: the unit rates 3.0
# Usage page -> man page; a page is expected once its source exists.
MAN_PAGES = {"pimsnmpd.8": "docs/pimsnmpd.md", "pimsnmpctl.8": "docs/pimsnmpd.md",
             "pimsnmp-state.5": "docs/state-document.md",
             "pimsnmp-frr.8": "docs/pimsnmp-frr.md"}


def sh(argv, **kw):
    r = subprocess.run(argv, capture_output=True, text=True, timeout=120, **kw)
    if r.returncode != 0:
        raise Failure(f"{' '.join(argv)}: exit {r.returncode}\n{r.stdout}{r.stderr}")
    return r


# -- the package as built ---------------------------------------------------------------------

def build(out):
    sh([CPACK, "-G", "DEB", "-B", out], cwd=BUILD_DIR)
    debs = [f for f in os.listdir(out) if f.endswith(".deb")]
    check_eq(len(debs), 1, "packages built")
    return os.path.join(out, debs[0])


def package_files(deb):
    """{path: (mode string, owner)} of the data archive, directories excluded."""
    files = {}
    for line in sh(["dpkg-deb", "-c", deb]).stdout.splitlines():
        perms, owner, _size, _date, _time, path = line.split(None, 5)
        path = path.split(" -> ")[0]
        if not path.endswith("/"):
            files[path.lstrip(".")] = (perms, owner)
    return files


def check_control(deb, files, control_dir):
    field = lambda f: sh(["dpkg-deb", "-f", deb, f]).stdout.strip()
    check_eq(field("Package"), "pimsnmp", "Package")
    check_eq(field("Version"), VERSION, "Version")
    depends = [d.strip() for d in field("Depends").split(",")]
    names = [re.split(r"[\s(]", d)[0] for d in depends]
    check("adduser" in names, f"Depends lacks adduser: {depends}")
    # Computed from the binaries: the libraries they link, each a real installed package.
    for lib in ("libc6", "libsnmp"):
        check(any(n.startswith(lib) for n in names), f"Depends lacks {lib}*: {depends}")
    for n in names:
        r = subprocess.run(["dpkg-query", "-W", n], capture_output=True)
        check(r.returncode == 0, f"dependency {n} is no package installed here")

    sh(["dpkg-deb", "-e", deb, control_dir])
    listed = open(os.path.join(control_dir, "conffiles")).read().split()
    under_etc = sorted(p for p in files if p.startswith("/etc/"))
    check_eq(sorted(listed), under_etc, "conffiles (every file under /etc, nothing else)")
    check_eq(sorted(listed), sorted(CONFFILES), "conffiles")
    scripts = [os.path.join(control_dir, s) for s in ("postinst", "prerm", "postrm")]
    for path in scripts:
        check(os.stat(path).st_mode & 0o111, f"{path} is not executable")
        sh(["sh", "-n", path])
    if shutil.which("shellcheck"):
        sh(["shellcheck", "-s", "sh", *scripts])


def check_files(files):
    for path, mode in CONFFILES.items():
        check(path in files, f"{path} missing from the package")
        check_eq(files[path][0][1:], stat.filemode(mode)[1:], f"mode of {path} in the package")
    for path in ("/usr/bin/pimsnmpd", "/usr/bin/pimsnmpctl"):
        check(path in files and files[path][0] == "-rwxr-xr-x", f"{path}: {files.get(path)}")
    check(UNIT in files, f"{UNIT} missing")
    check("/usr/lib/sysusers.d/pimsnmp.conf" in files, "sysusers.d file missing")
    check(any(p.startswith("/usr/share/pimsnmp/mibs/") for p in files), "no MIB module files")
    check(all(owner == "root/root" for _, owner in files.values()), "files not owned by root")
    for page, src in MAN_PAGES.items():
        if os.path.exists(os.path.join(SOURCE_DIR, src)):
            sect = page.rsplit(".", 1)[1]
            check(f"/usr/share/man/man{sect}/{page}.gz" in files, f"man page {page} missing")


def check_install_rules(files, scratch):
    """Every file `cmake --install` puts under /usr is in the package, and nothing the
    package holds under /usr is missing from the install rules."""
    sh(["cmake", "--install", BUILD_DIR, "--prefix", "/usr"], env={**os.environ,
                                                                  "DESTDIR": scratch})
    installed = set()
    for d, _, names in os.walk(scratch):
        for n in names:
            installed.add(os.path.join(d, n)[len(scratch):])
    # The package moves units to /lib/systemd/system (Debian 12's place for them).
    installed = {p.replace("/usr/lib/systemd/system/", "/lib/systemd/system/") for p in installed}
    packaged = {p for p in files if not p.startswith("/etc/")} - PACKAGE_ONLY
    check_eq(sorted(packaged ^ installed), [], "files in the package but not installed, or the "
             "reverse")
    check_eq(sorted(PACKAGE_ONLY - set(files)), [], "files only the package holds")


def check_man_pages(root):
    mandoc = shutil.which("mandoc")
    pages = []
    for sect in ("5", "8"):
        d = os.path.join(root, "usr/share/man", "man" + sect)
        pages += [os.path.join(d, f) for f in sorted(os.listdir(d))] if os.path.isdir(d) else []
    check(len(pages) >= 3, f"man pages: {pages}")
    for gz in pages:
        name = os.path.basename(gz)[:-len(".x.gz")]
        text = gzip.open(gz, "rt").read()
        check(re.search(r"^\.SH NAME\n" + re.escape(name.replace("-", "\\-")) + r" \\- \S",
                        text, re.M), f"{gz}: no NAME line for {name}")
        r = subprocess.run(["groff", "-ww", "-z", "-man", "-t"], input=text,
                           capture_output=True, text=True)
        check(r.returncode == 0 and not r.stderr, f"groff warns on {gz}:\n{r.stderr}")
        if mandoc:
            r = subprocess.run([mandoc, "-Tlint", "-Wwarning"], input=text,
                               capture_output=True, text=True)
            check(not r.stdout and not r.stderr, f"mandoc warns on {gz}:\n{r.stdout}{r.stderr}")
        r = subprocess.run(["man", "-l", gz], capture_output=True, text=True,
                           env={**os.environ, "MANWIDTH": "80", "MAN_KEEP_STDERR": "1"})
        check(r.returncode == 0 and not r.stderr, f"man -l {gz}:\n{r.stderr}")
        check(name in r.stdout.lower(), f"man -l {gz} renders no {name}")


def check_unit(root):
    """systemd-analyze verify, with ExecStart pointing into the scratch root and the man pages
    of Documentation= found there."""
    analyze = shutil.which("systemd-analyze")
    if not analyze:
        print("systemd-analyze not installed: unit not verified")
        return
    d = tempfile.mkdtemp(dir=os.path.dirname(root))
    for unit in os.listdir(os.path.join(root, "lib/systemd/system")):
        text = open(os.path.join(root, "lib/systemd/system", unit)).read()
        path = os.path.join(d, unit)
        with open(path, "w") as f:
            f.write(text.replace("/usr/bin/", root + "/usr/bin/"))
        r = subprocess.run([analyze, "verify", path], capture_output=True, text=True,
                           env={**os.environ, "MANPATH": os.path.join(root, "usr/share/man")})
        check(r.returncode == 0 and not r.stderr.strip(),
              f"systemd-analyze verify {unit}:\n{r.stderr}")
    # The daemon's hardening, as systemd rates it (0 best, 10 worst): dropping a protection
    # pushes it over.
    r = subprocess.run([analyze, "security", "--offline=true", f"--threshold={EXPOSURE}",
                        "--no-pager", os.path.join(d, "pimsnmpd.service")],
                       capture_output=True, text=True)
    level = re.search(r"exposure level for pimsnmpd.service: ([0-9.]+)", r.stdout)
    check(r.returncode == 0 and level, f"systemd-analyze security: {level and level.group(1)} "
          f"above {EXPOSURE / 10}:\n{r.stdout[-2000:]}{r.stderr}")


# -- the package installed into a scratch root ------------------------------------------------

def dpkg(root, *args):
    return sh(["dpkg", f"--root={root}", "--force-script-chrootless", "--force-depends",
               "--log=/dev/null", *args], stdin=subprocess.DEVNULL)


def make_root(root):
    for d in ("var/lib/dpkg/info", "var/lib/dpkg/updates", "var/lib/dpkg/triggers"):
        os.makedirs(os.path.join(root, d))
    for f in ("var/lib/dpkg/status", "var/lib/dpkg/available"):
        open(os.path.join(root, f), "w").close()


def user_entry(root, db, name):
    for line in open(os.path.join(root, "etc", db)):
        fields = line.rstrip("\n").split(":")
        if fields[0] == name:
            return fields
    raise Failure(f"no {name} in {root}/etc/{db}")


def check_installed(root):
    status = sh(["dpkg-query", f"--root={root}", "-W", "-f=${Status}", "pimsnmp"]).stdout
    check_eq(status, "install ok installed", "package status in the scratch root")
    pw = user_entry(root, "passwd", "pimsnmp")
    uid, gid = int(pw[2]), int(pw[3])
    check(uid < 1000, f"pimsnmp is not a system user: uid {uid}")
    check_eq(pw[5], "/var/lib/pimsnmpd", "pimsnmp's home")
    check(pw[6].endswith("nologin"), f"pimsnmp has a login shell: {pw[6]}")
    check_eq(int(user_entry(root, "group", "pimsnmp")[2]), gid, "group pimsnmp")
    for path, mode in CONFFILES.items():
        st = os.stat(root + path)
        want_gid = gid if mode == 0o640 else 0
        check_eq((oct(stat.S_IMODE(st.st_mode)), st.st_uid, st.st_gid),
                 (oct(mode), 0, want_gid), f"mode, owner, group of {path}")
    st = os.stat(os.path.join(root, "var/lib/pimsnmpd"))
    check_eq((oct(stat.S_IMODE(st.st_mode)), st.st_uid, st.st_gid), (oct(0o750), uid, gid),
             "mode, owner, group of /var/lib/pimsnmpd")
    wants = os.path.join(root, "etc/systemd/system/multi-user.target.wants/pimsnmpd.service")
    check(os.path.islink(wants) and os.readlink(wants) == UNIT, "pimsnmpd.service not enabled")
    return uid, gid


def unit_settings(root):
    """{key: value} of the installed unit (the last one of a key; continuations joined)."""
    text = open(root + UNIT).read().replace("\\\n", " ")
    return dict(l.split("=", 1) for l in text.splitlines() if "=" in l and l[:1].isalpha())


def exec_start(root, unit):
    """The unit's ExecStart with $PIMSNMPD_OPTS from /etc/default/pimsnmpd, as argv; absolute
    paths moved into the scratch root."""
    opts = sh(["sh", "-c", '. "$1"; printf %s "$PIMSNMPD_OPTS"', "sh",
               root + "/etc/default/pimsnmpd"]).stdout
    argv = []
    for word in shlex.split(unit["ExecStart"]):
        if word == "$PIMSNMPD_OPTS":
            argv += shlex.split(opts)
        else:
            argv.append(re.sub(r"(^|:)/(usr|etc|var|run)/", lambda m: m.group(1) + root + "/" +
                               m.group(2) + "/", word))
    return argv


def snmp_credentials(root):
    """Every way the installed configuration grants reading the default context: its v2c
    communities without a context field and its v3 users, with their passphrases."""
    creds, users, rousers = [], {}, set()
    for line in open(root + "/etc/pimsnmp/pimsnmpd.conf"):
        words = shlex.split(line, comments=True)
        if not words:
            continue
        if words[0] == "rocommunity" and 2 <= len(words) <= 3:
            creds.append(["-v2c", "-c", words[1]])
        elif words[0] == "createUser" and len(words) >= 2:
            users[words[1]] = words[2:]
        elif words[0] == "rouser" and len(words) >= 2:
            rousers.add(words[1])
    for name, spec in users.items():
        if name not in rousers:
            continue
        if len(spec) >= 4:
            creds.append(["-v3", "-u", name, "-l", "authPriv", "-a", spec[0], "-A", spec[1],
                          "-x", spec[2], "-X", spec[3]])
        elif len(spec) >= 2:
            creds.append(["-v3", "-u", name, "-l", "authNoPriv", "-a", spec[0], "-A", spec[1]])
        else:
            creds.append(["-v3", "-u", name, "-l", "noAuthNoPriv"])
    check(creds, "the installed configuration grants no read access")
    return creds


class Notifications:
    """A NOTIFY_SOCKET of our own: what the daemon tells its service manager."""

    def __init__(self, path):
        self.path = path
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.sock.bind(path)
        os.chmod(path, 0o777)
        self.sock.settimeout(0.1)
        self.messages = []

    def poll(self):
        try:
            while True:
                self.messages += self.sock.recv(4096).decode().split("\n")
        except (socket.timeout, BlockingIOError):
            pass
        return self.messages


def snmp(tool, port, auth, *oids):
    r = subprocess.run([tool, *auth, "-On", "-t", "2", "-r", "1", f"udp:127.0.0.1:{port}",
                        *oids], capture_output=True, text=True, timeout=30)
    return r


def objects(walk_output, root):
    """The lines of snmpwalk -On output that print an object under `root`."""
    return [l for l in walk_output.splitlines() if l.lstrip(".").startswith(root + ".")]


def run_daemon(root, tmp):
    """Starts the installed daemon as the unit would (its user and group, its runtime
    directory, its command line) and queries it; returns the unit's uid and gid."""
    unit = unit_settings(root)
    check_eq(unit.get("Type"), "notify", "the unit's Type")
    uid, gid = int(user_entry(root, "passwd", unit["User"])[2]), \
        int(user_entry(root, "group", unit["Group"])[2])
    port = free_port()
    # What an operator does: the listening address goes into /etc/default/pimsnmpd.
    with open(root + "/etc/default/pimsnmpd", "a") as f:
        f.write(f'PIMSNMPD_OPTS="--listen udp:127.0.0.1:{port}"\n')
    argv = exec_start(root, unit)
    check(argv[0] == root + "/usr/bin/pimsnmpd", f"ExecStart runs {argv[0]}")
    # What systemd makes of RuntimeDirectory=: owned by the unit's user, with its mode.
    rundir = root + "/run/" + unit["RuntimeDirectory"]
    os.makedirs(rundir)
    os.chmod(rundir, int(unit["RuntimeDirectoryMode"], 8))
    os.chown(rundir, uid, gid)
    notify = Notifications(os.path.join(tmp, "notify.sock"))
    binary = open(argv[0], "rb").read()
    readiness = b"READY=1" in binary
    log = open(os.path.join(tmp, "pimsnmpd.log"), "w+")
    env = {"PATH": "/usr/bin:/bin", "NOTIFY_SOCKET": notify.path,
           "PIMSNMP_SOCKET": rundir + "/feed.sock"}
    proc = subprocess.Popen(argv, user=uid, group=gid, extra_groups=[], env=env,
                            stdout=log, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
    output = lambda: open(log.name).read()
    try:
        if readiness:
            wait_for(lambda: "READY=1" in notify.poll() or proc.poll() is not None, 20,
                     "READY=1")
            check(proc.poll() is None, f"pimsnmpd exited {proc.returncode}:\n{output()}")
        else:
            print("pimsnmpd has no readiness notification: waiting for its feed socket")
            wait_for(lambda: os.path.exists(rundir + "/feed.sock") or proc.poll() is not None,
                     20, "the feed socket")
        check(proc.poll() is None, f"pimsnmpd exited {proc.returncode}:\n{output()}")
        creds = snmp_credentials(root)
        auth = creds[0]

        # It answers every credential of its configuration (a v3 user's keys live in the
        # persistent directory, written as pimsnmp), and serves no VRF: nothing under any of
        # the three MIBs.
        for a in creds:
            r = snmp("snmpget", port, a, PIM_MIB + ".1.1.1.0")
            check(r.returncode == 0 and re.search(r"No Such (Object|Instance)", r.stdout),
                  f"snmpget {' '.join(a)} on the empty state: {r.stdout}{r.stderr}\n{output()}")
        for root_oid in (PIM_MIB, IPMROUTE_MIB, IPMCAST_MIB):
            r = snmp("snmpwalk", port, auth, root_oid)
            rows = objects(r.stdout, root_oid)
            check(r.returncode == 0 and not rows, f"walk {root_oid}: {r.stdout}{r.stderr}")
        # pimsnmpctl: for the daemon's group only (socket 0660 in a 0750 directory).
        ctl = lambda *ids: subprocess.run(
            [root + "/usr/bin/pimsnmpctl", "-s", rundir + "/feed.sock", "--json", "dump"],
            user=ids[0], group=ids[1], extra_groups=list(ids[2:]), capture_output=True,
            text=True, timeout=30)
        nobody = 65534
        for ids in ((uid, gid), (nobody, nobody, gid)):
            r = ctl(*ids)
            check(r.returncode == 0 and '"vrfs":{}' in r.stdout.replace(" ", ""),
                  f"pimsnmpctl dump as {ids}: {r.stdout}{r.stderr}")
        r = ctl(nobody, nobody)
        check(r.returncode != 0 and "vrfs" not in r.stdout,
              f"pimsnmpctl outside group pimsnmp reached the daemon: {r.stdout}")

        # The same setup serves a VRF once the installed state file holds one: the daemon,
        # as user pimsnmp, follows the root-owned file through its group.
        demo = open(root + "/usr/share/pimsnmp/demo-state.json").read()
        with open(root + "/etc/pimsnmp/state.json", "w") as f:
            f.write(demo)
        wait_for(lambda: objects(snmp("snmpwalk", port, auth, PIM_MIB).stdout, PIM_MIB), 20,
                 "PIM-MIB rows from the state file")

        proc.send_signal(signal.SIGTERM)
        check_eq(proc.wait(timeout=20), 0, "pimsnmpd's exit status after SIGTERM")
        if readiness:
            check("STOPPING=1" in notify.poll(), f"no STOPPING=1: {notify.messages}")
    finally:
        if proc.poll() is None:
            proc.kill()
            proc.wait()
    return uid, gid


def check_upgrade_and_remove(root, deb, uid, gid):
    """Installing over itself keeps what the administrator changed: edited conffiles, a
    dpkg-statoverride, the state directory. Removing keeps conffiles and state."""
    conf = "/etc/pimsnmp/pimsnmpd.conf"
    edited = {p: open(root + p).read() for p in ("/etc/default/pimsnmpd",
                                                 "/etc/pimsnmp/state.json")}
    shipped = {"/etc/default/pimsnmpd": "pimsnmpd.default", "/etc/pimsnmp/state.json": "state.json"}
    for p, name in shipped.items():
        check(edited[p] != open(os.path.join(SOURCE_DIR, "packaging", name)).read(),
              f"{p} was not edited: nothing to keep")
    marker = os.path.join(root, "var/lib/pimsnmpd/kept")
    open(marker, "w").close()
    os.chmod(root + conf, 0o644)  # stray mode: configuring again restores 0640 root:pimsnmp
    dpkg(root, "-i", deb)
    for p, text in edited.items():
        check_eq(open(root + p).read(), text, f"{p} after reinstalling")
    st = os.stat(root + conf)
    check_eq((oct(stat.S_IMODE(st.st_mode)), st.st_gid), (oct(0o640), gid), f"{conf} mode, group")
    check(os.path.exists(marker), "/var/lib/pimsnmpd lost its contents on reinstall")

    sh(["dpkg-statoverride", f"--root={root}", "--update", "--add", "root", "root", "0600",
        conf])
    dpkg(root, "-i", deb)
    st = os.stat(root + conf)
    check_eq((oct(stat.S_IMODE(st.st_mode)), st.st_uid, st.st_gid), (oct(0o600), 0, 0),
             f"{conf} under a statoverride after reinstalling")
    sh(["dpkg-statoverride", f"--root={root}", "--remove", conf])

    dpkg(root, "--remove", "pimsnmp")
    check(not os.path.exists(root + "/usr/bin/pimsnmpd"), "pimsnmpd left after remove")
    for p in (*CONFFILES, "/var/lib/pimsnmpd/kept"):
        check(os.path.exists(root + p), f"{p} gone after remove (only purge removes it)")


def check_purged(root, uid):
    dpkg(root, "--purge", "pimsnmp")
    for path in ("/usr/bin/pimsnmpd", UNIT, "/etc/pimsnmp", "/var/lib/pimsnmpd",
                 "/etc/default/pimsnmpd", "/etc/systemd/system/pimsnmpd.service",
                 "/etc/systemd/system/multi-user.target.wants/pimsnmpd.service"):
        check(not os.path.lexists(root + path), f"{path} left after purge")
    check_eq(int(user_entry(root, "passwd", "pimsnmp")[2]), uid, "the pimsnmp user after purge")


def main():
    if os.geteuid() != 0:
        print("not root: the package cannot be installed into a scratch root")
        sys.exit(SKIP)
    host_users = open("/etc/passwd").read()
    tmp = tempfile.mkdtemp(prefix="pimsnmp-package-")
    os.chmod(tmp, 0o755)  # the daemon runs as the package's user below it
    try:
        deb = build(os.path.join(tmp, "out"))
        files = package_files(deb)
        check_files(files)
        check_control(deb, files, os.path.join(tmp, "control"))
        check_install_rules(files, os.path.join(tmp, "install"))

        root = os.path.join(tmp, "root")
        make_root(root)
        dpkg(root, "-i", deb)
        uid, gid = check_installed(root)
        check_man_pages(root)
        check_unit(root)
        check_eq(run_daemon(root, tmp), (uid, gid), "the unit's user and group")
        check_upgrade_and_remove(root, deb, uid, gid)
        check_purged(root, uid)
        check_eq(open("/etc/passwd").read(), host_users, "the host's users (must not change)")
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


if __name__ == "__main__":
    run(main)
