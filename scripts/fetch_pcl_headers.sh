#!/usr/bin/env bash
# Unpacks the headers of the Point Cloud Library into build/third_party/pcl, for all presets.
#
# Only the development package itself is downloaded (about 1 MB) and nothing is installed: the package
# depends on some 700 others, and the headers need none of them but Eigen and Boost.
# Does nothing, and needs no network, where the headers are installed or unpacked already.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
target=$root/build/third_party/pcl

have_headers() {
  compgen -G "$target/usr/include/pcl-*/pcl/io/pcd_io.h" >/dev/null ||
    compgen -G "/usr/include/pcl-*/pcl/io/pcd_io.h" >/dev/null
}

if have_headers; then
  exit 0
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
chmod 755 "$scratch"  # apt reads and writes here as its own unprivileged user
if [[ $EUID -eq 0 ]] && id -u _apt >/dev/null 2>&1; then
  chown _apt "$scratch"
fi

echo "Fetching the headers of libpcl-dev into build/third_party/pcl (about 1 MB; nothing is installed)"
(cd "$scratch" && apt-get download -q libpcl-dev)

mkdir -p "$scratch/tree" "$(dirname "$target")"
dpkg -x "$scratch"/libpcl-dev_*.deb "$scratch/tree"
rm -rf "$target"
mv "$scratch/tree" "$target"
have_headers || { echo "fetch_pcl_headers: the package holds no pcl/io/pcd_io.h" >&2; exit 1; }
