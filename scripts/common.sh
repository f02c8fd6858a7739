# shellcheck shell=bash
# What the scripts of this folder share. Sourced by them, not run.
set -euo pipefail

project_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# shellcheck source=progress.sh
source "$(dirname "${BASH_SOURCE[0]}")/progress.sh"

# What it takes to build and to test, as Debian names it.
# shellcheck disable=SC2034  # for the scripts that source this file
build_packages=(
  g++ cmake ninja-build pkg-config
  libglib2.0-dev libexpat1-dev       # the library
  libsqlite3-dev nlohmann-json3-dev  # the sample applications
  libcurl4-openssl-dev libsodium-dev # the server of the sample helper
  libgtest-dev
  openssl                            # certificates for the tests of uploads
  e2fsprogs btrfs-progs              # the file systems that tests make
  bubblewrap                         # the sandboxes that tests make
  meson                              # builds what the page on bundles prints for it
  desktop-file-utils                 # reads the file that starts a helper at log-in
  python3                            # the peer that shares no code with the library
  locales                            # one with a decimal comma
  procps                             # what the page on troubleshooting looks with
  groff-base                         # reads the manual page
)

# What some examples take (event_loops, gtk, qt, python), which are built where these are installed.
# shellcheck disable=SC2034
toolkit_packages=(
  libsdl2-dev qt6-base-dev libgtk-4-dev
  xvfb xdotool imagemagick  # a display for the tests of windows, clicks, and pictures
  python3-dev python3-setuptools python3-wheel
)

# What the manual and the reference are built with.
# shellcheck disable=SC2034
manual_packages=(doxygen python3-sphinx python3-myst-parser)

# What the benchmarks take in addition: their own library, and what they are compared with.
# shellcheck disable=SC2034
bench_packages=(
  libbenchmark-dev libsystemd-dev dbus-daemon libproc2-dev libapt-pkg-dev binutils
  python3 gnuplot-nox  # the table and the plots
)

# What the stress tests take in addition: a window to be drawn under load, and a place for it.
# shellcheck disable=SC2034
window_packages=(libgtk-4-dev xvfb)

# A program that stands between a process and its executable, such as valgrind or an emulator, makes
# other processes take it for another program. The unit tests, which launch none, can be passed under it
# all the same, and so can these suites of tests/system, in one process each,
# shellcheck disable=SC2034
interposable_suites=(
  BundleTest FileLock FileManager FileNameForIdentifier FilePath ProcessText PropertyListFile Timer
)
# without the tests of which program runs, those that count allocations, and a few that take too long.
uninterposable_tests=(
  RunningProgram Caller Allocat RecycledTable EveryCharacter SlowImplementation BeyondMeasure MemoryRunsOut
)

# These tests as a negative filter of GoogleTest.
uninterposable_filter() {
  local filter
  filter=$(printf ':*%s*' "${uninterposable_tests[@]}")
  printf '%s' "${filter#:}"
}

say() {
  printf '==> %s\n' "$*"
}

fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

is_installed() {
  [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

as_root() {
  if ((EUID == 0)); then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    fail "packages are missing, and there is neither root nor sudo to install them"
  fi
}

# Installs those of the given Debian packages that are missing; does nothing when none is.
install_missing() {
  local package missing=()
  command -v dpkg-query >/dev/null ||
    fail "this is not a Debian system; what is needed goes by these names there: $*"
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  if ((${#missing[@]} == 0)); then
    say "All packages needed are installed: $*"
    return
  fi
  say "Installing ${#missing[@]} packages: ${missing[*]}"
  as_root true # asks for the password, before lines of progress come
  with_progress run_apt update
  with_progress run_apt install --yes --no-install-recommends "${missing[@]}"
  say "Installed: ${missing[*]}"
}

run_apt() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o APT::Status-Fd=1 "$@" | apt_progress
}

# The web server of the tests: only its files, in build/server. Its package would start a service.
unpack_web_server() {
  local folder=$project_root/build/server
  [[ -x $folder/usr/sbin/nginx ]] && return
  say "Unpacking nginx into build/server"
  rm -rf "$folder"
  mkdir -p "$folder"
  if ! (cd "$folder" && apt-get download -qq nginx && dpkg --extract nginx_*.deb . && rm nginx_*.deb); then
    say "nginx could not be fetched: the tests against a web server are skipped"
  fi
}

# Configures the preset and builds it; further arguments are for the build.
build_preset() {
  local preset=$1
  shift
  cd "$project_root"
  say "Configuring: cmake --preset $preset"
  cmake --preset "$preset"
  say "Building: cmake --build --preset $preset $*"
  cmake --build --preset "$preset" "$@"
}

# build_googletest PREFIX COMPILER FLAGS: Debian's source of GoogleTest for another standard library.
build_googletest() {
  local prefix=$1 compiler=$2 flags=$3
  cd "$project_root"
  say "Building GoogleTest with $compiler $flags"
  cmake -G Ninja -S /usr/src/googletest -B "$prefix/build" -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_INSTALL_PREFIX="$prefix"
  cmake --build "$prefix/build" --target install
}
