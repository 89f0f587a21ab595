#!/usr/bin/env python3
"""Records what the kernel tells a multicast router, as test data for the feeder's kernel
reader. Run it inside a router's network namespace:

  record_kernel.py OUTDIR NAME

writes OUTDIR/NAME.mfc (the datagrams of one RTM_GETROUTE dump of family RTNL_FAMILY_IPMR, each
as a little-endian u32 length and the bytes), NAME.cache-before / NAME.cache-after
(/proc/net/ip_mr_cache read just before and just after the dump: the counters of the dump lie
between them), NAME.vif (/proc/net/ip_mr_vif) and NAME.ifindex ("name ifindex" per interface).
"""
import os
import socket
import struct
import sys

RTM_GETROUTE, NLM_F_REQUEST, NLM_F_DUMP, NLMSG_DONE, NLMSG_ERROR = 26, 1, 0x300, 3, 2
FAMILY_IPMR = 128


def dump_datagrams():
    s = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
    s.bind((0, 0))
    seq = 4242
    s.send(struct.pack("=IHHII", 28, RTM_GETROUTE, NLM_F_REQUEST | NLM_F_DUMP, seq, 0)
           + struct.pack("=BBBBBBBBI", FAMILY_IPMR, 0, 0, 0, 0, 0, 0, 0, 0))
    datagrams = []
    while True:
        d = s.recv(1 << 16)
        datagrams.append(d)
        off = 0
        while off + 16 <= len(d):
            ln, typ = struct.unpack_from("=IH", d, off)
            if typ in (NLMSG_DONE, NLMSG_ERROR):
                return datagrams
            off += (ln + 3) & ~3


def read(path):
    with open(path) as f:
        return f.read()


def main():
    out, name = sys.argv[1], sys.argv[2]
    before = read("/proc/net/ip_mr_cache")
    datagrams = dump_datagrams()
    after = read("/proc/net/ip_mr_cache")
    base = os.path.join(out, name)
    with open(base + ".mfc", "wb") as f:
        for d in datagrams:
            f.write(struct.pack("<I", len(d)) + d)
    with open(base + ".cache-before", "w") as f:
        f.write(before)
    with open(base + ".cache-after", "w") as f:
        f.write(after)
    with open(base + ".vif", "w") as f:
        f.write(read("/proc/net/ip_mr_vif"))
    with open(base + ".ifindex", "w") as f:
        for n in sorted(os.listdir("/sys/class/net")):
            f.write(f"{n} {read(f'/sys/class/net/{n}/ifindex').strip()}\n")
    print(f"{name}: {len(datagrams)} datagrams, {sum(map(len, datagrams))} bytes")


if __name__ == "__main__":
    main()
