"""A minimal SNMPv2c client over UDP for the benchmarks: GET and GETBULK PDUs encoded and
decoded here (BER, RFC 3416), so that a request costs the client microseconds, not a process.
Only what the benchmarks need: OIDs as tuples of ints, values as (tag, bytes)."""

import itertools
import socket

SEQUENCE, GET, GETBULK, RESPONSE = 0x30, 0xA0, 0xA5, 0xA2
NO_SUCH_OBJECT, NO_SUCH_INSTANCE, END_OF_MIB_VIEW = 0x80, 0x81, 0x82


def _length(n):
    if n < 0x80:
        return bytes([n])
    body = n.to_bytes((n.bit_length() + 7) // 8, "big")
    return bytes([0x80 | len(body)]) + body


def _tlv(tag, body):
    return bytes([tag]) + _length(len(body)) + body


def _int(v):
    return _tlv(0x02, v.to_bytes(max(1, (v.bit_length() + 8) // 8), "big", signed=True))


def _oid(oid):
    out = bytearray([40 * oid[0] + oid[1]])
    for arc in oid[2:]:
        chunk = [arc & 0x7F]
        arc >>= 7
        while arc:
            chunk.append(0x80 | (arc & 0x7F))
            arc >>= 7
        out += bytes(reversed(chunk))
    return _tlv(0x06, bytes(out))


def _read(buf, pos):
    """(tag, start of the value, end of the value) of the TLV at `pos`."""
    tag = buf[pos]
    n = buf[pos + 1]
    pos += 2
    if n & 0x80:
        k = n & 0x7F
        n = int.from_bytes(buf[pos:pos + k], "big")
        pos += k
    return tag, pos, pos + n


def _decode_oid(body):
    first = body[0]
    arcs = [first // 40, first % 40] if first < 80 else [2, first - 80]
    v = 0
    for b in body[1:]:
        v = (v << 7) | (b & 0x7F)
        if not b & 0x80:
            arcs.append(v)
            v = 0
    return tuple(arcs)


def parse_oid(text):
    return tuple(int(x) for x in text.strip(".").split("."))


class Client:
    def __init__(self, port, community="public", timeout=10.0):
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.sock.connect(("127.0.0.1", port))
        self.sock.settimeout(timeout)
        self.community = community.encode()
        self.ids = itertools.count(1)

    def close(self):
        self.sock.close()

    def _request(self, pdu_tag, oids, a=0, b=0):
        rid = next(self.ids) & 0x7FFFFFFF
        vbs = b"".join(_tlv(SEQUENCE, _oid(o) + b"\x05\x00") for o in oids)
        pdu = _tlv(pdu_tag, _int(rid) + _int(a) + _int(b) + _tlv(SEQUENCE, vbs))
        self.sock.send(_tlv(SEQUENCE, _int(1) + _tlv(0x04, self.community) + pdu))
        while True:
            buf = self.sock.recv(65535)
            varbinds, got_rid, status = self._decode(buf)
            if got_rid == rid:
                break
        if status != 0:
            raise RuntimeError(f"error-status {status} for {oids[0]}...")
        return varbinds

    @staticmethod
    def _decode(buf):
        _, pos, _ = _read(buf, 0)  # message
        _, s, pos = _read(buf, pos)  # version
        _, s, pos = _read(buf, pos)  # community
        tag, pos, _ = _read(buf, pos)  # PDU
        if tag != RESPONSE:
            raise RuntimeError(f"PDU type {tag:#x}")
        _, s, e = _read(buf, pos)
        rid = int.from_bytes(buf[s:e], "big", signed=True)
        _, s, e = _read(buf, e)
        status = int.from_bytes(buf[s:e], "big")
        _, s, e = _read(buf, e)  # error index
        _, pos, end = _read(buf, e)  # varbind list
        out = []
        while pos < end:
            _, vs, ve = _read(buf, pos)
            _, os_, oe = _read(buf, vs)
            tag, xs, xe = _read(buf, oe)
            out.append((_decode_oid(buf[os_:oe]), tag, bytes(buf[xs:xe])))
            pos = ve
        return out, rid, status

    def get(self, oids):
        """One GET of all `oids`; the varbinds of the response, in order."""
        return self._request(GET, oids)

    def walk(self, root, repetitions=50, limit=None, start=None):
        """GETBULK walk of the subtree `root` from `start` (default: its beginning); stops at
        the subtree's end or after `limit` varbinds; yields (oid, tag, value)."""
        n = len(root)
        oid = start or root
        count = 0
        while True:
            vbs = self._request(GETBULK, [oid], 0, repetitions)
            for o, tag, value in vbs:
                if tag == END_OF_MIB_VIEW or o[:n] != root:
                    return
                yield o, tag, value
                count += 1
                if limit is not None and count >= limit:
                    return
            if not vbs:
                return
            oid = vbs[-1][0]
