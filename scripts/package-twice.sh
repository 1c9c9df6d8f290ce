#!/usr/bin/env bash
# Has reprotest build the packages twice, from copies of the tracked files, and change in between what a build must not
# depend on.
set -euo pipefail
cd "$(dirname "$0")/.."
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
git ls-files -z | xargs -0 tar --create | tar --extract --directory "$scratch"
variations=+environment,+build_path,+exec_path,+home,+locales,+timezone,+time,+umask,+aslr,+num_cpus
reprotest --variations "$variations" --min-cpus 1 --store-dir "$scratch/store" \
    --build-command 'scripts/build-packages.sh' "$scratch" 'build/release/packages/*.deb'
