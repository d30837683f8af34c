#!/usr/bin/env bash
# Installs the project's packages on a bare Debian 12 and uses them there. As root.
#
#   scripts/check_packages.sh [--base FILE.tar] [--keep] [FOLDER]
#
# FOLDER holds the packages: out/packages by default, where `./dev package` puts them. The bare system is
# made by debootstrap, or taken from FILE.tar; --keep leaves it in build/package-root. Packages of the
# system come from where this one's come from.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bare=$root/build/package-root
base=
keep=
packages=$root/out/packages

step() { printf '\n== %s\n' "$*"; }
die() { printf 'check_packages: %s\n' "$*" >&2; exit 1; }

main() {
  while [[ $# -gt 0 ]]; do
    case $1 in
      --base) base=$2; shift ;;
      --keep) keep=yes ;;
      -*) die "no option '$1'" ;;
      *) packages=$(cd "$1" && pwd) ;;
    esac
    shift
  done
  [[ $EUID -eq 0 ]] || die "this needs root, for a root of its own"
  if [[ -z ${KBAG_CHECK_PACKAGES_INSIDE:-} ]]; then
    # What is mounted below goes away with its namespace, whatever happens.
    export KBAG_CHECK_PACKAGES_INSIDE=yes
    exec unshare --mount --propagation private "${BASH_SOURCE[0]}" \
      ${base:+--base "$base"} ${keep:+--keep} "$packages"
  fi
  make_root
  step "the tools alone, without the packages that they recommend"
  inside apt-get install -y -q --no-install-recommends "$(file_of kbag)" >"$bare/log" 2>&1 || failed
  inside bash -euc "$use_tools"
  step "the library, the module and the development files, with a compiler and nothing else"
  inside apt-get install -y -q --no-install-recommends "$(file_of libkbag0)" "$(file_of libkbag-pictures)" \
    "$(file_of libkbag-dev)" g++ cmake make pkg-config >"$bare/log" 2>&1 || failed
  inside bash -euc "$unpack_pictures"
  inside bash -euc "$build_outside"
  step "the documentation, and every command that it shows"
  inside apt-get install -y -q --no-install-recommends "$(file_of kbag-doc)" python3-numpy jq >"$bare/log" 2>&1 || failed
  inside test -f /usr/share/doc/kbag/html/start.html
  inside python3 /project/tests/docs/commands_test.py /project /usr/bin/kbag /usr/bin/kbagkit
  step "and away with them"
  inside apt-get purge -y -q kbag kbag-doc libkbag0 libkbag-pictures libkbag-dev >"$bare/log" 2>&1 || failed
  inside bash -euc "$look_for_leftovers"
  umount --recursive --lazy "$bare/dev" "$bare/proc"
  [[ $keep ]] || rm -rf --one-file-system "$bare"
  step "everything works"
}

# ---------------------------------------------------------------------------------- what is tried

# shellcheck disable=SC2016  # expanded inside
use_tools='
  set -x
  kbag --version
  mkdir -p /try && cd /try
  kbagkit simulate x.kbag --seconds 1 --points 1000 --cameras 1 >/dev/null
  kbag info x.kbag | grep -c MBps
  kbag check x.kbag
  mkdir -p export && kbag export x.kbag --dir export --images | grep success
  test "$(wc -l <export/csv/imu.csv)" -gt 100
  mkdir -p unpacked && kbag unpack x.kbag --dir unpacked 2>errors | grep -F "export topic[/camera_left/h264] error!"
  grep -F "kbag_pictures.so is not installed" errors
  ls unpacked/lidar_points/*.pcd | wc -l
'

# shellcheck disable=SC2016
unpack_pictures='
  set -x
  cd /try
  kbag unpack x.kbag --dir unpacked --topic /camera_left/h264
  test "$(ls unpacked/images/camera_0/*.jpg | wc -l)" = 10
'

# shellcheck disable=SC2016
build_outside='
  set -x
  cd /try
  cmake -S /outside -B cmake >/dev/null
  cmake --build cmake >/dev/null
  g++ -std=c++17 /outside/outside.cpp -o with_pkg_config $(pkg-config --cflags --libs kbag)
  for program in cmake/outside ./with_pkg_config; do
    rm -rf mine && mkdir mine
    $program record mine/2024-01-31-235959.kbin
    $program read mine/2024-01-31-235959.kbin
    $program export mine/2024-01-31-235959.kbin mine/export
    test "$(wc -l <mine/export/csv/imu.csv)" = 13
    $program task mine mine/task
    $program unpack x.kbag mine/unpacked
    test "$(ls mine/unpacked/images/camera_0/*.jpg | wc -l)" = 10
  done
  test -f "$(pkg-config --variable=protodir kbag)/kbag_msgs.proto"
'

# shellcheck disable=SC2016
look_for_leftovers='
  left=$(find /usr -path "*kbag*" -o -path "*/morva*")
  [[ -z $left ]] || { echo "$left"; exit 1; }
  echo nothing is left
'

# ------------------------------------------------------------------------------------------- steps

make_root() {
  step "a bare Debian 12"
  rm -rf --one-file-system "$bare"
  mkdir -p "$bare"
  if [[ $base ]]; then
    tar -C "$bare" -xpf "$base"
  else
    debootstrap --variant=minbase bookworm "$bare" ${mirror:+"$mirror"} >"$root/build/debootstrap.log" 2>&1 ||
      die "debootstrap failed, see build/debootstrap.log"
  fi
  cp -L /etc/resolv.conf /etc/hosts "$bare/etc/"
  if [[ -f /etc/apt/sources.list.d/debian.sources ]]; then
    rm -f "$bare/etc/apt/sources.list"
    cp /etc/apt/sources.list.d/debian.sources "$bare/etc/apt/sources.list.d/"
  else
    cp /etc/apt/sources.list "$bare/etc/apt/"
  fi
  mkdir -p "$bare/packages" "$bare/outside" "$bare/project"
  cp "$packages"/*.deb "$bare/packages/"
  cp "$root"/tests/install/outside/* "$bare/outside/"
  (cd "$root" && cp -r --parents README.md docs tests/docs "$bare/project")
  mount -t proc proc "$bare/proc"
  mount --rbind /dev "$bare/dev"
  inside apt-get update -q >"$bare/log" 2>&1 || failed
  printf '%s packages installed\n' "$(inside dpkg-query -W | wc -l)"
}

mirror=$(sed -n 's/^URIs: *//p' /etc/apt/sources.list.d/debian.sources 2>/dev/null | head -n 1)

inside() {
  chroot "$bare" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive "$@" </dev/null
}

# file_of PACKAGE: its path inside.
file_of() { basename "$(compgen -G "$packages/$1_*.deb" | head -n 1)" | sed 's|^|/packages/|'; }

failed() { tail -n 25 "$bare/log" >&2; die "a command failed inside of $bare"; }

main "$@"
