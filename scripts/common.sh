# Shared by ./demo and ./check: what must be installed, and how the project is built. Sourced, not run.

PROJECT_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# as_root COMMAND...: runs it as root where that is allowed without a password.
as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else command -v sudo >/dev/null && sudo -n "$@"; fi
}

# need_architecture NAME: lets Debian's packages of another architecture be installed.
need_architecture() {
  dpkg --print-foreign-architectures | grep -qx "$1" && return 0
  as_root dpkg --add-architecture "$1" && return 0
  echo "$(basename "$0"): please run: dpkg --add-architecture $1" >&2
  return 1
}

# missing PACKAGE...: prints those that are not installed.
missing() {
  local package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || echo "$package"
  done | paste -sd ' '
}

# need PACKAGE...: installs what is missing when it may, otherwise says in one line what to install.
need() {
  local packages
  packages=$(missing "$@")
  [ -n "$packages" ] || return 0
  if ! as_root true 2>/dev/null; then
    echo "$(basename "$0"): please install: apt-get install $packages" >&2
    return 1
  fi
  echo "installing $packages"
  local log
  log=$(mktemp)
  if ! { as_root apt-get update && as_root env DEBIAN_FRONTEND=noninteractive \
         apt-get install -y --no-install-recommends $packages; } >"$log" 2>&1 </dev/null; then
    tail -n 5 "$log" >&2
    rm -f "$log"
    echo "$(basename "$0"): please install: apt-get install $packages" >&2
    return 1
  fi
  rm -f "$log"
}

BASE_PACKAGES="g++ cmake ninja-build googletest libre2-dev libpugixml-dev rapidjson-dev libsoci-dev libsqlite3-dev libpq-dev"
# The same libraries for 32-bit ARM, from Debian's armhf beside this machine's own.
ARM_PACKAGES="libre2-dev:armhf libpugixml-dev:armhf"
# What the tests of the package and of the dissector run.
TEST_PACKAGES="dpkg-dev file procps tshark"
# What only the tests of the record store need and is large: ./check --all installs it.
LARGE_PACKAGES="postgresql chromium"

# build DIRECTORY [CMAKE-OPTION...] [-- TARGET...]: configures and builds, quietly unless it fails.
build() {
  local directory=$1 options=() log
  shift
  while [ $# -gt 0 ] && [ "$1" != -- ]; do options+=("$1"); shift; done
  [ $# -gt 0 ] && shift
  mkdir -p "$directory"
  log=$directory/build.log
  if ! { cmake -S "$PROJECT_DIR" -B "$directory" -G Ninja "${options[@]}" &&
         cmake --build "$directory" ${1:+--target "$@"}; } >"$log" 2>&1; then
    grep -E 'error|Error|FAILED' "$log" | head -n 40 >&2
    echo "build failed, all of it is in ${log#"$PROJECT_DIR"/}" >&2
    return 1
  fi
}
