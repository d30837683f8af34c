#!/usr/bin/env bash
# Makes a folder of Debian's AArch64 libraries, for building and trying the project for that architecture.
#
#   scripts/make_arm64_root.sh [FOLDER]       build/arm64 by default; the libraries are in FOLDER/root
#
# The packages come from where this machine's come from, and apt checks their signatures as it does for them.
# They are unpacked, not installed: nothing of them runs here, and nothing of this machine changes. A
# folder that was made from the same list of packages is kept; delete it to have newer ones.
set -euo pipefail

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
folder=${1:-$top/build/arm64}
root=$folder/root
log=$folder/log

# What is compiled and linked against; what that needs in turn comes with it. The same as in the group
# "build" of install_packages.sh, less what runs on the machine that builds.
packages=(
  libc6-dev libstdc++6
  liblz4-dev libzstd-dev libdeflate-dev libprotobuf-dev libyaml-cpp-dev libfmt-dev libcli11-dev
  nlohmann-json3-dev libeigen3-dev libboost-dev libopencv-core-dev libopencv-imgcodecs-dev
  libopencv-videoio-dev libavcodec-dev libavutil-dev libavformat-dev libswscale-dev libturbojpeg0-dev
  libgtest-dev libgmock-dev
)
# Of these the headers alone, without what the package depends on.
alone=(libpcl-dev)

say() { printf 'arm64 root: %s\n' "$*"; }
die() { printf 'arm64 root: %s\n' "$*" >&2; exit 1; }

main() {
  local wanted
  wanted=$(recipe)
  [[ ! -f $folder/made_from || $(<"$folder/made_from") != "$wanted" ]] || return 0
  say "making the AArch64 libraries in ${root#"$top"/}; details go to ${log#"$top"/}"
  # Packages of before, too: of one in two versions the older could be unpacked last.
  rm -rf --one-file-system "$root" "$folder"/{debs,alone,made_from}
  mkdir -p "$folder"/{debs,alone}/partial "$folder/lists/partial" "$root"
  : >"$log"
  write_apt_config
  apt_get update || failed "apt-get update"
  plan
  apt_get install --download-only "${packages[@]}" || failed "downloading"
  (cd "$folder/alone" && apt_get download "${alone[@]}") || failed "downloading"
  unpack
  mend
  printf '%s\n' "$wanted" >"$folder/made_from"
  say "done: $(find "$folder"/debs "$folder"/alone -name '*.deb' | wc -l) packages," \
    "$(du -sh "$root" | cut -f 1)"
}

# What decides how the root comes out: this script, and which release it is of.
recipe() {
  sha256sum <"${BASH_SOURCE[0]}" | cut -d ' ' -f 1
  # shellcheck disable=SC1091  # a file of the machine
  (. /etc/os-release && printf '%s\n' "${VERSION_CODENAME:-}")
}

# apt as if on a machine of the other architecture that has nothing installed, with this one's sources and keys.
write_apt_config() {
  : >"$folder/status"
  cat >"$folder/apt.conf" <<TEXT
APT::Architecture "arm64";
#clear APT::Architectures;
APT::Architectures { "arm64"; };
APT::Install-Recommends "false";
APT::Sandbox::User "$(id -un)";
APT::Get::AllowUnauthenticated "false";
Acquire::Languages "none";
Dir::State "$folder";
Dir::State::status "$folder/status";
Dir::State::lists "$folder/lists";
Dir::Cache "$folder";
Dir::Cache::archives "$folder/debs";
// Hooks of this machine are about this machine's packages.
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
#clear DPkg::Pre-Install-Pkgs;
#clear DPkg::Pre-Invoke;
#clear DPkg::Post-Invoke;
TEXT
}

apt_get() { apt-get -c "$folder/apt.conf" -q -y "$@" >>"$log" 2>&1; }

plan() {
  local plan
  plan=$(LC_ALL=C apt-get -c "$folder/apt.conf" install --print-uris -q -y "${packages[@]}" 2>>"$log") ||
    failed "finding the packages"
  grep -E '^[0-9]+ upgraded|^Need to get' <<<"$plan" | sed 's/^/  /'
}

# Folders that are one since Debian's /usr merge are one here too.
unpack() {
  local file name
  for name in bin lib sbin; do
    mkdir -p "$root/usr/$name"
    ln -s "usr/$name" "$root/$name"
  done
  for file in "$folder"/debs/*.deb "$folder"/alone/*.deb; do
    dpkg-deb --fsys-tarfile "$file" | tar -x -C "$root" --keep-directory-symlink --no-same-owner \
      --exclude='./usr/share/doc' --exclude='./usr/share/man' --exclude='./usr/share/locale' ||
      failed "unpacking ${file##*/}"
  done
}

# What the packages' own scripts would have done that matters here.
mend() {
  local library=$root/usr/lib/aarch64-linux-gnu name link target
  # The one implementation of each that is here becomes the one that is found.
  for name in blas lapack; do
    [[ -e $library/lib$name.so.3 ]] || ln -s "$name/lib$name.so.3" "$library/lib$name.so.3"
  done
  # A link to an absolute place means a place in here.
  while IFS= read -r -d '' link; do
    target=$(readlink "$link")
    ln -sfn --relative "$root$target" "$link" 2>/dev/null || ln -sfn "$root$target" "$link"
  done < <(find "$root" -type l -lname '/*' -print0)
}

failed() {
  tail -n 20 "$log" >&2
  die "$1 failed; see $log"
}

main "$@"
