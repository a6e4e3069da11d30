#!/usr/bin/env bash
# Unpacks Debian's armhf packages named on the command line, with everything
# they depend on, under DEST/root, for a cross build to run against. apt works
# on a private state in DEST/apt, so the machine's own package set is not
# touched: registering armhf there would tie every shared library to the
# host's exact version, and one armhf index behind the host's breaks apt.
#   armhf-sysroot.sh DEST PACKAGE...
set -euo pipefail
dest=$(realpath -m "$1")  # apt reads its folders from /
shift
[ -f "$dest/root/.complete" ] && exit 0
apt_dir=$dest/apt
mkdir -p "$apt_dir"/lists/partial "$apt_dir"/archives/partial "$apt_dir"/preferences.d "$dest/root"
: >"$apt_dir/status"  # nothing installed: every dependency is fetched
echo "deb [arch=armhf signed-by=/usr/share/keyrings/debian-archive-keyring.gpg]" \
  "http://deb.debian.org/debian bookworm main" >"$apt_dir/sources.list"
apt=(apt-get -qq
  -o APT::Architecture=armhf -o APT::Architectures::=armhf -o APT::Install-Recommends=0
  -o Dir::State="$apt_dir" -o Dir::State::Lists="$apt_dir/lists" -o Dir::State::status="$apt_dir/status"
  -o Dir::Cache="$apt_dir" -o Dir::Cache::Archives="$apt_dir/archives"
  -o Dir::Etc::SourceList="$apt_dir/sources.list" -o Dir::Etc::SourceParts=/dev/null
  -o Dir::Etc::Preferences=/dev/null -o Dir::Etc::PreferencesParts="$apt_dir/preferences.d"
  -o Debug::NoLocking=1)
"${apt[@]}" update
"${apt[@]}" -y --download-only install "$@"
for deb in "$apt_dir"/archives/*.deb; do dpkg-deb -x "$deb" "$dest/root"; done
# Unpacked, not installed: the links update-alternatives would make for the
# BLAS and LAPACK that OpenCV's core links.
libdir=$dest/root/usr/lib/arm-linux-gnueabihf
for lib in blas/libblas.so.3 lapack/liblapack.so.3; do
  [ -e "$libdir/$lib" ] && ln -sfn "$lib" "$libdir/$(basename "$lib")"
done
touch "$dest/root/.complete"
