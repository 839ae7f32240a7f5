#!/usr/bin/env bash
# Runs a Zipkin server, with in-memory storage, on http://localhost:9411 until Ctrl-C: somewhere
# to send the demo's spans (QENDemo --send http://localhost:9411/api/v2/spans) and look at them.
# Its executable jar comes from Maven Central into the local Maven repository, once; the version
# is the one the backend tests run. Arguments go to the server (--server.port=9412, say).
set -euo pipefail
pom="$(dirname "$0")/../Tests/Interop/backends/pom.xml"
version=$(sed -n 's:.*<zipkin.server.version>\(.*\)</zipkin.server.version>.*:\1:p' "$pom")
jar="$HOME/.m2/repository/io/zipkin/zipkin-server/$version/zipkin-server-$version-exec.jar"
if [ ! -f "$jar" ]; then
  mvn -B -q -f "$pom" dependency:resolve
fi
exec java -jar "$jar" "$@"
