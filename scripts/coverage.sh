#!/usr/bin/env bash
# Runs the engine's tests with counters in the engine and prints which of its lines and branches they ran. Fails below
# 95 % of the lines or 90 % of the branches of src/transport and src/aux.
set -eu
cd "$(dirname "$0")/.."
build=build/coverage

cmake --preset coverage >/dev/null
cmake --build "$build" -j "$(nproc)" --target engine_tests
find "$build" -name '*.gcda' -delete
QT_LOGGING_RULES="*.debug=false" ctest --test-dir "$build" --output-on-failure -L engine -j "$(nproc)"

# A branch that only an exception takes is none of ours: nothing here throws.
gcovr --root . --object-directory "$build" --filter src/transport/ --filter src/aux/ \
    --exclude-throw-branches --exclude-unreachable-branches \
    --txt - --html-details "$build/coverage.html" --fail-under-line 95 --fail-under-branch 90
gcovr --root . --object-directory "$build" --filter src/transport/ --filter src/aux/ \
    --exclude-throw-branches --exclude-unreachable-branches --branches
