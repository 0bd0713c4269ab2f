# shellcheck shell=bash
# Shared by the scripts beside it; sourced, not run. Says each step in one line; a failing step
# names its log and the likely cure.
set -euo pipefail

readonly KELVO_ROOT_WHEEL="ROOT==0.1a12" # the official wheel of ROOT 6.40.00
KELVO_TOP="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
readonly KELVO_TOP
readonly KELVO_VENV="$KELVO_TOP/.venv"
readonly KELVO_LOGS="$KELVO_TOP/build/logs"

say() { printf 'kelvo: %s\n' "$*"; }

fail() {
  printf 'kelvo: %s\n' "$*" >&2
  exit 1
}

# run_step NAME CURE COMMAND... : runs the command with its output in build/logs/NAME.log.
run_step() {
  local name=$1 cure=$2
  shift 2
  mkdir -p "$KELVO_LOGS"
  local log="$KELVO_LOGS/$name.log"
  if ! "$@" >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    fail "step '$name' failed. Log: $log. Likely cure: $cure"
  fi
}

# Debian packages: what building and testing need. Elsewhere the same things under other names.
readonly KELVO_PACKAGES="g++ cmake ninja-build python3 python3-venv libcli11-dev libfmt-dev librsvg2-dev libcairo2-dev libtomlplusplus-dev libgtest-dev libbenchmark-dev zlib1g-dev pkg-config"

is_debian() { [ -r /etc/debian_version ] && command -v dpkg-query >/dev/null; }

missing_packages() {
  local package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || printf '%s ' "$package"
  done
}

# Any C++ header that the compiler sees.
has_header() { echo "#include <$1>" | c++ -std=c++17 -fsyntax-only -x c++ - 2>/dev/null; }

missing_things() {
  command -v c++ >/dev/null || printf 'a C++17 compiler (c++); '
  command -v cmake >/dev/null || printf 'CMake 3.20 or newer (cmake); '
  command -v ninja >/dev/null || printf 'Ninja (ninja); '
  command -v pkg-config >/dev/null || printf 'pkg-config; '
  python3 -c 'import ensurepip, venv' 2>/dev/null || printf 'Python 3 with venv (python3); '
  command -v c++ >/dev/null || return 0
  has_header CLI/CLI.hpp || printf 'CLI11 (CLI/CLI.hpp); '
  has_header fmt/format.h || printf 'fmt 9 (fmt/format.h); '
  has_header toml++/toml.h || printf 'toml++ 3 (toml++/toml.h); '
  has_header gtest/gtest.h || printf 'GoogleTest (gtest/gtest.h); '
  has_header benchmark/benchmark.h || printf 'Google Benchmark (benchmark/benchmark.h); '
  has_header zlib.h || printf 'zlib (zlib.h); '
}

as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  else
    command -v sudo >/dev/null || fail "need root to install packages: run as root, install sudo, or install by hand: ${*: -1}"
    sudo "$@"
  fi
}

# install_packages PACKAGE... : installs those that are missing.
install_packages() {
  if ! is_debian; then
    local missing
    missing=$(missing_things)
    [ -z "$missing" ] || fail "this is not Debian; please install what is missing and run again: ${missing%; }"
    return
  fi
  local packages
  packages=$(missing_packages "$@")
  [ -n "$packages" ] || return 0
  say "installing Debian packages: $packages"
  run_step apt-update "check the network and /etc/apt/sources.list" as_root apt-get update
  # shellcheck disable=SC2086
  run_step apt-install "see the log; 'apt-get install $packages' by hand shows more" \
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $packages
}

# An installed ROOT of 6.28 or newer, found by the usual means.
has_installed_root() {
  local config
  for config in ${ROOTSYS:+"$ROOTSYS/bin/root-config"} $(command -v root-config || true) \
    $(printf '%s' "${CMAKE_PREFIX_PATH:-}" | tr ':;' '\n' | sed 's|$|/bin/root-config|'); do
    [ -x "$config" ] || continue
    local version
    version=$("$config" --version 2>/dev/null | tr '/' '.') || continue
    if [ "$(printf '6.28\n%s\n' "$version" | sort -V | head -n 1)" = 6.28 ]; then
      say "using ROOT $version ($config)"
      return 0
    fi
    say "ROOT $version ($config) is older than 6.28 and not used"
  done
  return 1
}

# Debian's Python on Debian: its venv module is among the packages above.
system_python() {
  if is_debian; then echo /usr/bin/python3; else command -v python3; fi
}

make_venv() {
  [ -x "$KELVO_VENV/bin/python" ] && return 0
  say "making the virtual environment .venv"
  run_step venv "install python3-venv, or remove .venv and run again" "$(system_python)" -m venv "$KELVO_VENV"
}

# pip_install STAMP REQUIREMENT... : once per set of requirements.
pip_install() {
  local name=$1 stamp="$KELVO_VENV/.kelvo-$1" wanted
  shift
  wanted="$*$(for f in "$@"; do [ -f "$f" ] && cat "$f"; done || true)"
  [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$wanted" ] && return 0
  run_step "pip-$name" "check the network and the free disk space (the ROOT wheel needs 1 GB)" \
    "$KELVO_VENV/bin/python" -m pip install --disable-pip-version-check --no-input "$@"
  printf '%s' "$wanted" >"$stamp"
}

install_root() {
  has_installed_root && return 0
  make_venv
  [ -f "$KELVO_VENV/.kelvo-root" ] || say "putting the ROOT wheel ($KELVO_ROOT_WHEEL) into .venv"
  pip_install root "$KELVO_ROOT_WHEEL"
}

# build PRESET TARGET... : configures when needed and builds.
build() {
  local preset=$1
  shift
  if [ ! -f "$KELVO_TOP/build/$preset/build.ninja" ]; then
    say "configuring build/$preset"
    (cd "$KELVO_TOP" && run_step "configure-$preset" "scripts/setup; then remove build/$preset and run again" \
      cmake --preset "$preset")
  fi
  say "building build/$preset"
  (cd "$KELVO_TOP" && run_step "build-$preset" "free memory (a compiler needs 1 GB), or report the log" \
    cmake --build --preset "$preset" ${1:+--target "$@"})
}

setup() {
  # shellcheck disable=SC2086
  install_packages $KELVO_PACKAGES
  install_root
}
