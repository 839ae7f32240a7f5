#!/usr/bin/env bash
# Installs a configured build into a temporary prefix and proves the package usable from outside:
# the consumer project in Examples/Consumer configures with find_package, builds with no path of
# this source tree on its include path, and runs, and builds and runs again with only plain
# pkg-config's flags (the .pc files find their prefix from where they lie); a host names the
# vocabulary's keys from the installed headers; the Java jars and JNI library are there when
# built; and every installed header compiles on its own.
# Usage: check-installed-package.sh BUILD_DIRECTORY
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix/install" >/dev/null
cmake -S Examples/Consumer -B "$prefix/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix/install" \
  -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
cmake --build "$prefix/consumer" >/dev/null
if grep -q -- "-I$PWD\|isystem $PWD" "$prefix/consumer/compile_commands.json"; then
  echo "the consumer's include path reaches into the source tree" >&2
  exit 1
fi
"$prefix/consumer/QENConsumer"
# The same program built with nothing but what pkg-config says.
pkgconfig="pkg-config"
export PKG_CONFIG_PATH="$(dirname "$(find "$prefix/install" -name QENPerformanceLogger.pc)")"
said=$(realpath "$($pkgconfig --variable=prefix QENPerformanceLogger)")
if [ "$said" != "$(realpath "$prefix/install")" ]; then
  echo "pkg-config says the prefix is $said, not $prefix/install" >&2
  exit 1
fi
# shellcheck disable=SC2046
${CXX:-c++} Examples/Consumer/main.cpp -o "$prefix/pkg-config-consumer" \
  $($pkgconfig --cflags --libs QENPerformanceLoggerExporters)
"$prefix/pkg-config-consumer" >/dev/null

# The C interface, from C, with what its pkg-config file says: the library holds everything else.
if [ -f "$PKG_CONFIG_PATH/QENPerformanceLoggerC.pc" ]; then
  printf '#include <QENPerformanceLoggerC.h>\nint main(void) { QENCMetric m; return QENCMetricCreate("c", 1, 1.0, &m) == QENCStatusOK && QENCMetricRelease(m) == QENCStatusOK ? 0 : 1; }\n' |
    ${CC:-cc} -std=c11 -Wall -Wextra -Wpedantic -Werror -x c - -o "$prefix/c-consumer" \
      $($pkgconfig --cflags --libs QENPerformanceLoggerC) -Wl,-rpath,"$(dirname "$PKG_CONFIG_PATH")"
  "$prefix/c-consumer"
fi

# A host that names the vocabulary's keys, as the speed notifications' user info is read.
printf '#include <QENThrift/tracing_clientConstants.h>\nint main() { return QENThrift::tracing_clientConstants::NETWORK_SPEED() == "net.speed_kbps" ? 0 : 1; }\n' |
  ${CXX:-c++} -x c++ - -o "$prefix/keys-consumer" $($pkgconfig --cflags QENPerformanceLogger)
"$prefix/keys-consumer"
if [ -d "$build/Bindings/Java/maven" ]; then
  for installed in share/java/qen-performance-logger.jar share/java/qen-performance-logger-sources.jar \
    "$(basename "$(dirname "$PKG_CONFIG_PATH")")/libQENPerformanceLoggerJNI.so"; do
    [ -f "$prefix/install/$installed" ] || { echo "not installed: $installed" >&2; exit 1; }
  done
fi

headers=$(cd "$prefix/install/include/QENPerformanceLogger" && find . -name '*.h' | sed 's|^\./||')
printf '%s\n' $headers | xargs -P 2 -I{} sh -c \
  "printf '#include <{}>\n' | ${CXX:-c++} -std=c++20 -fsyntax-only -x c++ -I'$prefix/install/include/QENPerformanceLogger' -"
echo "installed package: $(printf '%s\n' $headers | wc -l) headers compile alone; the consumer builds and runs"
