#!/usr/bin/env python3
"""What a feed client sends cannot make the daemon's replies, status or log grow without bound:
a refusal quotes an excerpt of a huge member name; a client that never reads its replies is
disconnected, logged with its client id; --max-line takes a line of exactly that many bytes."""

import json
import re

import e2elib as e
from e2elib import check, check_eq

HUGE = 2 << 20
# An excerpt, its marker and the JSON around it.
SMALL = 2048


def refused_huge_key(env, proc, feed):
    c = e.FeedClient(feed)
    key = "k" * HUGE + ",239.1.1.1"
    reply = c.request({"vrfs": {"red": {"ipv4": {"routes": {key: {}}}}}})
    check_eq(reply.get("ok"), False, "a route key of 2 MiB is refused")
    check(len(json.dumps(reply)) < SMALL, f"reply of {len(json.dumps(reply))} bytes")
    error = reply["errors"][0]
    check(error["path"].startswith("/vrfs/red/ipv4/routes/kkk"), f"path {error['path']}")
    check("bytes left out" in error["path"], f"excerpt marker in {error['path']}")
    check_eq(c.request("ping"), {"ok": True, "pong": True}, "daemon answers after the refusal")
    c.close()

    refusals = env.status(feed)["state"]["refusals"]
    check_eq(refusals[-1]["errors"], reply["errors"], "status keeps what the reply said")
    check(len(json.dumps(refusals)) < SMALL, f"status refusals of {len(json.dumps(refusals))} bytes")
    logged = [l for l in proc.output().splitlines() if "refused update from feed client" in l]
    check_eq(len(logged), 1, "one refusal logged")
    check(len(logged[0]) < SMALL, f"log line of {len(logged[0])} bytes")


def unread_client_dropped(env, proc, feed):
    c = e.FeedClient(feed)
    # Each 5-byte line asks for the whole document; the client never reads.
    try:
        c.sock.sendall(b"dump\n" * 200000)
    except OSError:
        pass  # disconnected before it finished sending

    def dropped():
        return env.status(feed)["feed"]["unreadDisconnects"] == 1
    e.wait_for(dropped, 30, "the client that does not read to be disconnected")
    check(re.search(r"feed client \d+: \d+ bytes of replies unread.*disconnecting", proc.output()),
          "disconnect logged with the client id")
    c.close()
    # Others are served as before.
    check_eq(e.FeedClient(feed).request("ping"), {"ok": True, "pong": True}, "ping afterwards")


def max_line_is_inclusive(env):
    line = json.dumps(e.two_vrf_document(), separators=(",", ":"))
    proc, _, feed = env.pimsnmpd(args=["--max-line", str(len(line))], name="exact")
    c = e.FeedClient(feed)
    check_eq(c.request(line).get("ok"), True, f"a document of exactly --max-line {len(line)} bytes")
    reply = c.request(line + " ")
    check_eq(reply.get("ok"), False, "one byte more")
    check(f"longer than {len(line)} bytes" in reply["errors"][0]["reason"], f"reason: {reply}")
    c.close()
    check_eq(proc.stop(), 0, "pimsnmpd exit code")


def main():
    with e.Env("feedbounds") as env:
        proc, _, feed = env.pimsnmpd(e.two_vrf_document())
        refused_huge_key(env, proc, feed)
        unread_client_dropped(env, proc, feed)
        check_eq(proc.stop(), 0, "pimsnmpd exit code")
        max_line_is_inclusive(env)


if __name__ == "__main__":
    e.run(main)
