#!/usr/bin/env python3
"""The size of a whole state document of N routes, as one feed line.

Builds the feed benchmark's VRF (bench/feed_bench.py) with N of its routes, each a sparse-mode
route with two OIFs plus its FIB route, as one compact JSON line, streamed so that a million
routes need no more memory than one. Prints the bytes and bytes per route; --out also writes
the line. The default --max-line of pimsnmpd is set from this figure at 1M routes.

    bench/feed_document_size.py 1000000
    bench/feed_document_size.py 20000 --out /tmp/doc.json
"""

import argparse
import json
import sys

from feed_bench import route_entry, route_key, vrf_patch

SEP = (",", ":")


def document_pieces(count):
    """The document's text as pieces: fixed text and the generated members of both route maps."""
    doc = vrf_patch()
    ipv4 = doc["vrfs"]["default"]["ipv4"]
    markers = {'"@0":0': 0, '"@1":0': 1}  # routes, fib.routes
    ipv4["routes"] = {"@0": 0}
    ipv4["fib"]["routes"] = {"@1": 0}
    text = json.dumps(doc, separators=SEP)
    first, second = sorted(markers, key=text.index)
    before, rest = text.split(first)
    between, after = rest.split(second)
    return [[before], members(count, markers[first]), [between], members(count, markers[second]),
            [after]]


def members(count, which):
    for n in range(count):
        sep = "," if n else ""
        yield f"{sep}{json.dumps(route_key(n))}:{json.dumps(route_entry(n)[which], separators=SEP)}"


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("routes", type=int)
    ap.add_argument("--out", help="also write the line (with its newline) to this file")
    args = ap.parse_args()
    out = open(args.out, "w") if args.out else None
    size = 0
    for piece in document_pieces(args.routes):
        for text in piece:
            size += len(text)
            if out:
                out.write(text)
    if out:
        out.write("\n")
        out.close()
    print(f"{args.routes} routes: {size} bytes ({size / 2**20:.1f} MiB), "
          f"{size / max(args.routes, 1):.1f} bytes per route")


if __name__ == "__main__":
    sys.exit(main())
