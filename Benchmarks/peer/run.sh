#!/usr/bin/env bash
# Runs the peer benchmark: ns per operation, and bytes allocated per operation from JMH's gc
# profiler. Build the JNI library first (cmake --workflow --preset release).
# Usage: Benchmarks/peer/run.sh [JNI library] [more JMH options]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
jni=${1:-$here/../../build/release/Bindings/Java/libQENPerformanceLoggerJNI.so}
shift || true
build=$here/../../build/peer-benchmark
mvn -o -B -q -f "$here/../../Bindings/Java/pom.xml" -Dqen.build.directory="$build/binding" install
mvn -o -B -q -f "$here/pom.xml" -Dqen.build.directory="$build/benchmark" package
java -cp "$build/benchmark/classes:$build/benchmark/lib/*" org.openjdk.jmh.Main LeafSpanBenchmark \
  -prof gc -jvmArgsAppend "-Dcom.qen.performancelogger.library=$(readlink -f "$jni")" "$@"
