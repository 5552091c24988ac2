#!/usr/bin/env bash
# Builds and runs every test: all of them with warnings as errors, the fast ones again under the sanitizers.
set -eu
cd "$(dirname "$0")/.."
jobs=$(nproc)

cmake --preset ci >/dev/null
cmake --build build/ci -j "$jobs"

cmake --preset asan >/dev/null
cmake --build build/asan -j "$jobs" --target fast_tests

export QT_LOGGING_RULES="*.debug=false"
echo "== fast tests under AddressSanitizer and UndefinedBehaviorSanitizer"
ctest --test-dir build/asan --output-on-failure -L fast -j "$jobs"
echo "== every parser of outside bytes against broken ones, a minute each"
ctest --test-dir build/asan --output-on-failure -L fuzz -j "$jobs"
echo "== all tests"
ctest --test-dir build/ci --output-on-failure -LE system -j "$jobs"
ctest --test-dir build/ci --output-on-failure -L system
