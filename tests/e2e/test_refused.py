#!/usr/bin/env python3
"""Every refused update is answered with the JSON path and the reason, logged, and leaves the
document and the served rows exactly as they were; the daemon answers afterwards and the next
valid update applies. --max-line reaches the feed: a line of exactly that many bytes is taken,
one byte more is refused with the limit in the reason and counted in the status. (How refusals
of huge members and clients that never read are bounded is checked where they are made:
StateKeeperTest and FeedServerUnreadTest.)"""

import json

import e2elib as e
from e2elib import check, check_eq

ROUTE = "10.0.1.10,239.1.1.1"

# (line, path of the first error, a word of the reason): one of each way to fail; every class
# of validation error is ValidateTest.EachClassOfErrorNamesItsPathAndReason's.
REFUSED = [
    ('{"vrfs": {"red": ', "", "invalid JSON"),
    ('[{"vrfs": {}}]', "", "object"),
    (json.dumps({"vrfs": {"default": {"ipv4": {"routes": {
        "10.0.1.11,239.1.1.1": {"upstream": {"interface": "Nope"}}}}}}}),
     "/vrfs/default/ipv4/routes/10.0.1.11,239.1.1.1/upstream/interface", "unknown interface"),
    # A valid change next to an invalid one: neither is applied.
    (json.dumps({"vrfs": {"default": {"ipv4": {
        "fib": {"routes": {ROUTE: {"packets": 999}}},
        "pimConfig": {"joinPruneInterval": "sixty"}}}}}),
     "/vrfs/default/ipv4/pimConfig/joinPruneInterval", "integer"),
    # An interface still in use cannot go.
    ('{"interfaces": {"Ethernet2": null}}', None, "unknown interface 'Ethernet2'"),
]


def stable(vbs):
    """Walk output without the time columns, which move on their own."""
    return {o: v for o, v in vbs.items() if v[0] != "Timeticks"}


def snapshot(env, port):
    return {(root, ctx): stable(e.walk(env, port, root, community=ctx))
            for root in (e.PIM_MIB, e.IPMROUTE_MIB, e.IPMCAST_MIB)
            for ctx in ("public", "public-red")}


def main():
    with e.Env("refused") as env:
        line = json.dumps(e.two_vrf_document(), separators=(",", ":"))
        proc, port, feed = env.pimsnmpd(e.two_vrf_document(), config_lines=e.access_lines(),
                                        args=["--max-line", str(len(line))])
        e.wait_tables(env, feed, "", {"ipMcastRouteTable": 1})
        e.wait_tables(env, feed, "red", {"ipMcastRouteTable": 1})
        c = e.FeedClient(feed)
        # The document it holds, sent again: a line of exactly --max-line bytes, no change.
        check_eq(c.request(line).get("ok"), True, f"a line of exactly --max-line {len(line)}")
        doc_before = env.document(feed)
        rows_before = snapshot(env, port)
        check(rows_before[(e.IPMCAST_MIB, "public")], "rows to compare")

        for bad, path, word in REFUSED:
            reply = c.request(bad)
            check_eq(reply.get("ok"), False, f"reply to {bad}")
            errors = reply.get("errors") or []
            check(errors, f"errors in the reply to {bad}: {reply}")
            if path is not None:
                check_eq(errors[0]["path"], path, f"error path for {bad}")
            text = " ".join(err["reason"] for err in errors)
            check(word.lower() in text.lower(), f"'{word}' in the reason for {bad}: {text}")
            check_eq(c.request("ping"), {"ok": True, "pong": True}, "daemon answers after refusal")

        # One byte more is refused before it is read as JSON.
        reply = c.request(line + " ")
        check_eq(reply["ok"], False, "over-long line refused")
        check(f"longer than {len(line)} bytes" in reply["errors"][0]["reason"],
              f"over-long reason: {reply}")

        check_eq(env.document(feed), doc_before, "document after refused updates")
        check_eq(snapshot(env, port), rows_before, "served rows after refused updates")
        status = env.status(feed)
        check_eq(status["state"]["updatesRefused"], len(REFUSED), "refusals counted")
        check_eq(status["feed"]["oversizeLines"], 1, "over-long lines counted")
        source = status["state"]["refusals"][-1]["source"]
        check(source.startswith("feed client "), f"refusal source {source}")
        check_eq(proc.output().count(f"refused update from {source}:"), len(REFUSED),
                 "refusals logged")

        # pimsnmpctl reports a refusal with exit status 1 and the path on stderr.
        r = env.ctl(feed, "patch", '{"vrfs": {"red": {"ipv4": {"bogus": 1}}}}', check_rc=1)
        check("/vrfs/red/ipv4/bogus" in r.stderr, f"ctl names the path: {r.stderr}")

        # And the next valid update applies.
        c.patch({"vrfs": {"default": {"ipv4": {"fib": {"routes": {ROUTE: {"packets": 999}}}}}}})
        hc = e.get(env, port, [f"1.3.6.1.2.1.83.1.1.2.1.8.239.1.1.1.10.0.1.10.255.255.255.255"],
                   community="public")
        check_eq(list(hc.values())[0][1], 999, "ipMRoutePkts after the valid update")


if __name__ == "__main__":
    e.run(main)
