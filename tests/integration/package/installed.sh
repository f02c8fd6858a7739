#!/usr/bin/env bash
# Builds the example of the README with the installed packages, by CMake, pkg-config and Meson, and runs
# each: the host has to install and launch its helper. For scripts/cross, in a clean system.
#
#   installed.sh SOURCE FOLDER
set -euo pipefail
source_folder=$1 folder=$2
tests=$source_folder/tests/integration/package
export CMAKE_GENERATOR=Ninja

# try WAY SCRIPT PAGE...: the snippets of the pages, for the packages in place of /opt/clientcomm.
try() {
  local way=$1 script=$2 page project library_folder
  shift 2
  project=$folder/$way/project
  mkdir -p "$project"
  for page in "$@"; do
    rm -f "$project/CMakeLists.txt"
    cmake "-DPAGE=$source_folder/$page" "-DFOLDER=$project" -P "$tests/extract.cmake"
  done
  library_folder=$(pkg-config --variable=libdir clientcomm)
  sed -i -e '/^cmake --install/d' -e '/^export PKG_CONFIG_PATH/d' \
    -e "s|/opt/clientcomm/lib/|$library_folder/|g" "$project/$script"
  echo true >"$project/look.sh"
  bash "$tests/run_host.sh" "$folder/$way" "$script" look.sh
  echo "$way: the host runs its helper"
}

rm -rf "$folder"
try cmake quick-start.sh README.md
try pkg-config by-hand.sh README.md docs/bundles.md
try meson meson.sh README.md docs/bundles.md
rm -rf "$folder"
