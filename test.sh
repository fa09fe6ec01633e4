#!/usr/bin/env bash
# Installs what is missing, builds and runs all tests, without a display.
#   ./test.sh             the release preset
#   ./test.sh asan|tsan   the same tests under the address+undefined or the thread sanitizer (needs clang)
set -euo pipefail
cd "$(dirname "$0")"
. scripts/packages.sh

preset=${1:-release}
packages="$build_packages $test_packages"
case "$preset" in
    release) ;;
    asan | tsan) packages="$packages clang libclang-rt-14-dev llvm" ;;
    *) echo "usage: ./test.sh [release | asan | tsan]" >&2; exit 2 ;;
esac
# shellcheck disable=SC2086
install_packages $packages
cmake --preset "$preset" -DORV_BUILD_TESTS=ON >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
