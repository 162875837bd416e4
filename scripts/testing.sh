# Running parts of the tests and adding up what they say. Sourced by ./zel.

passed=0
failed=0

count() {   # count PASSED FAILED
    passed=$((passed + $1))
    failed=$((failed + $2))
}

# test_preset PRESET [CTEST OPTION ...]: runs the tests of a build. One that cannot be run counts as failed.
test_preset() {
    local preset=$1 log=build/$1.test.log total bad skipped
    shift
    say "testing $preset"
    ctest --preset "$preset" --no-tests=error -j "$(nproc)" "$@" 2>&1 | tee "$log" | grep -vE '^ +Start +[0-9]+:|Passed +[0-9.]+ sec$' || true
    total=$(sed -n 's/.* tests failed out of \([0-9]*\)$/\1/p' "$log")
    bad=$(sed -n 's/.*passed, \([0-9]*\) tests failed out of.*/\1/p' "$log")
    if [ -z "$total" ] || [ "$total" = 0 ]; then
        echo "zel: the tests of $preset did not run" >&2
        count 0 1
    else
        skipped=$(grep -cE '^ *[0-9]+/[0-9]+ Test .*\*\*\*Skipped' "$log" || true)
        [ "$skipped" = 0 ] || echo "LEFT OUT: $skipped tests of $preset that this machine cannot run"
        count $((total - bad - skipped)) "$bad"
    fi
}

# optional_part WHAT COMMAND ...: a part that says itself what it counted in its last line; status 77 means that this machine
# cannot run it, which is said and counted nowhere.
optional_part() {
    local what=$1 log status=0 last
    shift
    say "testing $what"
    log=$(mktemp)
    "$@" 2>&1 | tee "$log" || status=${PIPESTATUS[0]}
    last=$(tail -n 1 "$log")
    rm -f "$log"
    if [ "$status" = 77 ]; then
        echo "LEFT OUT: $what (see above)"
    elif [[ $last =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
        count "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
        [ "$status" = 0 ] || [ "${BASH_REMATCH[2]}" != 0 ] || count 0 1
    else
        echo "zel: $what ended with status $status and without a count" >&2
        count 0 1
    fi
}

# The last line of every command that tests. Its status tells whether all passed.
print_totals() {
    echo "$passed passed, $failed failed"
    [ "$failed" = 0 ] && [ "$passed" -gt 0 ]
}
