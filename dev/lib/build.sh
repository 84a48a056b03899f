# shellcheck shell=bash
# Building a preset of CMakePresets.json, and running its tests in the sandbox.
. "$projectRoot/dev/lib/packages.sh"

# What an installation consists of: the runner, and its helpers of libexec/.
# shellcheck disable=SC2034 # for those who source this
programs=(zvtaskq zvdb zvmailusage zvcert)

# buildPreset PRESET [TARGET...]: configures when that was not done since the presets changed, and builds; below
# build/PRESET.
buildPreset() {
    local preset=$1 folder=$projectRoot/build/$1
    shift
    (
        cd "$projectRoot" || exit 1
        [[ $folder/build.ninja -nt CMakePresets.json ]] || cmake --preset "$preset" >&2
        cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"} >&2
    )
}

# buildPlain COMPILER [CMAKE-ARGUMENT...]: builds as one does who knows nothing of presets; below build/plain-COMPILER.
buildPlain() {
    local folder=$projectRoot/build/plain-$1
    # What an earlier configuration chose would hide the defaults.
    rm -f "$folder/CMakeCache.txt"
    cmake -S "$projectRoot" -B "$folder" -DCMAKE_CXX_COMPILER="$1" "${@:2}" && cmake --build "$folder" --parallel "$(nproc)"
}

# packagesIn LIST: the packages that a packages.list names, joined with ",".
packagesIn() {
    sed 's/#.*//' "$1" | xargs | tr ' ' ','
}

# suiteCount FILE ATTRIBUTE: a number from the head of a JUnit report.
suiteCount() {
    sed -n '/<testsuite/,/>/p' "$1" | grep -o "$2=\"[0-9]*\"" | head -1 | tr -dc 0-9
}

# printSkips FILE: each skipped test of a JUnit report, with what it said.
printSkips() {
    awk '/<testcase / { name = $0; sub(/.* name="/, "", name); sub(/".*/, "", name); skipped = 0 }
         /<skipped|status="(disabled|notrun)"/ && !skipped { skipped = 1; print "SKIPPED " name }
         /: Skipped$/ { getline; print "        " $0 }' "$1"
}

# runTests PRESET [CTEST-ARGUMENT...]: sets $passed, $failed and $skipped; where CI is true a skip is a failure.
runTests() {
    local folder=$projectRoot/build/$1 results=$projectRoot/build/$1/results packages
    shift
    rm -rf "$results"
    packages=$(packagesIn "$projectRoot/tests/packages.list")
    passed=0 failed=1 skipped=0
    # The report decides, not the exit status: without one, or without a single test, something is wrong.
    "$projectRoot/dev/sandbox" ${packages:+--with "$packages"} --out "$results" -- \
        ctest --test-dir "$folder" --output-on-failure --no-tests=error --timeout 300 --parallel 2 \
        --output-junit "$results/tests.xml" "$@" || true
    [[ -s $results/tests.xml ]] || return 0
    failed=$(suiteCount "$results/tests.xml" failures)
    skipped=$(($(suiteCount "$results/tests.xml" skipped) + $(suiteCount "$results/tests.xml" disabled)))
    passed=$(($(suiteCount "$results/tests.xml" tests) - failed - skipped))
    ((skipped == 0)) || printSkips "$results/tests.xml"
    [[ ${CI:-} != true ]] || failed=$((failed + skipped))
    ((passed + failed + skipped > 0)) || failed=1
}

# finish PASSED FAILED: the last line of every script that counts, and its exit status.
finish() {
    printf '%d passed, %d failed\n' "$1" "$2"
    (($2 == 0)) || exit 1
    exit 0
}
