#!/usr/bin/env bash
# Shrinks and obfuscates the example app, the binding and Kotlin's library with ProGuard, as a
# minified release build would, taking the binding's rules from its jar as R8 and ProGuard take them
# from a dependency; then runs the shrunk app on the JVM: every native call must still bind, and
# its spans export. With --without-shipped-rules the rules are left out, to see the run fail.
# Usage: check_shrunk_app.sh <consumer build dir> <JNI library> [--without-shipped-rules]
set -euo pipefail
consumer=$1 jni=$2 rules=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mvn -o -B -q -f "$(dirname "$0")/pom.xml" dependency:build-classpath \
  -Dmdep.outputFile="$work/proguard.classpath" >/dev/null
java_home=$(dirname "$(dirname "$(readlink -f "$(command -v java)")")")
binding=$(ls "$consumer"/lib/qen-performance-logger-*.jar)
{
  echo "-injars $consumer/qen-java-consumer-1.0.jar"
  for jar in "$consumer"/lib/*.jar; do echo "-injars $jar(!META-INF/**)"; done
  echo "-outjars $work/shrunk.jar"
  echo "-libraryjars $java_home/jmods/java.base.jmod(!**.jar;!module-info.class)"
  echo "-libraryjars $java_home/jmods/java.logging.jmod(!**.jar;!module-info.class)"
  echo "-keep class com.qen.example.FirstLinesKt { public static void main(java.lang.String[]); }"
  echo "-dontwarn kotlin.**,org.jetbrains.annotations.**"
  echo "-ignorewarnings"
  if [ "$rules" != --without-shipped-rules ]; then
    unzip -p "$binding" 'META-INF/proguard/*.pro'
  fi
} > "$work/app.pro"
java -cp "$(cat "$work/proguard.classpath")" proguard.ProGuard @"$work/app.pro" > "$work/proguard.log" ||
  { cat "$work/proguard.log"; exit 1; }
java -Dcom.qen.performancelogger.library="$jni" -cp "$work/shrunk.jar" com.qen.example.FirstLinesKt
# Obfuscated: what JNI does not bind by name carries another name now.
if unzip -l "$work/shrunk.jar" | grep -q 'com/qen/performancelogger/Metric.class'; then
  echo "not obfuscated: Metric kept its name" >&2
  exit 1
fi
