#!/usr/bin/env bash
# Installs the Debian packages the project builds, tests and runs with, when missing.
# Used by every Makefile target; safe to run again (does nothing when all are present).
set -euo pipefail

packages=(
  build-essential cmake pkg-config git
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  clang clang-format clang-tidy libclang-rt-14-dev
  libfftw3-dev libsamplerate0-dev libasound2-dev
  libmysofa-dev libmysofa1 libmpg123-dev liba52-0.7.4-dev libshp-dev
  pulseaudio libasound2-plugins alsa-utils sox
  nlohmann-json3-dev
  pybind11-dev python3-dev python3-numpy python3-pytest
  python3-pip
  python3-matplotlib
  libnetcdf-dev
  libjack-jackd2-dev
  jackd2
  liblo-dev
  liblo-tools
  libyaml-cpp-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps: missing packages: ${missing[*]} (run as root to install them)" >&2
  exit 1
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
