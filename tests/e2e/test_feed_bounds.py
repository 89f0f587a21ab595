#!/usr/bin/env python3
"""--max-line reaches the feed: a line of exactly that many bytes is taken, one byte more is
refused with the limit in the reason and counted in the status. (How refusals of huge members and clients that never read
are bounded is checked where they are made: StateKeeperTest and FeedServerUnreadTest.)"""

import json

import e2elib as e
from e2elib import check, check_eq


def main():
    with e.Env("feedbounds") as env:
        line = json.dumps(e.two_vrf_document(), separators=(",", ":"))
        proc, _, feed = env.pimsnmpd(args=["--max-line", str(len(line))])
        c = e.FeedClient(feed)
        check_eq(c.request(line).get("ok"), True, f"a document of exactly --max-line {len(line)}")
        reply = c.request(line + " ")
        check_eq(reply.get("ok"), False, "one byte more")
        check(f"longer than {len(line)} bytes" in reply["errors"][0]["reason"], f"reason: {reply}")
        check_eq(env.status(feed)["feed"]["oversizeLines"], 1, "over-long lines in the status")
        c.close()
        check_eq(proc.stop(), 0, "pimsnmpd exit code")


if __name__ == "__main__":
    e.run(main)
