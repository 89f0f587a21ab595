#!/usr/bin/env python3
"""pimsnmpd's configuration file and its lifecycle around it: a file that cannot be read stops
the start with one clear line (exit 1); net-snmp's messages come through the daemon's log at
their level (journald's <N> prefix when stderr is the journal), without advice about files
pimsnmpd does not read; SIGHUP re-reads communities, users and system group values while the
served state stays, and --community-prefix communities come back; a configuration that cannot
be read on SIGHUP is refused and the current one stays; systemd hears READY=1,
RELOADING=1/READY=1 and STOPPING=1 in that order."""

import os
import signal
import socket
import subprocess

import e2elib as e
from e2elib import check, check_eq

SYSTEM = "1.3.6.1.2.1.1"
SYS_NAME = f"{SYSTEM}.5.0"
PIM_NBR = "1.3.6.1.3.61.1.1.3.1"


def start_failure(env, config_path, what):
    r = subprocess.run([e.PIMSNMPD, "--state", env.write("fail-state.json", e.two_vrf_document()),
                        "--listen", f"udp:127.0.0.1:{e.free_port()}", "--config", config_path,
                        "--persistent-dir", env.path("fail-persist")],
                       env=env.env, capture_output=True, text=True, timeout=30)
    check_eq(r.returncode, 1, f"exit code with {what}")
    lines = [l for l in (r.stdout + r.stderr).splitlines() if l.strip()]
    errors = [l for l in lines if " error: " in l]
    check_eq(len(errors), 1, f"error lines with {what}: {lines}")
    check(f"configuration file {config_path} {what}" in errors[0], f"clear reason: {errors[0]}")
    check(not any("No such file" in l or "ready" in l for l in lines), f"nothing else: {lines}")


def sys_name(env, port, community):
    return e.get(env, port, [SYS_NAME], community=community)[SYS_NAME][1].decode()


def pim_values(env, port):
    """Red's PIM-MIB over v3 without the times, which move on."""
    return {o: v for o, v in e.walk(env, port, e.PIM_MIB, user="e2e", context="red").items()
            if v[0] != "Timeticks"}


class NotifySocket:
    """systemd's end of the readiness protocol."""

    def __init__(self, path):
        self.path = path
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.sock.bind(path)
        self.sock.settimeout(10)

    def next(self):
        try:
            return dict(l.split("=", 1) for l in self.sock.recv(4096).decode().splitlines())
        except socket.timeout:
            raise e.Failure("no notification within 10 s")

    def expect(self, key):
        msg = self.next()
        check(msg.get(key) == "1", f"expected {key}=1, got {msg}")
        check(msg.get("STATUS"), f"a STATUS line with {key}: {msg}")
        return msg

    def idle(self):
        self.sock.settimeout(0.3)
        try:
            return self.sock.recv(4096).decode()
        except socket.timeout:
            return None
        finally:
            self.sock.settimeout(10)


def config(community, name):
    return "\n".join([f"rocommunity {community} 127.0.0.1", "createUser e2e", "rouser e2e noauth",
                      f"sysName {name}", "notAToken here", ""])


def main():
    with e.Env("config-reload") as env:
        start_failure(env, env.path("missing.conf"), "does not exist")
        start_failure(env, env.dir, "is a directory")

        notify = NotifySocket(env.path("notify.sock"))
        conf = env.write("pimsnmpd.conf", config("old", "before"))
        # stderr is the journal's stream: the daemon's log file stands in for it.
        log = env.path("pimsnmpd.log")
        open(log, "w").close()
        st = os.stat(log)
        env.env["JOURNAL_STREAM"] = f"{st.st_dev}:{st.st_ino}"
        env.env["NOTIFY_SOCKET"] = notify.path
        try:
            proc, port, feed = env.pimsnmpd(e.two_vrf_document(),
                                            args=["--config", conf, "--community-prefix", "public"])
        finally:
            del env.env["JOURNAL_STREAM"], env.env["NOTIFY_SOCKET"]
        ready = notify.expect("READY")
        check("master agent" in ready["STATUS"], f"status says what is up: {ready}")
        # Ready means served.
        check(e.reachable(env, port, e.PIM_MIB, community="public-red"), "red right after READY")
        e.wait_tables(env, feed, "red", {"pimNeighborTable": 1})
        check_eq(sys_name(env, port, "old"), "before", "sysName")
        neighbors = pim_values(env, port)

        out = proc.output()
        lines = [l for l in out.splitlines() if l]
        check(all(l.startswith("<") for l in lines), f"journal lines:\n{out}")
        check(any(l.startswith("<4>warning: ") and "Unknown token: notAToken" in l for l in lines),
              f"net-snmp's warning at its priority:\n{out}")
        check(any(l.startswith("<6>info: loaded state file") for l in lines), out)
        check("Created directory" not in out and "snmpconf" not in out, f"advice:\n{out}")

        # SIGHUP: the new file's communities and values; the served state is untouched.
        env.write("pimsnmpd.conf", config("new", "after"))
        proc.send_signal(signal.SIGHUP)
        check("MONOTONIC_USEC" in notify.expect("RELOADING"), "reload start time")
        notify.expect("READY")
        e.wait_for(lambda: "re-read configuration file" in proc.output(), 5, "reload logged")
        check_eq(sys_name(env, port, "new"), "after", "sysName after SIGHUP")
        check(not e.reachable(env, port, SYSTEM, community="old"), "the old community is gone")
        check(e.reachable(env, port, e.PIM_MIB, community="public-red"),
              "--community-prefix communities re-added")
        check(e.reachable(env, port, SYSTEM, community="public"),
              "prefix community of the default VRF")
        check_eq(pim_values(env, port), neighbors,
                 "red's PIM-MIB across the reload (v3 user re-read)")
        check_eq(e.table_counts(env, feed, "")["pimNeighborTable"], 3, "default rows")

        # Again: the prefix communities survive every re-read, not only the first.
        env.write("pimsnmpd.conf", config("newer", "again"))
        proc.send_signal(signal.SIGHUP)
        notify.expect("RELOADING")
        notify.expect("READY")
        e.wait_for(lambda: sys_name(env, port, "newer") == "again", 5, "second reload")
        check(e.reachable(env, port, e.PIM_MIB, community="public-red"),
              "--community-prefix communities after the second reload")

        # A configuration that cannot be read is refused; the current one stays in force.
        os.remove(conf)
        proc.send_signal(signal.SIGHUP)
        notify.expect("RELOADING")
        notify.expect("READY")
        e.wait_for(lambda: "keeping the current configuration" in proc.output(), 5,
                   "refused reload logged")
        check(any(l.startswith("<3>error: configuration file") and "does not exist" in l
                  for l in proc.output().splitlines()), proc.output())
        check_eq(sys_name(env, port, "newer"), "again", "sysName after a refused reload")
        check(e.reachable(env, port, e.PIM_MIB, community="public-red"), "red still served")

        check_eq(proc.stop(), 0, "pimsnmpd exit code")
        notify.expect("STOPPING")
        check_eq(notify.idle(), None, "nothing after STOPPING")


if __name__ == "__main__":
    e.run(main)
