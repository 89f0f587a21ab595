"""Helpers shared by the benchmark drivers: a loopback port, a process's CPU time, and the
rewrite of one section of BENCHMARKS.md."""

import os
import re
import sys

# The loopback port pick is the end-to-end tests' own.
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "e2e"))
from e2elib import free_port  # noqa: E402,F401


def cpu_seconds(pid):
    """CPU time of process `pid` (all its threads, user and system), in seconds.

    The scheduler's run time (/proc/PID/task/*/schedstat), exact to the nanosecond. utime and
    stime are sampled at the clock tick instead: a process that is busy for short bursts (an
    agent between requests, a daemon between feed lines) is charged whole 10 ms ticks at
    random, which put up to +-20% of noise into a sample of a quarter second. Falls back to
    utime + stime where the kernel has no schedstat."""
    total, found = 0, False
    try:
        for tid in os.listdir(f"/proc/{pid}/task"):
            try:
                with open(f"/proc/{pid}/task/{tid}/schedstat") as f:
                    total += int(f.read().split()[0])
                    found = True
            except FileNotFoundError:
                pass  # a thread that just ended
    except FileNotFoundError:
        pass
    if found:
        return total / 1e9
    return tick_cpu_seconds(pid)[0]


def tick_cpu_seconds(pid):
    """(utime + stime, stime) of process `pid`, in seconds, as the clock tick sampled them: the
    only times split by mode, for the kernel's share of a long run."""
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    # utime and stime are fields 14 and 15 of the line; 12 and 13 after the command name.
    tick = os.sysconf("SC_CLK_TCK")
    return (int(fields[11]) + int(fields[12])) / tick, int(fields[12]) / tick


def write_section(path, title, text):
    """Replaces the '## title' section of `path` (up to the next '## ' heading), or appends
    it; other sections are left as they are."""
    try:
        with open(path) as f:
            content = f.read()
    except FileNotFoundError:
        content = "# Benchmarks\n"
    pattern = re.compile(rf"^## {re.escape(title)}\n.*?(?=^## |\Z)", re.S | re.M)
    if pattern.search(content):
        content = pattern.sub(lambda _: text.rstrip("\n") + "\n\n", content, count=1)
    else:
        content = content.rstrip("\n") + "\n\n" + text
    with open(path, "w") as f:
        f.write(content.rstrip("\n") + "\n")
