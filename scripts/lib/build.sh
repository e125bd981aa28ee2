# shellcheck shell=bash disable=SC2034
# What scripts/test and scripts/demo share: installing packages, building a preset.
#
# Sourced by bash in the folder of the tree; the name of the script that sources it stands before
# what it says.

jobs=$(nproc)
readonly jobs
readonly script_name=scripts/${0##*/}
readonly base_packages=(
  g++ cmake ninja-build libcli11-dev libgtest-dev libgmock-dev libbenchmark-dev
)

step() { printf '\n== %s (%ds)\n' "$*" "$SECONDS" >&2; }

fail() {
  printf '\n%s: %s\n' "$script_name" "$*" >&2
  exit 1
}

missing_packages() {
  local package
  for package in "$@"; do
    if [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
      echo "$package"
    fi
  done
}

# install_packages COMMAND PACKAGE...
#
# COMMAND: what to run by hand on a system without Debian's packages.
install_packages() {
  local by_hand=$1
  shift
  command -v dpkg-query >/dev/null ||
    fail "this is not a Debian system: install the equivalents of these packages and run" \
         "$by_hand: $*"
  local missing
  mapfile -t missing < <(missing_packages "$@")
  if ((${#missing[@]} == 0)); then
    return
  fi
  step "installing ${missing[*]}"
  if ((EUID != 0)); then
    fail "not root, so nothing was installed; run: sudo apt-get install ${missing[*]}"
  fi
  local install=(apt-get install -y -q --no-install-recommends "${missing[@]}")
  export DEBIAN_FRONTEND=noninteractive
  # The package lists of a fresh machine are empty or old: fetch them once if need be.
  "${install[@]}" >/dev/null 2>&1 || { apt-get update -q && "${install[@]}"; } >&2 ||
    fail "apt-get could not install ${missing[*]}; look at its messages above"
}

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  step "building $preset"
  local log=build/$preset.configure.log
  mkdir -p build
  cmake --preset "$preset" >"$log" 2>&1 || {
    cat "$log" >&2
    fail "configuring failed; if build/$preset is from another machine, remove it and try again"
  }
  cmake --build --preset "$preset" ${1+--target "$@"} >&2 ||
    fail "building failed; repeat with: cmake --build --preset $preset"
}
