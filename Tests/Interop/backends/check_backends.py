#!/usr/bin/python3
# Sends the demo's traces, and the interop writer's hard cases (ids with the top bit set, a
# non-ASCII name and tag value, a span of no duration, a recovered trace, traces in several
# batches), to a running tracing server through the library's reporter, then reads them back
# through the server's query API and compares them with what the library wrote of the same spans:
#   zipkin  a Zipkin server, sent v2 JSON and v1 Thrift, compared with the v2 JSON
#   jaeger  Jaeger, sent OTLP JSON, compared with the OTLP JSON, resource and scope included
# Usage: check_backends.py zipkin|jaeger STATE_FILE DEMO WRITER   Prints "N passed, M failed".
import json
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

checks = {"passed": 0, "failed": 0}


def check(condition, what):
    checks["passed" if condition else "failed"] += 1
    if not condition:
        print("FAILED:", what)


def query(url, **parameters):
    with urllib.request.urlopen(f"{url}?{urllib.parse.urlencode(parameters)}") as response:
        return json.load(response)


def check_stored(mine, stored, as_given, sent_as):
    """Every span sent is back, the same but for what the server makes of any span (as_given)."""
    check(stored.keys() == mine.keys(), f"{sent_as}: span ids")
    for id in mine.keys() & stored.keys():
        expected, theirs = as_given(mine[id]), as_given(stored[id])
        differences = {key: (expected.get(key), theirs.get(key)) for key in expected | theirs
                       if expected.get(key) != theirs.get(key)}
        check(not differences, f"{sent_as}: {mine[id]['name']} stored as {differences}")
    return list(stored.values())


def as_zipkin_gives(span):
    """Zipkin keeps a span's annotations in time order."""
    ordered = sorted(span.get("annotations", []), key=lambda a: (a["timestamp"], a["value"]))
    return {**span, "annotations": ordered} if ordered else span


def check_zipkin_traces(server, ours, sent_as):
    stored = {span["id"]: span for trace_id in {span["traceId"] for span in ours}
              for span in query(f"{server}/api/v2/trace/{trace_id}")}
    return check_stored({span["id"]: span for span in ours}, stored, as_zipkin_gives, sent_as)


def check_indexes(server, ours, sent_as):
    service = ours[0]["localEndpoint"]["serviceName"]
    check(service in query(f"{server}/api/v2/services"), f"{sent_as}: services")
    names = set(query(f"{server}/api/v2/spans", serviceName=service))
    check({span["name"] for span in ours} <= names, f"{sent_as}: span names {sorted(names)}")
    remote = {span["remoteEndpoint"]["serviceName"] for span in ours if "remoteEndpoint" in span}
    check(remote <= set(query(f"{server}/api/v2/remoteServices", serviceName=service)),
          f"{sent_as}: remote services")
    # Zipkin links a service to a remote one through client spans with no child spans only.
    parents = {span.get("parentId") for span in ours}
    called = {span["remoteEndpoint"]["serviceName"] for span in ours
              if "remoteEndpoint" in span and span["id"] not in parents}
    links = query(f"{server}/api/v2/dependencies", endTs=int(time.time() * 1000),
                  lookback=86_400_000)
    linked = {link["child"] for link in links if link["parent"] == service}
    check(called <= linked, f"{sent_as}: dependency links {links}")


def spans_by_id(otlp):
    """Each span, with its attributes and its resource's as dictionaries, and its scope."""
    named = lambda holder: {a["key"]: a["value"] for a in holder.get("attributes", [])}
    return {span["spanId"]: {**span, "attributes": named(span), "scope": scoped["scope"],
                             "resource": named(resource["resource"])}
            for resource in otlp["resourceSpans"] for scoped in resource["scopeSpans"]
            for span in scoped["spans"]}


JAEGER_WARNINGS = ("clock skew adjustment disabled", "Negative duration detected")


def as_jaeger_gives(span):
    """Jaeger gives every span a status, empty where none was set, its events in any order, and a
    nanosecond to a span of no duration, with a note among its attributes (JAEGER_WARNINGS: the
    notes it adds to a span it found odd, and changed at most by a nanosecond)."""
    attributes = dict(span["attributes"])
    notes = attributes.pop("@jaeger@warnings", {"arrayValue": {"values": []}})["arrayValue"]
    check(all(note["stringValue"].startswith(JAEGER_WARNINGS) for note in notes["values"]), notes)
    events = sorted(span.get("events", []), key=lambda e: (e["name"], e["timeUnixNano"]))
    start, end = int(span["startTimeUnixNano"]), int(span["endTimeUnixNano"])
    return {**span, "attributes": attributes, "status": span.get("status", {}),
            "endTimeUnixNano": str(max(end, start + 1)), **({"events": events} if events else {})}


def check_jaeger_traces(query_url, ours, sent_as):
    mine = spans_by_id(ours)
    stored = {}
    for trace_id in {span["traceId"] for span in mine.values()}:
        stored.update(spans_by_id(query(f"{query_url}/api/v3/traces/{trace_id}")["result"]))
    return check_stored(mine, stored, as_jaeger_gives, sent_as)


def text(value):
    (kind, content), = value.items()
    return ("true" if content else "false") if kind == "boolValue" else str(content)


def v2_facts(span):
    return {"trace": span["traceId"], "parent": span.get("parentId"), "name": span["name"],
            "client": span.get("kind") == "CLIENT", "start": span["timestamp"],
            "duration": span.get("duration", 0), "service": span["localEndpoint"]["serviceName"],
            "remote": span.get("remoteEndpoint", {}).get("serviceName"),
            "tags": span.get("tags", {}),
            "events": sorted((a["timestamp"], a["value"]) for a in span.get("annotations", []))}


def otlp_facts(span):
    start, end = int(span["startTimeUnixNano"]), int(span["endTimeUnixNano"])
    tags = {key: text(value) for key, value in span["attributes"].items()
            if key != "@jaeger@warnings"}
    return {"trace": span["traceId"][-16:], "parent": span.get("parentSpanId"),
            "name": span["name"], "client": span.get("kind") == 3, "start": start / 1000,
            "duration": (end - start) // 1000, "service": text(span["resource"]["service.name"]),
            "remote": tags.pop("server.address", None), "tags": tags,
            "events": sorted((int(e["timeUnixNano"]) / 1000, e["name"])
                             for e in span.get("events", []))}


def check_one_measurement(v2_spans, otlp_spans, sent_as):
    """The v2 and the OTLP spans of one measurement, one set of them as the server gave it back,
    say the same: a fault of one encoder that the other does not share shows here."""
    otlp = {span["spanId"]: otlp_facts(span) for span in otlp_spans}
    check(len(otlp) == len(v2_spans), f"{sent_as}: as many spans in v2 as in OTLP")
    for span in v2_spans:
        facts = v2_facts(span)
        check(otlp.get(span["id"]) == facts, f"{sent_as}: {facts} in OTLP: {otlp.get(span['id'])}")


def sent(sender, url, form):
    """What the library wrote of the spans the sender sent: its v2 JSON and its OTLP."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(sender(folder, url, form), check=True, stdout=subprocess.DEVNULL)
        return [json.load(open(f"{folder}/spans-{name}.json")) for name in ("zipkin-v2", "otlp")]


def main():
    backend, state_file, demo, writer = sys.argv[1:]
    ports = open(state_file).read().split()
    server = f"http://127.0.0.1:{ports[0]}"
    senders = {"demo's spans": lambda folder, url, form: [demo, "--output", folder, "--send", url,
                                                          "--format", form],
               "writer's spans": lambda folder, url, form: [writer, folder, "--send", url, form]}
    for what, sender in senders.items():
        if backend == "zipkin":
            for form, path in (("zipkin-v2", "api/v2/spans"), ("zipkin-v1-thrift", "api/v1/spans")):
                ours, otlp = sent(sender, f"{server}/{path}", form)
                stored = check_zipkin_traces(server, ours, f"{what} as {form}")
                check_one_measurement(stored, list(spans_by_id(otlp).values()), f"{what} as {form}")
                check_indexes(server, ours, f"{what} as {form}")
        else:
            v2, ours = sent(sender, f"{server}/v1/traces", "otlp")
            stored = check_jaeger_traces(f"http://127.0.0.1:{ports[1]}", ours, f"{what} as OTLP")
            check_one_measurement(v2, stored, f"{what} as OTLP")
    print(f"{checks['passed']} passed, {checks['failed']} failed")
    return 1 if checks["failed"] or not checks["passed"] else 0


if __name__ == "__main__":
    sys.exit(main())
