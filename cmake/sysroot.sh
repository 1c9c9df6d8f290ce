#!/usr/bin/env bash
# The libraries and headers that the project is built with, for another processor, in a folder of their own: apt works
# there with a state of its own, independent of what is installed on this machine.
#   sysroot.sh ARCHITECTURE FOLDER PACKAGE...
set -euo pipefail

architecture=$1
folder=$(realpath -m "$2")
shift 2
packages=("$@")
wanted="$architecture ${packages[*]}"
if [ "$(cat "$folder/made-of" 2>/dev/null)" = "$wanted" ]; then
    exit 0
fi

rm -rf "$folder"
mkdir -p "$folder"/{root,apt/lists/partial,apt/archives/partial}
touch "$folder/apt/status"
# An empty state: no package counts as installed, so all dependencies come along.
own_apt() {
    apt-get -qq -o APT::Architecture="$architecture" -o APT::Architectures="$architecture" \
        -o Dir::State::lists="$folder/apt/lists" -o Dir::State::status="$folder/apt/status" \
        -o Dir::Cache::archives="$folder/apt/archives" -o Dir::Cache::pkgcache="" -o Dir::Cache::srcpkgcache="" \
        -o Debug::NoLocking=1 -o APT::Sandbox::User="" -o APT::Install-Recommends=false "$@"
}
own_apt update || echo "sysroot: some lists of packages could not be had; trying with the others" >&2
own_apt install --download-only -y "${packages[@]}" >"$folder/apt/log" || { cat "$folder/apt/log" >&2; exit 1; }
for package in "$folder"/apt/archives/*.deb; do
    dpkg-deb -x "$package" "$folder/root"
done
# Links to absolute targets would lead out of the folder.
find "$folder/root" -type l -lname '/*' -printf '%p %l\n' | while read -r link target; do
    ln -sfr "$folder/root$target" "$link"
done
rm -rf "$folder/apt"
echo "$wanted" >"$folder/made-of"
