#!/usr/bin/python3
"""Reads back the library's Zipkin encodings with readers the library did not write.

1. Generates Python code for Zipkin's core IDL with thrift-compiler, decodes spans.thrift with
   Apache Thrift's binary protocol, and checks every field against expected.json.
2. Rebuilds the decoded spans as py_zipkin spans, the way Zipkin converts v1 to v2, encodes them
   with py_zipkin's own v2 JSON encoder, and compares the result field by field with
   spans-v2.json. py_zipkin carries times as float seconds and truncates when it writes
   microseconds, so times may differ by one microsecond; everything else must be equal.

Usage: check_zipkin_interop.py WRITER_PROGRAM ZIPKIN_CORE_THRIFT
Prints "N passed, M failed" and exits non-zero on any failure.
"""
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


def decode_spans(folder, idl):
    subprocess.run(["thrift", "--gen", "py", "-out", folder, idl], check=True)
    sys.path.insert(0, folder)
    ttypes = importlib.import_module("zipkinCore.ttypes")
    with open(os.path.join(folder, "spans.thrift"), "rb") as encoded:
        protocol = TBinaryProtocol.TBinaryProtocol(TTransport.TMemoryBuffer(encoded.read()))
    _, size = protocol.readListBegin()
    spans = []
    for _ in range(size):
        span = ttypes.Span()
        span.read(protocol)
        spans.append(span)
    protocol.readListEnd()
    return spans


def check_thrift_fields(spans, expected):
    check(len(spans) == len(expected), "span count")
    for span, fields in zip(spans, expected):
        for name in ("trace_id", "id", "name", "timestamp", "duration", "parent_id"):
            check(getattr(span, name) == fields[name], f"{fields['name']}.{name}")
        decoded = [(a.timestamp, a.value, a.host.service_name) for a in span.annotations]
        wanted = [(a["timestamp"], a["value"], a["host"]) for a in fields["annotations"]]
        check(decoded == wanted, f"{fields['name']}.annotations")
        decoded = [(b.key, b.value.hex(), b.annotation_type, b.host) for b in span.binary_annotations]
        wanted = [(b["key"], b["value"], b["annotation_type"], None) for b in fields["binary_annotations"]]
        check(decoded == wanted, f"{fields['name']}.binary_annotations")


def tag_text(annotation):
    value, kind = annotation.value, TYPE_NAMES[annotation.annotation_type]
    if kind == "BOOL":
        return "true" if value[0] else "false"
    if kind in ("I16", "I32", "I64"):
        return str(int.from_bytes(value, "big", signed=True))
    return value.decode("utf-8", errors="replace")


def as_py_zipkin(span):
    hex_id = lambda value: format(value & (2**64 - 1), "016x")
    values = {a.value for a in span.annotations}
    local = next((b for b in span.binary_annotations if b.key == "lc"), None)
    return SpanBuilder(
        trace_id=hex_id(span.trace_id),
        name=span.name,
        parent_id=hex_id(span.parent_id) if span.parent_id else None,
        span_id=hex_id(span.id),
        timestamp=span.timestamp / 1e6,
        duration=span.duration / 1e6,
        annotations={a.value: a.timestamp / 1e6 for a in span.annotations if a.value not in ("cs", "cr")},
        tags={b.key: tag_text(b) for b in span.binary_annotations if b.key != "lc"},
        kind=Kind.CLIENT if {"cs", "cr"} <= values else Kind.LOCAL,
        local_endpoint=Endpoint(tag_text(local), None, None, None) if local else None,
    )


def check_v2_json(spans, ours):
    encoder = _V2JSONEncoder()
    theirs = [json.loads(encoder.encode_span(as_py_zipkin(span))) for span in spans]
    check(len(theirs) == len(ours), "v2 span count")
    for mine, reference in zip(ours, theirs):
        name = reference.get("name")
        check(set(mine) == set(reference), f"{name}: v2 keys {sorted(mine)} vs {sorted(reference)}")
        for key in set(mine) & set(reference):
            if key in ("timestamp", "duration"):
                check(abs(mine[key] - reference[key]) <= 1, f"{name}.{key}")
            elif key == "annotations":
                pairs = lambda items: sorted((a["value"], a["timestamp"]) for a in items)
                check(len(mine[key]) == len(reference[key]), f"{name}.annotations count")
                check(all(m[0] == r[0] and abs(m[1] - r[1]) <= 1
                          for m, r in zip(pairs(mine[key]), pairs(reference[key]))),
                      f"{name}.annotations")
            else:
                check(mine[key] == reference[key], f"{name}.{key}: {mine[key]} vs {reference[key]}")


def main():
    # The writer may be preceded by an emulator and its arguments (a cross build's tests).
    *writer, idl = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([*writer, folder], check=True)
        spans = decode_spans(folder, idl)
        with open(os.path.join(folder, "expected.json")) as expected:
            check_thrift_fields(spans, json.load(expected))
        with open(os.path.join(folder, "spans-v2.json")) as ours:
            check_v2_json(spans, json.load(ours))
    print(f"{checks['passed']} passed, {checks['failed']} failed")
    return 1 if checks["failed"] or not checks["passed"] else 0


if __name__ == "__main__":
    sys.exit(main())
