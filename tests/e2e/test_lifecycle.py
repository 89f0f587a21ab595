#!/usr/bin/env python3
"""The daemon's command line and lifecycle: --help and usage errors; the CLI (pimsnmpctl and
`pimsnmpd ctl`) for status, dump, patches, JSON-lines feeds, trace levels and community
lines; a second instance cannot take a live feed socket; SIGINT and SIGTERM withdraw every
context and exit 0, removing the socket, the pid file and the private persistent directory."""

import json
import os
import signal
import subprocess
import time

import e2elib as e
from e2elib import check, check_eq


def run(env, argv, timeout=30):
    return subprocess.run(argv, env=env.env, capture_output=True, text=True, timeout=timeout)


def main():
    with e.Env("lifecycle") as env:
        r = run(env, [e.PIMSNMPD, "--help"])
        check_eq(r.returncode, 0, "--help exit status")
        for word in ("--state", "--feed", "--agentx", "--community-prefix", "--simulate"):
            check(word in r.stdout, f"--help mentions {word}")
        r = run(env, [e.PIMSNMPD, "--state"])
        check_eq(r.returncode, 2, "usage error exit status")
        check("--state needs a value" in r.stderr, f"usage error message: {r.stderr}")
        r = run(env, [e.PIMSNMPD, "--state", env.path("missing.json"), "--persistent-dir",
                      env.path("p0")])
        check_eq(r.returncode, 1, "missing state file exit status")
        check("does not exist" in r.stderr, f"missing state file message: {r.stderr}")
        r = run(env, [e.PIMSNMPCTL, "--help"])
        check(r.returncode == 0 and "status" in r.stdout, "pimsnmpctl --help")
        r = run(env, [e.PIMSNMPCTL, "-s", env.path("nobody.sock"), "ping"])
        check_eq(r.returncode, 3, "pimsnmpctl exit status without a daemon")

        # Started without --persistent-dir: a private temporary one under $TMPDIR.
        tmp = env.path("tmp")
        os.makedirs(tmp)
        env.env["TMPDIR"] = tmp
        pid_file = env.path("pimsnmpd.pid")
        feed = env.path("feed.sock")
        port = e.free_port()
        proc = env.start("pimsnmpd", [
            e.PIMSNMPD, "--state", env.write("state.json", e.two_vrf_document()),
            "--feed", f"unix:{feed}", "--listen", f"udp:127.0.0.1:{port}",
            "--config", env.write("snmp.conf", "\n".join(e.access_lines()) + "\n"),
            "--pid-file", pid_file, "--trace", "SnmpAgent/2"])
        env.wait_feed(proc, feed)
        check_eq(open(pid_file).read().strip(), str(proc.pid), "pid file")
        check_eq(len(os.listdir(tmp)), 1, "one private persistent directory")
        e.wait_tables(env, feed, "red", {"ipMcastRouteTable": 1})

        # The CLI, both spellings.
        r = env.ctl(feed, "status")
        for text in ("agent: master on udp:127.0.0.1:", "PimMIB          \"\" red",
                     "ipMcastMIB: ipMcastInterfaceTable 2, ipMcastRouteNextHopTable 1, "
                     "ipMcastRouteTable 1", "trace: SnmpAgent/2"):
            check(text in r.stdout, f"status shows {text!r}:\n{r.stdout}")
        r = run(env, [e.PIMSNMPD, "ctl", "-s", feed, "--json", "status"])
        check_eq(r.returncode, 0, "pimsnmpd ctl status")
        check_eq(json.loads(r.stdout)["status"]["modules"]["ipMcastMIB"], ["", "red"],
                 "contexts of ipMcastMIB")
        dumped = json.loads(env.ctl(feed, "dump").stdout)
        check_eq(e.without_times(dumped), e.two_vrf_document(), "dump")

        env.ctl(feed, "trace", "PimSnmpAgent/8")
        check_eq(env.status(feed)["trace"], "PimSnmpAgent/8", "trace after ctl trace")
        env.ctl(feed, "patch", json.dumps({"vrfs": {"red": {"ipv4": {"mfibConfig": None}}}}))
        e.wait_for(lambda: "PimSnmpAgent/8" in proc.output(), 5, "agent trace lines in the log")
        env.ctl(feed, "trace", "off")
        check_eq(env.status(feed)["trace"], "", "trace after ctl trace off")
        r = env.ctl(feed, "trace", "Pim/x", check_rc=1)
        check("malformed" in r.stderr, f"malformed trace setting: {r.stderr}")

        lines = env.write("patches.jsonl", "\n".join([
            json.dumps({"vrfs": {"red": {"ipv4": {"mfibConfig": {"routing": True}}}}}),
            json.dumps({"vrfs": {"red": {"ipv4": {"bogus": True}}}}),
        ]) + "\n")
        r = env.ctl(feed, "feed", lines, check_rc=1)
        check("1 applied, 1 refused" in r.stdout, f"feed summary: {r.stdout}")
        check("line 2 refused" in r.stderr and "/vrfs/red/ipv4/bogus" in r.stderr,
              f"feed refusal: {r.stderr}")
        e.wait_tables(env, feed, "red", {"ipMcastRouteTable": 1})
        r = env.ctl(feed, "communities", "ro", "10.0.0.0/8")
        check_eq(r.stdout.splitlines()[-2:], ["com2sec pimsnmpVrf 10.0.0.0/8 ro",
                                              "com2sec -Cn red pimsnmpVrf 10.0.0.0/8 ro-red"],
                 "communities")
        check("access pimsnmpVrf \"\" any noauth prefix" in r.stdout, f"shared lines: {r.stdout}")

        # A second daemon cannot take the live socket.
        r = run(env, [e.PIMSNMPD, "--feed", f"unix:{feed}", "--listen",
                      f"udp:127.0.0.1:{e.free_port()}", "--persistent-dir", env.path("p2")])
        check_eq(r.returncode, 1, "second daemon on the same socket")
        check("in use" in r.stderr, f"second daemon's message: {r.stderr}")
        check(e.reachable(env, port, e.IPMCAST_MIB, community="public-red"), "first still serves")

        # SIGINT: every context withdrawn, everything removed, exit 0.
        started = time.monotonic()
        check_eq(proc.stop(signal.SIGINT), 0, "exit status after SIGINT")
        check(time.monotonic() - started < 5, "stopped promptly")
        out = proc.output()
        check("withdrawing 2 context(s)" in out and "stopped" in out, f"stop messages:\n{out}")
        check(not os.path.exists(feed), "feed socket removed")
        check(not os.path.exists(pid_file), "pid file removed")
        check_eq(os.listdir(tmp), [], "private persistent directory removed")

        # SIGTERM, as a subagent whose master is not there.
        proc2, _, feed2 = env.pimsnmpd(e.two_vrf_document(), master=False, name="sub",
                                       args=["--agentx", env.path("no-master.sock")])
        check_eq(env.status(feed2)["agent"]["connected"], False, "no master")
        check_eq(proc2.stop(signal.SIGTERM), 0, "subagent exit status after SIGTERM")


if __name__ == "__main__":
    e.run(main)
