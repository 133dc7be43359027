#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Builds the program with its tests twice (Release, and Address+UB sanitizers)
# and runs every test through CTest against a private PulseAudio daemon.
# Exits non-zero when anything fails.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

scripts/deps.sh

# Compiler cache keyed on paths relative to the checkout, so a fresh clone
# reuses what an earlier build compiled.
export CCACHE_BASEDIR="$root"

cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j2
cmake -S . -B build/sanitize -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELTRANE_SANITIZE=ON >/dev/null
cmake --build build/sanitize -j2

export ASAN_OPTIONS=detect_leaks=0:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
scripts/pulse-session.sh bash -c '
    status=0
    echo "== Release build tests"
    ctest --test-dir build/release --output-on-failure -j2 || status=1
    echo "== Sanitizer build tests"
    ctest --test-dir build/sanitize --output-on-failure -j2 || status=1
    exit $status
'
