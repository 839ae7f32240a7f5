#!/usr/bin/env bash
# Installs everything the build, the tests and the benchmarks need: from Debian's packages, the
# build machine's toolchain, clang with libc++ (14 and 19), the ARM64 cross toolchain with qemu
# and Debian's arm64 libraries; from the npm registry, the OpenTelemetry JS packages the
# propagation-header test reads with; from Maven Central, the Java side's libraries and the Zipkin
# server; from the Go module proxy, Jaeger. Does nothing when everything is already there, so it
# is cheap to run before each build.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  liburiparser-dev nlohmann-json3-dev libcurl4-openssl-dev libsqlite3-dev zlib1g-dev
  python3
  locales
  clang-14 clang-19 libc++-19-dev libc++abi-19-dev
  g++-aarch64-linux-gnu qemu-user
  openjdk-17-jdk-headless maven
  libcurl4-openssl-dev:arm64 liburiparser1:arm64 libstdc++6:arm64
  libsqlite3-dev:arm64 zlib1g-dev:arm64
)

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi

# The ARM64 build takes its libraries from Debian's arm64 architecture.
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  $sudo dpkg --add-architecture arm64
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

if [ "${#missing[@]}" -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# libc++ 14 and libc++ 19 cannot be installed side by side (their packages conflict), so the
# clang 14 build takes libc++ 14 from Debian's packages unpacked into a folder of its own.
libcxx14=/opt/qen-libc++-14
if [ ! -f "$libcxx14/usr/lib/llvm-14/include/c++/v1/vector" ]; then
  downloads=$(mktemp -d)
  chmod 777 "$downloads"  # apt's download user writes there
  (cd "$downloads" && apt-get download -qq libc++1-14 libc++abi1-14 libunwind-14 libc++-14-dev \
    libc++abi-14-dev libunwind-14-dev)
  for package in "$downloads"/*.deb; do
    $sudo dpkg-deb -x "$package" "$libcxx14"
  done
  rm -rf "$downloads"
fi

# Node, for the propagation-header test's readers: Debian's, unless the machine already has one.
if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends nodejs npm
fi
# Those readers, at the versions the lock file pins, from the npm registry.
readers="$(dirname "$0")/../Tests/Interop/propagation"
if [ ! -d "$readers/node_modules/@opentelemetry/propagator-b3" ]; then
  (cd "$readers" && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error)
fi

# The Java binding's build, its tests on OkHttp 4 and 5, the example app that builds against it,
# ProGuard, which shrinks that app in a test, and the peer benchmark (JMH, the OpenTelemetry SDK):
# their plugins and libraries from Maven Central, once, into the local repository (the builds
# then run offline). The stamp names the pom files' contents, so a changed pom fetches again.
project=$(cd "$(dirname "$0")/.." && pwd)
poms=("$project/Bindings/Java/pom.xml" "$project/Examples/JavaConsumer/pom.xml"
  "$project/Tests/Bindings/shrinker/pom.xml" "$project/Benchmarks/peer/pom.xml"
  "$project/Tests/Interop/backends/pom.xml")
stamp="$HOME/.m2/qen-fetched-$(cat "${poms[@]}" | sha256sum | cut -c1-16)"
if [ ! -f "$stamp" ]; then
  scratch=$(mktemp -d)
  for profile in "" -Pokhttp5; do
    # Surefire fetches its JUnit provider only when tests run: they run here, without the JNI
    # library the build has not made yet, so they fail, and that is ignored.
    mvn -B -q $profile -f "${poms[0]}" -Dqen.build.directory="$scratch/binding$profile" \
      -DskipTests=false -Dmaven.test.failure.ignore=true install >/dev/null
  done
  mvn -B -q -f "${poms[1]}" -Dqen.build.directory="$scratch/consumer" package
  mvn -B -q -f "${poms[2]}" dependency:build-classpath -Dmdep.outputFile=/dev/null >/dev/null
  mvn -B -q -f "${poms[3]}" -Dqen.build.directory="$scratch/peer" package
  mvn -B -q -f "${poms[4]}" dependency:resolve >/dev/null
  rm -rf "$scratch"
  touch "$stamp"
fi

# Jaeger, the tracing server the OTLP backend test posts to, built from the Go module proxy at the
# versions its go.sum pins, with the machine's Go (1.24 or later: Debian's is too old). The first
# build takes minutes; Go's caches and the stamp keep later runs to nothing.
jaeger_module="$project/Tests/Interop/backends/jaeger"
jaeger_stamp="/opt/qen-jaeger/built-$(cat "$jaeger_module/go.sum" | sha256sum | cut -c1-16)"
if [ ! -f "$jaeger_stamp" ]; then
  go=$(command -v /usr/local/go/bin/go || command -v go)
  $sudo mkdir -p /opt/qen-jaeger
  $sudo "$go" build -C "$jaeger_module" -o /opt/qen-jaeger/jaeger \
    github.com/jaegertracing/jaeger/cmd/jaeger
  $sudo touch "$jaeger_stamp"
fi

# A Latin-1 locale, for the test that span names are lower-cased the same under any locale.
if ! locale -a 2>/dev/null | grep -qx 'de_DE.iso88591'; then
  $sudo localedef -i de_DE -f ISO-8859-1 de_DE.ISO-8859-1
fi
