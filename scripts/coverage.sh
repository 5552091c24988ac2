#!/usr/bin/env bash
# Runs the tests of the engine and those of the controller with counters, each with its own folders, and prints which
# of their lines and branches they ran. Fails where a group is below 95 % of its lines or 90 % of its branches.
set -eu
cd "$(dirname "$0")/.."
build=build/coverage
failed=0

# measure LABEL FOLDERS...: the tests of a label, counted in folders of src/.
measure() {
    label=$1
    shift
    folders=()
    for folder in "$@"; do
        folders+=(--filter "src/$folder/")
    done
    # A branch that only an exception takes is none of ours: nothing here throws.
    count=(gcovr --root . --object-directory "$build" "${folders[@]}"
        --exclude-throw-branches --exclude-unreachable-branches)
    find "$build" -name '*.gcda' -delete
    QT_LOGGING_RULES="*.debug=false" ctest --test-dir "$build" --output-on-failure -L "$label" -j "$(nproc)"
    "${count[@]}" --txt - --html-details "$build/coverage-$label.html" --fail-under-line 95 --fail-under-branch 90 ||
        failed=1
    "${count[@]}" --branches
}

cmake --preset coverage >/dev/null
cmake --build "$build" -j "$(nproc)" --target engine_tests controller_tests
measure engine transport aux
measure controller app config alarms media
exit "$failed"
