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

# Every parser of outside bytes against broken ones, a minute each, in the time that the tests below leave over.
chrt --idle 0 ctest --test-dir build/asan --output-on-failure -L fuzz -j "$jobs" >build/fuzz.log 2>&1 &
fuzz=$!
trap 'kill $fuzz 2>/dev/null || true' EXIT
echo "== all tests"
ctest --test-dir build/ci --output-on-failure -LE system -j "$jobs"
ctest --test-dir build/ci --output-on-failure -L system
echo "== broken bytes"
wait $fuzz || { cat build/fuzz.log; exit 1; }
tail -n 20 build/fuzz.log
