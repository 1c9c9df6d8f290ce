#!/usr/bin/env bash
# Builds the Debian packages, runs lintian on them, unpacks them into a scratch root and runs the demo and the kit's
# example from there; then installs and uninstalls without a package.
#   check-package.sh BUILD_FOLDER
set -euo pipefail
build=$(realpath "$1")
root=$(dirname "$(dirname "$(realpath "$0")")")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

rm -rf "$build/packages"
{
    cmake --build "$build" --target bill site
    cmake --build "$build" --target package
} >"$scratch/log" || { cat "$scratch/log" >&2; exit 1; }
lintian --fail-on error "$build"/packages/*.deb
for package in "$build"/packages/*.deb; do
    dpkg-deb --extract "$package" "$scratch/root"
done
for file in bin/halcyon-tv bin/halcyon-lineup share/man/man1/halcyon-tv.1.gz share/man/man1/halcyon-lineup.1.gz \
    share/bash-completion/completions/halcyon-tv share/zsh/vendor-completions/_halcyon-tv \
    share/fish/vendor_completions.d/halcyon-tv.fish share/doc/halcyon-tv/halcyon-tv.spdx.json \
    share/doc/halcyon-tv-doc/html/index.html src/halcyon-lineup/src/AppMain.cpp; do
    [ -f "$scratch/root/usr/$file" ] || { echo "check-package: no /usr/$file in the packages" >&2; exit 1; }
done
"$root/scripts/demo.sh" "$scratch/root/usr/bin" >"$scratch/log" || { cat "$scratch/log" >&2; exit 1; }

DESTDIR=$scratch/stage cmake --install "$build" --prefix /usr/local >/dev/null
DESTDIR=$scratch/stage cmake --build "$build" --target uninstall >/dev/null
left=$(find "$scratch/stage" ! -type d)
[ -z "$left" ] || { echo "check-package: left by uninstall: $left" >&2; exit 1; }

# The C++ kit: a project elsewhere builds the application and tests it.
example=$scratch/root/usr/share/doc/libhalcyon-tv-dev/examples/example
cmake -S "$example" -B "$scratch/mine" -DCMAKE_PREFIX_PATH="$scratch/root/usr" \
    -DSOURCES="$scratch/root/usr/src/halcyon-lineup" >/dev/null
{
    cmake --build "$scratch/mine"
    PATH=$scratch/root/usr/bin:$PATH ctest --test-dir "$scratch/mine" --output-on-failure
} >"$scratch/log" || { cat "$scratch/log" >&2; exit 1; }
grep -q "100% tests passed, 0 tests failed out of 2" "$scratch/log" || { cat "$scratch/log" >&2; exit 1; }

# The source package builds for a TV: with the platform's headers and nothing else of this tree.
mkdir "$scratch/sdk"
cp -r "$root/platform" "$scratch/sdk/"
cmake -S "$scratch/root/usr/src/halcyon-lineup" -B "$scratch/tv" -DHALCYON_PLATFORM_SDK="$scratch/sdk" >/dev/null
cmake --build "$scratch/tv" --target lineup >"$scratch/log" || { cat "$scratch/log" >&2; exit 1; }
echo "check-package: packaged, run from a scratch root, installed and uninstalled"
