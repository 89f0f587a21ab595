#!/usr/bin/env python3
"""Bounded multicast traffic for the FRR lab.

  mcast.py send SRCS GROUP0 NGROUPS PORT PPS SECONDS   round-robin over every (S,G); SRCS is
                                                      comma-separated; stops after SECONDS
  mcast.py recv IFADDR GROUP0 NGROUPS PORT SECONDS     joins NGROUPS consecutive groups; leaves
                                                      (exits) after SECONDS

Packets are 100 bytes with TTL 16; both sides stop on their own, so a lab that loses track of
them still goes quiet.
"""
import ipaddress
import socket
import struct
import sys
import time


def groups(g0, n):
    return [str(ipaddress.IPv4Address(int(ipaddress.IPv4Address(g0)) + i)) for i in range(n)]


def send(srcs, gs, port, pps, seconds):
    socks = []
    for src in srcs:
        s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        s.bind((src, 0))
        s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 16)
        s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton(src))
        socks.append(s)
    flows = [(s, g) for g in gs for s in socks]
    n = 0
    start = t = time.monotonic()
    while time.monotonic() - start < seconds:
        s, g = flows[n % len(flows)]
        try:
            s.sendto(b"x" * 100, (g, port))
        except OSError:
            pass
        n += 1
        t += 1 / pps
        d = t - time.monotonic()
        if d > 0:
            time.sleep(d)
    print("sent", n, flush=True)


def recv(addr, gs, port, seconds):
    s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    s.bind(("", port))
    for g in gs:
        s.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                     struct.pack("4s4s", socket.inet_aton(g), socket.inet_aton(addr)))
    s.settimeout(1)
    n = 0
    start = time.monotonic()
    while time.monotonic() - start < seconds:
        try:
            s.recv(2048)
        except socket.timeout:
            continue
        n += 1
        if n % 100 == 0:
            print("recv", n, flush=True)


if __name__ == "__main__":
    if sys.argv[1] == "send":
        send(sys.argv[2].split(","), groups(sys.argv[3], int(sys.argv[4])), int(sys.argv[5]),
             float(sys.argv[6]), float(sys.argv[7]))
    else:
        recv(sys.argv[2], groups(sys.argv[3], int(sys.argv[4])), int(sys.argv[5]),
             float(sys.argv[6]))
