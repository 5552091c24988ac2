#!/usr/bin/env bash
# Builds and runs every test: all of them with warnings as errors, the fast ones again under the sanitizers.
set -eu
cd "$(dirname "$0")/.."
jobs=$(nproc)
export QT_LOGGING_RULES="*.debug=false"

cmake --preset ci >/dev/null
cmake --build build/ci -j "$jobs"
cmake --preset asan >/dev/null

# The system tests mostly wait. In the time that they leave over the sanitizers' programs are built, and every parser of
# outside bytes is given broken ones. It says when each of both is done.
exec 3< <(exec setsid chrt --idle 0 ionice -c 3 bash -c '
    cmake --build build/asan -j '"$jobs"' --target fast_tests >build/asan.log 2>&1 && echo built &&
    ctest --test-dir build/asan --output-on-failure -L fuzz -j '"$jobs"' >build/fuzz.log 2>&1 && echo passed')
trap 'kill -- -$! 2>/dev/null || true' EXIT

echo "== all tests"
ctest --test-dir build/ci --output-on-failure -LE system -j "$jobs"
ctest --test-dir build/ci --output-on-failure -L system

echo "== fast tests under AddressSanitizer and UndefinedBehaviorSanitizer"
read -r -u 3 || { cat build/asan.log; exit 1; }
ctest --test-dir build/asan --output-on-failure -L fast -j "$jobs"

echo "== broken bytes"
read -r -u 3 || { cat build/fuzz.log; exit 1; }
tail -n 20 build/fuzz.log
