#!/usr/bin/python3
# Reads back our encodings with readers we did not write: Apache Thrift decodes the Thrift a reporter
# sends, and py_zipkin writes those spans, converted by Zipkin's v1-to-v2 rules (as_py_zipkin), as
# v2 JSON equal to ours (times within the microsecond it truncates); our OTLP says what our v2
# says.
# Usage: check_zipkin_interop.py WRITER_PROGRAM ZIPKIN_CORE_THRIFT   Prints "N passed, M failed".
import importlib
import json
import os
import subprocess
import sys
import tempfile

from py_zipkin.encoding._encoders import _V2JSONEncoder
from py_zipkin.encoding._helpers import Endpoint, SpanBuilder
from py_zipkin.encoding._types import Kind
from thrift.protocol import TBinaryProtocol
from thrift.transport import TTransport

TYPE_NAMES = {0: "BOOL", 1: "BYTES", 2: "I16", 3: "I32", 4: "I64", 5: "DOUBLE", 6: "STRING"}
checks = {"passed": 0, "failed": 0}


def check(condition, what):
    checks["passed" if condition else "failed"] += 1
    if not condition:
        print("FAILED:", what)


def load_ttypes(folder, idl):
    subprocess.run(["thrift", "--gen", "py", "-out", folder, idl], check=True)
    sys.path.insert(0, folder)
    return importlib.import_module("zipkinCore.ttypes")


def decode_spans(path, ttypes):
    with open(path, "rb") as encoded:
        protocol = TBinaryProtocol.TBinaryProtocol(TTransport.TMemoryBuffer(encoded.read()))
    spans = [ttypes.Span() for _ in range(protocol.readListBegin()[1])]
    for span in spans:
        span.read(protocol)
    return spans


def tag_text(annotation):
    value, kind = annotation.value, TYPE_NAMES[annotation.annotation_type]
    if kind == "BOOL":
        return "true" if value[0] else "false"
    signed = kind in ("I16", "I32", "I64")
    return str(int.from_bytes(value, "big", signed=True)) if signed else value.decode(errors="replace")


def endpoint(host):
    return Endpoint(host.service_name.lower() or None, None, None, None) if host else None


def as_py_zipkin(span):
    """The v2 span Zipkin makes of a v1 span: core annotations make a client and name the local
    endpoint, "sa" the remote one, "lc" the local one otherwise; other binary annotations are tags."""
    hex_id = lambda value: format(value & (2**64 - 1), "016x")
    core = {a.value: a for a in span.annotations if a.value in ("cs", "cr")}
    local = core["cs"].host if "cs" in core else None
    remote = None
    tags = {}
    for b in span.binary_annotations:
        if b.key == "sa":
            remote = b.host
            continue
        if b.key == "lc":
            local = local or b.host
            if not b.value:
                continue
        tags[b.key] = tag_text(b)
    return SpanBuilder(
        trace_id=hex_id(span.trace_id),
        name=span.name,
        parent_id=hex_id(span.parent_id) if span.parent_id else None,
        span_id=hex_id(span.id),
        timestamp=span.timestamp / 1e6,
        duration=span.duration / 1e6,
        annotations={a.value: a.timestamp / 1e6 for a in span.annotations if a.value not in core},
        tags=tags,
        kind=Kind.CLIENT if core else Kind.LOCAL,  # Zipkin reads either marker as a client
        local_endpoint=endpoint(local),
        sa_endpoint=endpoint(remote),
    )


def check_v2_json(spans, ours):
    encoder = _V2JSONEncoder()
    theirs = [json.loads(encoder.encode_span(as_py_zipkin(span))) for span in spans]
    check(len(theirs) == len(ours), "v2 span count")
    check(any(span.get("kind") == "CLIENT" for span in ours), "a network span is a client span")
    for mine, reference in zip(ours, theirs):
        name = reference.get("name")
        check(set(mine) == set(reference), f"{name}: v2 keys {sorted(mine)} vs {sorted(reference)}")
        for key in set(mine) & set(reference):
            if key in ("timestamp", "duration"):
                check(abs(mine[key] - reference[key]) <= 1, f"{name}.{key}")
            elif key == "annotations":
                pairs = lambda items: sorted((a["value"], a["timestamp"]) for a in items)
                check(len(mine[key]) == len(reference[key]) and all(
                    m[0] == r[0] and abs(m[1] - r[1]) <= 1
                    for m, r in zip(pairs(mine[key]), pairs(reference[key]))), f"{name}.annotations")
            else:
                check(mine[key] == reference[key], f"{name}.{key}: {mine[key]} vs {reference[key]}")


def otlp_value_text(value):
    (kind, content), = value.items()
    return ("true" if content else "false") if kind == "boolValue" else str(content)


def check_otlp_agrees(otlp, ours):
    resource = otlp["resourceSpans"][0]["resource"]["attributes"]
    service = next(a["value"]["stringValue"] for a in resource if a["key"] == "service.name")
    spans = otlp["resourceSpans"][0]["scopeSpans"][0]["spans"]
    check(len(spans) == len(ours), "OTLP span count")
    for mine, v2 in zip(spans, ours):
        name = v2["name"]
        check(mine["traceId"] == "0" * 16 + v2["traceId"] and mine["spanId"] == v2["id"]
              and mine.get("parentSpanId") == v2.get("parentId"), f"{name}: OTLP ids")
        check(service == v2["localEndpoint"]["serviceName"], f"{name}: OTLP service")
        check((mine.get("kind") == 3) == (v2.get("kind") == "CLIENT"), f"{name}: OTLP kind")
        start, end = (int(mine.get(field, 0)) for field in ("startTimeUnixNano", "endTimeUnixNano"))
        check((start, end - start) == (v2.get("timestamp", 0) * 1000, v2.get("duration", 0) * 1000),
              f"{name}: OTLP times")
        attributes = {a["key"]: otlp_value_text(a["value"]) for a in mine.get("attributes", [])}
        remote = v2.get("remoteEndpoint", {}).get("serviceName")
        check(attributes.pop("server.address", None) == remote, f"{name}: OTLP server.address")
        check(attributes == v2.get("tags", {}), f"{name}: OTLP attributes {attributes}")
        events = [(int(e["timeUnixNano"]), e["name"]) for e in mine.get("events", [])]
        check(events == [(a["timestamp"] * 1000, a["value"]) for a in v2.get("annotations", [])],
              f"{name}: OTLP events")


def main():
    # The writer may be preceded by an emulator and its arguments (a cross build's tests).
    *writer, idl = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([*writer, folder], check=True)
        ttypes = load_ttypes(folder, idl)
        read = lambda name: json.load(open(os.path.join(folder, name)))
        safe = decode_spans(os.path.join(folder, "spans-safe.thrift"), ttypes)
        ours = read("spans-v2.json")
        check_v2_json(safe, ours)
        check_otlp_agrees(read("spans-otlp.json"), ours)
    print(f"{checks['passed']} passed, {checks['failed']} failed")
    return 1 if checks["failed"] or not checks["passed"] else 0


if __name__ == "__main__":
    sys.exit(main())
