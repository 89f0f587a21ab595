"""What both end-to-end harnesses share: the MIB roots and notification OIDs, the failure
type and checks, bounded waits, net-snmp's private environment, client authentication
arguments and loopback port selection."""

import os
import socket
import time

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


def auth_args(community=None, context=None, user=None):
    """net-snmp tool arguments: SNMPv3 noAuthNoPriv as `user` (in `context`), else v2c."""
    if user is not None:
        return ["-v3", "-u", user, "-l", "noAuthNoPriv"] + (["-n", context] if context else [])
    return ["-v2c", "-c", community or "public"]


def private_snmp_env(directory):
    """The environment for every net-snmp program of a test: its files under `directory`, no
    system or home configuration, no MIBs."""
    env = dict(os.environ, MIBS="", HOME=directory)
    for var, sub in (("SNMP_PERSISTENT_DIR", "snmp-persist"), ("SNMPCONFPATH", "snmp-conf"),
                     ("MIBDIRS", "no-mibs")):
        env[var] = os.path.join(directory, sub)
        os.makedirs(env[var], exist_ok=True)
    return env
