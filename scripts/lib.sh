# Shared by the scripts of this folder; sourced, not run.
# shellcheck shell=bash

set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '== %s\n' "$*" >&2; }

die() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

as_root() {
  if [[ $EUID -eq 0 ]]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    die "packages are missing and can only be installed by root; run as root or install sudo"
  fi
}

# packages_of GROUP...: the names listed for these groups.
packages_of() {
  local name groups group _
  while read -r name groups _; do
    for group in "$@"; do
      case ",$groups," in *",$group,"*) printf '%s\n' "$name" ;; esac
    done
  done < <(grep -v '^#' "$root/scripts/packages.txt")
}

missing_of() {
  local name
  for name in $(packages_of "$@"); do
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null) == installed ]] ||
      printf '%s\n' "$name"
  done
}

# install_packages GROUP...: installs what dpkg says is missing; touches nothing otherwise.
install_packages() {
  local missing log
  command -v dpkg-query >/dev/null || die "this script installs packages with apt and needs Debian"
  mapfile -t missing < <(missing_of "$@" | sort -u)
  [[ ${#missing[@]} -gt 0 ]] || return 0

  say "installing ${missing[*]}"
  log=$(mktemp)
  if ! as_root env DEBIAN_FRONTEND=noninteractive sh -c '
      apt-get -qq update && apt-get -qq install -y --no-install-recommends "$@"' \
      install "${missing[@]}" >"$log" 2>&1 </dev/null; then
    tail -n 20 "$log" >&2
    rm -f "$log"
    die "could not install: ${missing[*]}"
  fi
  rm -f "$log"
}

use_ccache_if_present() {
  if command -v ccache >/dev/null; then
    export CCACHE_BASEDIR=$root
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
  fi
}

# build PRESET [cmake -D options...] [-- targets...]: configures and builds; all targets by default.
build() {
  local preset=$1 options=() targets=()
  shift
  while [[ $# -gt 0 && $1 != -- ]]; do
    options+=("$1")
    shift
  done
  if [[ $# -gt 1 ]]; then
    shift
    targets=(--target "$@")
  fi
  use_ccache_if_present
  say "building $preset"
  cd "$root"
  cmake --preset "$preset" ${options[@]+"${options[@]}"} --log-level=WARNING >/dev/null ||
    die "configuring $preset failed"
  cmake --build --preset "$preset" ${targets[@]+"${targets[@]}"} >&2 || die "building $preset failed"
}
