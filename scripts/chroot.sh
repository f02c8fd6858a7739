# shellcheck shell=bash
# Debian systems of other architectures and releases in build/chroots, for scripts/cross. Sourced, not
# run.
set -euo pipefail

# shellcheck source=common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

chroots=$project_root/build/chroots

# The mirror that this machine's apt uses.
debian_mirror() {
  local sites
  # shellcheck disable=SC2016  # expanded by apt
  sites=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Label: Debian')
  sites=${sites%%$'\n'*}
  printf '%s\n' "${sites:-http://deb.debian.org/debian}"
}

# This machine's settings for downloads, as options of mmdebstrap.
apt_settings() {
  local setting value
  for setting in Acquire::http::Proxy Acquire::https::Proxy Acquire::Check-Valid-Until Acquire::Check-Date; do
    value=$(apt-config shell value "$setting" | sed "s/^value='\(.*\)'$/\1/")
    [[ -z $value ]] || printf '%s\n' "--aptopt=$setting \"$value\""
  done
  printf '%s\n' '--aptopt=Acquire::Retries "3"'
}

# make_chroot NAME SUITE VARIANT ARCHITECTURES PACKAGE...
#
# Makes the chroot NAME unless it is there with just these packages. It has no security updates: they
# come at different times for different architectures, and two architectures in one chroot need equal
# versions. It serves tests, and nothing else.
make_chroot() {
  local name=$1 suite=$2 variant=$3 architectures=$4
  shift 4
  local folder=$chroots/$name recipe="$suite $variant $architectures $*" packages settings
  if [[ -f $folder.recipe && $(<"$folder.recipe") == "$recipe" ]]; then
    say "Chroot $name is there: $folder"
    return
  fi
  install_missing mmdebstrap arch-test
  say "Making chroot $name: $recipe"
  remove_chroot "$name"
  mkdir -p "$chroots"
  packages=$(IFS=, && printf '%s' "$*")
  mapfile -t settings < <(apt_settings)
  as_root mmdebstrap --quiet --mode=root --variant="$variant" --architectures="$architectures" \
    --include="$packages" "${settings[@]}" "$suite" "$folder" "$(debian_mirror)"
  printf '%s\n' "$recipe" >"$folder.recipe"
}

# Nothing is mounted in a chroot outside the command that uses it; --one-file-system all the same.
remove_chroot() {
  rm -f "$chroots/$1.recipe"
  as_root rm -rf --one-file-system "${chroots:?}/$1"
}

# What makes mounts that end with the command, as do all its processes.
private_mounts=(unshare --mount --pid --fork --kill-child --propagation private)

# Runs in such mounts: enter ROOT PROJECT USER|"" COMMAND [ARGUMENT...]. Binary formats that
# $CLIENTCOMM_BINARY_FORMAT describes are for this command alone, in a user namespace of its own. ROOT
# takes the place of the namespace's root, so that the kernel names files by the same paths to processes
# that have unshared their mounts.
# shellcheck disable=SC2016  # expanded by the inner shell
enter='
  root=$1 project=$2 user=$3
  shift 3
  mount --bind "$root" "$root"
  mkdir -p "$root$project"
  mount --bind "$project" "$root$project"
  mount -t proc proc "$root/proc"
  mount --rbind /dev "$root/dev"
  settings=()
  if [[ -n ${CCACHE_DIR:-} && -x $root/usr/bin/ccache ]]; then
    mkdir -p "$CCACHE_DIR" "$root$CCACHE_DIR"
    mount --bind "$CCACHE_DIR" "$root$CCACHE_DIR"
    mapfile -t settings < <(env | grep -E "^(CCACHE_|CMAKE_CXX_COMPILER_LAUNCHER=)")
  fi
  if [[ -n ${CLIENTCOMM_BINARY_FORMAT:-} ]]; then
    mount -t binfmt_misc binfmt_misc "$root/proc/sys/fs/binfmt_misc"
    printf "%s" "$CLIENTCOMM_BINARY_FORMAT" >"$root/proc/sys/fs/binfmt_misc/register"
  fi
  cd "$root"
  mount --move . /
  exec chroot ${user:+--userspec="$user"} . env -i HOME=/tmp LANG=C.UTF-8 \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin "${settings[@]}" \
    bash -euc "cd \"\$1\"; shift; exec \"\$@\"" bash "$project" "$@"
'

# in_chroot NAME COMMAND [ARGUMENT...]
#
# Runs the command in the chroot NAME as this user, in the project's folder, which is there under the
# same path.
in_chroot() {
  local root=$chroots/$1
  shift
  as_root "${private_mounts[@]}" \
    bash -euc "$enter" bash "$root" "$project_root" "${chroot_user:-$(id -u):$(id -g)}" "$@"
}

# call_in_chroot NAME FUNCTION [ARGUMENT...]: the same for a function of common.sh.
call_in_chroot() {
  local name=$1
  shift
  in_chroot "$name" bash -c 'source scripts/common.sh && "$@"' bash "$@"
}

# Runs in a process that becomes unshare, given its arguments. A sibling gives the user namespace all users
# and groups of this one, each under its own number. unshare itself would map a single user.
# shellcheck disable=SC2016  # expanded by the inner shell
unshare_with_all_users='
  map_all_users() {
    local kind
    until [[ $(readlink "/proc/$1/ns/user") != "$(readlink /proc/self/ns/user)" ]]; do sleep 0.01; done
    for kind in gid uid; do
      awk "{ print \$1, \$1, \$3 }" "/proc/self/${kind}_map" >"/proc/$1/${kind}_map"
    done
  }
  map_all_users "$$" &
  exec unshare --user "$@"
'

# Runs in the namespace: COMMAND [ARGUMENT...] with the rights of its root, once users are mapped.
# shellcheck disable=SC2016  # expanded by the inner shell
when_mapped='until [[ $(id -u) == 0 ]]; do sleep 0.01; done; exec "$@"'

# in_foreign_chroot NAME FORMAT COMMAND [ARGUMENT...]
#
# Runs the command as root in the chroot NAME of another processor, by the emulator in the file FORMAT of
# /usr/lib/binfmt.d. Takes Linux 6.7, which lets a user namespace have binary formats of its own.
in_foreign_chroot() {
  local root=$chroots/$1 format
  format=$(</usr/lib/binfmt.d/"$2")
  shift 2
  as_root env CLIENTCOMM_BINARY_FORMAT="$format" \
    bash -euc "$unshare_with_all_users" bash "${private_mounts[@]:1}" bash -euc "$when_mapped" bash \
    bash -euc "$enter" bash "$root" "$project_root" "" "$@"
}
