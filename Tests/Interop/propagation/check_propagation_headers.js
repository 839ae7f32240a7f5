// Reads the library's propagation headers back with readers the library did not write:
// OpenTelemetry JS's B3 and W3C trace context propagators. Each case of headers.json must be
// extracted, by each header form alone (the single b3 header, the X-B3 headers, traceparent), into
// the ids and sampling decision it was made from.
//
// Usage: node check_propagation_headers.js WRITER_PROGRAM...   Prints "N passed, M failed".
'use strict';
const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const api = require('@opentelemetry/api');
const { W3CTraceContextPropagator } = require('@opentelemetry/core');
const { B3Propagator } = require('@opentelemetry/propagator-b3');
// Where the propagator keeps the debug flag it read; the package does not export the key.
const { B3_DEBUG_FLAG_KEY } = require('@opentelemetry/propagator-b3/build/src/common');

const counts = { passed: 0, failed: 0 };

function check(what, test) {
  try {
    test();
    counts.passed += 1;
  } catch (error) {
    counts.failed += 1;
    console.log(`FAILED: ${what}: ${error.message}`);
  }
}

function extract(propagator, headers) {
  const carrier = Object.fromEntries(
    Object.entries(headers).map(([name, value]) => [name.toLowerCase(), value]));
  const context = propagator.extract(api.ROOT_CONTEXT, carrier, api.defaultTextMapGetter);
  return { span: api.trace.getSpanContext(context), debug: context.getValue(B3_DEBUG_FLAG_KEY) };
}

const only = (headers, names) =>
  Object.fromEntries(Object.entries(headers).filter(([name]) => names.includes(name)));

function checkHeaders(cases) {
  const b3 = new B3Propagator();
  const w3c = new W3CTraceContextPropagator();
  const multiple = ['X-B3-TraceId', 'X-B3-SpanId', 'X-B3-ParentSpanId', 'X-B3-Sampled', 'X-B3-Flags'];
  for (const made of cases) {
    const sampled = made.sampled || made.debug ? api.TraceFlags.SAMPLED : api.TraceFlags.NONE;
    const expected = { traceId: '0'.repeat(16) + made.traceId, spanId: made.spanId, sampled };
    const forms = [['b3', b3, only(made.headers, ['b3'])],
      ['X-B3', b3, only(made.headers, multiple)],
      ['traceparent', w3c, only(made.headers, ['traceparent'])]];
    for (const [form, propagator, headers] of forms) {
      check(`${form} of ${JSON.stringify(made.headers)}`, () => {
        const { span, debug } = extract(propagator, headers);
        assert.ok(span && api.isSpanContextValid(span), 'a valid span context');
        assert.deepStrictEqual(
          { traceId: span.traceId, spanId: span.spanId, sampled: span.traceFlags }, expected);
        if (propagator === b3) assert.strictEqual(debug !== undefined, made.debug, 'debug flag');
      });
    }
  }
}

const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'qen-otlp-'));
try {
  const [program, ...programArguments] = process.argv.slice(2);
  execFileSync(program, [...programArguments, folder], { stdio: 'inherit' });
  const read = (name) => JSON.parse(fs.readFileSync(path.join(folder, name), 'utf8'));
  checkHeaders(read('headers.json'));
} finally {
  fs.rmSync(folder, { recursive: true, force: true });
}
console.log(`${counts.passed} passed, ${counts.failed} failed`);
process.exitCode = counts.failed > 0 || counts.passed === 0 ? 1 : 0;
