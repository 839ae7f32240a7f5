#!/bin/sh
# Fails unless the shared library exports its C interface (QENC...) and nothing else, and the C
# test calls every function it exports.
# Usage: check_exported_symbols.sh <nm> <library> <C test source>
set -eu
symbols=$("$1" -D --defined-only "$2" | awk '{print $3}')
foreign=$(printf '%s\n' "$symbols" | grep -v '^QENC' || true)
if [ -n "$foreign" ]; then
  echo "exported beside the C interface:" >&2
  printf '%s\n' "$foreign" >&2
  exit 1
fi
printf '%s\n' "$symbols" | grep -q '^QENCMetricCreate$'
untested=0
for symbol in $symbols; do
  if ! grep -q "$symbol(" "$3"; then
    echo "not called by the C test: $symbol" >&2
    untested=1
  fi
done
exit $untested
