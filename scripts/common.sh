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

# progress LABEL LOG: copies standard input to the file LOG and tells on standard error how far it is: on a terminal in
# one line that moves, elsewhere with a line at each quarter of a build and at each part of an installation.
progress() {
  local label=$1 line quarter part shown= width=
  if [ -t 2 ] && [ "${TERM:-dumb}" != dumb ]; then width=$(($(tput cols 2>/dev/null || echo 80) - ${#label} - 3)); fi
  while IFS= read -r line; do
    printf '%s\n' "$line" >&3
    if [ -n "$width" ]; then
      printf '\r\e[K%s' "$label: ${line:0:width}" >&2
      continue
    fi
    part=
    case $line in
      "["*/*"] "*)
        line=${line%%]*} line=${line#[}
        quarter=$((4 * ${line%/*} / ${line#*/}))
        [ "$quarter" = 0 ] || part="$((25 * quarter)) %"
        ;;
      "Get:"*) part=downloading ;;
      "Unpacking "*) part=unpacking ;;
      "Setting up "*) part="setting up" ;;
    esac
    if [ -n "$part" ] && [ "$part" != "$shown" ]; then echo "$label: $part" >&2; fi
    shown=${part:-$shown}
  done 3>"$2"
  [ -z "$width" ] || printf '\r\e[K' >&2
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
  local log=$PROJECT_DIR/build/install.log
  mkdir -p "$PROJECT_DIR/build"
  echo "installing $packages (log: build/install.log)" >&2
  # The first command finishes what an interrupted installation began. Lists that cannot be fetched stay as they are.
  if ! { as_root dpkg --configure -a && { as_root apt-get update || true; } &&
         as_root env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=120 install -y \
           --no-install-recommends $packages; } 2>&1 </dev/null |
       progress installing "$log"; then
    tail -n 5 "$log" >&2
    echo "$(basename "$0"): please install: apt-get install $packages" >&2
    return 1
  fi
}

# What a build and a package need.
BASE_PACKAGES="g++ cmake ninja-build googletest libre2-dev libpugixml-dev rapidjson-dev libsoci-dev libsqlite3-dev libpq-dev dpkg-dev file"
# The same libraries for 32-bit ARM, from Debian's armhf beside this machine's own.
ARM_PACKAGES="libre2-dev:armhf libpugixml-dev:armhf"
# What the tests of the package and of the dissector run.
TEST_PACKAGES="procps tshark"
# What only tests and benchmarks need and is large: ./check --all installs it.
LARGE_PACKAGES="postgresql chromium chromium-driver redis-server valgrind lintian"

# build DIRECTORY [CMAKE-OPTION...] [-- TARGET...]: configures and builds. What a build that was interrupted has done
# is kept.
build() {
  local directory=$1 options=() log
  shift
  while [ $# -gt 0 ] && [ "$1" != -- ]; do options+=("$1"); shift; done
  [ $# -gt 0 ] && shift
  mkdir -p "$directory"
  log=$directory/build.log
  echo "building (log: ${log#"$PROJECT_DIR"/})" >&2
  if ! { cmake -S "$PROJECT_DIR" -B "$directory" -G Ninja "${options[@]}" &&
         cmake --build "$directory" ${1:+--target "$@"}; } 2>&1 </dev/null | progress building "$log"; then
    grep -E 'error|Error|FAILED' "$log" | head -n 40 >&2
    echo "build failed, all of it is in ${log#"$PROJECT_DIR"/}" >&2
    return 1
  fi
}
