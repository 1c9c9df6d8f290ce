#!/bin/sh
# Builds the Debian packages of this tree into build/release/packages: the same bytes wherever, whenever and by whom.
set -eu
SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -l packaging/changelog -S Timestamp)
export SOURCE_DATE_EPOCH
cmake --preset release -DBUILD_TESTING=OFF >/dev/null
cmake --build --preset release >/dev/null
cmake --build --preset release --target bill site >/dev/null
cmake --build --preset release --target package >/dev/null
