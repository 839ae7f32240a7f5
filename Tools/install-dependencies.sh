#!/usr/bin/env bash
# Installs, from Debian's packages, everything the build, the tests and the benchmarks need.
# Does nothing when everything is already there, so it is cheap to run before each build.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  liburiparser-dev nlohmann-json3-dev libcurl4-openssl-dev
  python3 python3-thrift thrift-compiler python3-py-zipkin
  locales
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi

if [ "${#missing[@]}" -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# A Latin-1 locale, for the test that span names are lower-cased the same under any locale.
if ! locale -a 2>/dev/null | grep -qx 'de_DE.iso88591'; then
  $sudo localedef -i de_DE -f ISO-8859-1 de_DE.ISO-8859-1
fi
