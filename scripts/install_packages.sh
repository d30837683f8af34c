#!/usr/bin/env bash
# Installs the Debian packages that a job needs, and nothing else.
#
#   scripts/install_packages.sh GROUP...
#
# Groups: build, shell, docs, bench, coverage, fuzz, lint, package, cross, interop.
#
# Says what it will install, how much that downloads and how much disk it takes before it starts. Where
# nothing is missing it prints nothing and uses neither apt nor the network.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
pcl_dir=$root/build/third_party/pcl
log=$root/build/packages.log

declare -A groups=(
  # The compiler and its helpers; codecs and CRC-32; stored messages; calibration documents; text,
  # command line, JSON; matrices, and what the PCL headers include; camera pictures; the simulator's
  # cameras; tests, and what validates JSON in them.
  [build]="g++ cmake ninja-build ccache pkg-config
           liblz4-dev libzstd-dev libdeflate-dev
           libprotobuf-dev protobuf-compiler
           libyaml-cpp-dev
           libfmt-dev libcli11-dev nlohmann-json3-dev
           libeigen3-dev libboost-dev
           libopencv-core-dev libopencv-imgcodecs-dev libopencv-videoio-dev
           libavcodec-dev libavutil-dev libavformat-dev libswscale-dev libturbojpeg0-dev
           libgtest-dev libgmock-dev python3 python3-jsonschema"
  # Shells whose completions are tested, what renders manual pages (40 MB, if none of it is there), and what
  # the documents' examples pipe JSON into.
  [shell]="bash-completion zsh fish man-db groff-base jq"
  # What makes the documentation site, and what its examples read clouds with (65 MB, if none of it is there).
  [docs]="doxygen python3-sphinx python3-myst-parser furo python3-breathe python3-numpy"
  # The programs that the benchmarks compare with are linked by nothing else.
  [bench]="libbenchmark-dev librosbag-storage-dev python3-rosbag libpcl-io1.13"
  [coverage]="gcovr"
  # The other compiler, with libFuzzer and the sanitizers, and what names the places in their reports.
  [fuzz]="clang libclang-rt-14-dev llvm"
  [lint]="clang-format clang-tidy python3 shellcheck"
  # What makes Debian packages, and a bare system to try them on.
  [package]="dpkg-dev file debootstrap"
  # The compiler for AArch64, and what runs its programs here. The libraries for it are unpacked, not installed:
  # scripts/make_arm64_root.sh.
  [cross]="g++-aarch64-linux-gnu qemu-user dpkg"
  # Readers that are not ours. The point-cloud library without its development package, which would
  # bring over 300 more: the tests use the unpacked headers, and need libraries of their version.
  [interop]="python3-numpy libpcl-io1.13"
)

say() { printf 'packages: %s\n' "$*"; }
die() { printf 'packages: %s\n' "$*" >&2; exit 1; }

main() {
  local group wanted=() missing=() fetch_pcl=
  for group; do
    [[ -n ${groups[$group]:-} ]] || die "no group '$group'; there are: ${!groups[*]}"
    read -r -d '' -a names <<<"${groups[$group]}" || true
    wanted+=("${names[@]}")
    [[ $group != build ]] || have_pcl_headers || fetch_pcl=yes
  done
  if ! command -v dpkg-query apt-get >/dev/null; then
    say "no apt here, so nothing is installed; Debian calls what is needed: ${wanted[*]}, libpcl-dev (headers)"
    return 0
  fi
  mapfile -t missing < <(missing_of "${wanted[@]}")
  mkdir -p "$root/build"
  if [[ ${#missing[@]} -gt 0 ]]; then
    install_packages "${missing[@]}"
  fi
  if [[ $fetch_pcl ]]; then
    fetch_pcl_headers
  fi
}

# Prints those of the named packages that are not installed.
missing_of() {
  local installed name
  installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2>/dev/null || true)
  for name; do
    grep -qxF "$name installed" <<<"$installed" || printf '%s\n' "$name"
  done | sort -u
}

install_packages() {
  say "missing here, and installed now (Debian packages, without recommended extras):"
  fold -s -w 90 <<<"$*" | sed 's/^/  /; s/ *$//'
  with_lists print_plan "$@"
  say "installing; details go to build/packages.log"
  if ! apt_install "$@" >"$log" 2>&1; then
    # The lists may name versions that the mirror has replaced since.
    refresh_lists
    apt_install "$@" >"$log" 2>&1 || { tail -n 20 "$log" >&2; die "apt-get install failed"; }
  fi
}

# Prints how many packages, and how much to download and on disk. Fails where the lists do not know one.
print_plan() {
  local plan
  plan=$(LC_ALL=C apt-get install --no-install-recommends --print-uris "$@" 2>&1) || return 1
  grep -E '^[0-9]+ upgraded|^Need to get|^After this operation' <<<"$plan" | sed 's/^/  /'
}

apt_install() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends \
    -q -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=300 "$@"
}

have_pcl_headers() {
  compgen -G "/usr/include/pcl-*/pcl/io/pcd_io.h" >/dev/null ||
    compgen -G "$pcl_dir/usr/include/pcl-*/pcl/io/pcd_io.h" >/dev/null
}

# Unpacks the headers of the Point Cloud Library. Its development package would bring some 700 others if
# it were installed; the headers need none of them but Eigen and Boost.
fetch_pcl_headers() {
  local scratch
  say "fetching the PCL headers (libpcl-dev, 1.2 MB) into build/third_party/pcl; not installed"
  scratch=$(mktemp -d)
  # shellcheck disable=SC2064  # expanded now, since the variable is local
  trap "rm -rf '$scratch'" EXIT
  if [[ $EUID -eq 0 ]] && id -u _apt >/dev/null 2>&1; then
    chown _apt "$scratch"  # apt downloads as its own unprivileged user
  fi
  with_lists download_pcl "$scratch" || die "apt-get download libpcl-dev failed"
  mkdir -p "$scratch/tree" "$(dirname "$pcl_dir")"
  dpkg -x "$scratch"/libpcl-dev_*.deb "$scratch/tree"
  rm -rf "$pcl_dir"
  mv "$scratch/tree" "$pcl_dir"
  have_pcl_headers || die "libpcl-dev holds no pcl/io/pcd_io.h"
}

download_pcl() { (cd "$1" && apt-get download -q libpcl-dev >"$log" 2>&1); }

# Runs a command that needs package lists; where it fails, once more with fresh lists.
with_lists() {
  "$@" || { refresh_lists && "$@"; }
}

refresh_lists() {
  say "refreshing the package lists (apt-get update)"
  as_root apt-get update -q -o DPkg::Lock::Timeout=300 >"$log" 2>&1 ||
    { tail -n 20 "$log" >&2; die "apt-get update failed"; }
}

as_root() {
  if [[ $EUID -eq 0 ]]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    die "neither root nor sudo; have this run as root: $*"
  fi
}

main "$@"
