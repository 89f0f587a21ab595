#!/usr/bin/env python3
# Minimal PIMv2 speaker for the lab: sends Hellos (holdtime 105, DR priority 0) and Bootstrap
# messages (RFC 5059) as BSR 10.99.100.1 with an RP set, out of one interface, to 224.0.0.13.
# FRR 8.4.4 pimd cannot originate BSMs (no candidate-BSR/-RP config), it only learns/forwards them.
# usage: fakebsr.py IFADDR BSRADDR  "GRP/LEN=RP:PRIO:HOLD,RP:PRIO:HOLD;GRP/LEN=..."  [period_s [seconds]]
# It stops after `seconds` (default 600).
import socket, struct, sys, time, random, ipaddress
ifaddr, bsr, spec = sys.argv[1], sys.argv[2], sys.argv[3]
period = float(sys.argv[4]) if len(sys.argv) > 4 else 60
lifetime = float(sys.argv[5]) if len(sys.argv) > 5 else 600
def csum(b):
    if len(b) % 2: b += b"\0"
    s = sum(struct.unpack("!%dH" % (len(b) // 2), b)); s = (s >> 16) + (s & 0xffff); s += s >> 16
    return (~s) & 0xffff
def pim(t, body):
    h = struct.pack("!BBH", 0x20 | t, 0, 0) + body
    return h[:2] + struct.pack("!H", csum(h)) + h[4:]
def eu(a): return struct.pack("!BB4s", 1, 0, socket.inet_aton(a))
def eg(p):
    n = ipaddress.IPv4Network(p); return struct.pack("!BBBB4s", 1, 0, 0, n.prefixlen, n.network_address.packed)
genid = random.getrandbits(32)
hello = pim(0, struct.pack("!HHH", 1, 2, 105) + struct.pack("!HHI", 19, 4, 0) + struct.pack("!HHI", 20, 4, genid))
def bsm():
    body = struct.pack("!HBB", random.getrandbits(16), 30, 100) + eu(bsr)
    for item in spec.split(";"):
        g, rps = item.split("="); rps = [r.split(":") for r in rps.split(",")]
        body += eg(g) + struct.pack("!BBH", len(rps), len(rps), 0)
        for a, prio, hold in rps: body += eu(a) + struct.pack("!HBB", int(hold), int(prio), 0)
    return pim(4, body)
s = socket.socket(socket.AF_INET, socket.SOCK_RAW, 103)
s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton(ifaddr))
s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 1)
s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_LOOP, 0)
nh = nb = 0
start = time.time()
while time.time() - start < lifetime:
    now = time.time()
    if now >= nh: s.sendto(hello, ("224.0.0.13", 0)); nh = now + 30
    if now >= nb and now > 2: s.sendto(bsm(), ("224.0.0.13", 0)); nb = now + period; print("bsm sent", now, flush=True)
    time.sleep(0.5)
