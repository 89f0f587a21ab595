#!/usr/bin/env python3
"""--log syslog: the daemon's messages and net-snmp's reach syslog with facility daemon and
their priority, nothing of them on stderr. pimsnmpd runs in a private mount namespace whose
/dev/log is a socket this test reads (needs root or user namespaces; skipped, exit 77,
otherwise)."""

import os
import re
import signal
import socket
import subprocess
import sys

import e2elib as e
from e2elib import check, check_eq

LOG_DAEMON = 3 << 3
ERR, WARNING, INFO = 3, 4, 6
SYSLOG_LINE = re.compile(r"^<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d pimsnmpd\[(\d+)\]: (.*)$")

# /dev of the namespace: a tmpfs with the few devices the daemon opens, and /dev/log.
PRIVATE_DEV = """set -e
mount --bind /dev "$DIR/realdev"
mount -t tmpfs tmpfs /dev
for n in null zero urandom random; do touch /dev/$n; mount --bind "$DIR/realdev/$n" /dev/$n; done
umount -l "$DIR/realdev"
ln -s "$DIR/log.sock" /dev/log
exec "$@"
"""


# Root needs no user namespace (and binding /dev from one can fail).
UNSHARE = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else ["--map-root-user"])


def namespaces_work(env):
    """Whether the private /dev can be set up here: tried once with `true`."""
    r = subprocess.run([*UNSHARE, "sh", "-c", PRIVATE_DEV, "sh", "true"], env=env.env,
                       capture_output=True)
    return r.returncode == 0


class SyslogSocket:
    def __init__(self, path):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.sock.bind(path)
        self.sock.settimeout(0.2)
        self.lines = []

    def drain(self):
        while True:
            try:
                self.lines.append(self.sock.recv(65536).decode(errors="replace"))
            except socket.timeout:
                return self.lines

    def find(self, priority, text):
        for line in self.drain():
            m = SYSLOG_LINE.match(line)
            if m and int(m.group(1)) == LOG_DAEMON | priority and text in m.group(3):
                return m
        return None


def main():
    with e.Env("syslog") as env:
        log = SyslogSocket(env.path("log.sock"))
        os.makedirs(env.path("realdev"))
        env.env["DIR"] = env.dir
        if not namespaces_work(env):
            print("SKIP: no private mount namespace with its own /dev here", file=sys.stderr)
            sys.exit(77)
        conf = env.write("pimsnmpd.conf", "rocommunity public 127.0.0.1\nnotAToken here\n")
        feed = env.path("pimsnmpd.sock")
        proc = env.start("pimsnmpd", [
            *UNSHARE, "sh", "-c", PRIVATE_DEV, "sh",
            e.PIMSNMPD, "--log", "syslog", "--state", env.write("state.json", e.two_vrf_document()),
            "--config", conf, "--feed", f"unix:{feed}", "--listen",
            f"udp:127.0.0.1:{e.free_port()}", "--persistent-dir", env.path("persist")])
        env.wait_feed(proc, feed)

        started = e.wait_for(lambda: log.find(INFO, "loaded state file"), 5, "info line")
        check_eq(int(started.group(2)), int(e.wait_for(
            lambda: env.status(feed)["pid"], 5, "pid")), "syslog pid is the daemon's")
        e.wait_for(lambda: log.find(WARNING, "Unknown token: notAToken"), 5,
                   "net-snmp's warning at warning priority")
        e.wait_for(lambda: log.find(INFO, "ready: master agent"), 5, "ready line")

        os.remove(conf)
        proc.send_signal(signal.SIGHUP)
        e.wait_for(lambda: log.find(ERR, "does not exist: keeping the current configuration"), 5,
                   "refused reload at error priority")
        check_eq(proc.stop(), 0, "pimsnmpd exit code")
        check(log.find(INFO, "stopped") is not None or
              any("stopped" in l for l in log.drain()), "stop logged")
        check_eq(proc.output().strip(), "", "nothing on stderr")


if __name__ == "__main__":
    e.run(main)
