#!/usr/bin/env bash
# command_line.sh - what the tests of command lines share; they source it. It makes a folder $here that
# goes when the test ends; they set `program`, and end with `exit "$failed"`.
set -euo pipefail
here=$(mktemp -d)
trap 'rm -rf "$here"' EXIT
failed=0
program=

# fail TEXT...: the test goes on, and ends as failed.
fail() {
    printf '%s\n' "$@"
    # shellcheck disable=SC2034  # the tests end with it
    failed=1
}

# check STATUS TEXT ARGUMENTS...: the program ends with STATUS, and TEXT is in what it says, which is in
# $here/said then.
check() {
    local wanted=$1 text=$2 status=0
    shift 2
    "$program" "$@" >"$here/said" 2>&1 </dev/null || status=$?
    if [ "$status" -ne "$wanted" ] || ! grep -qF -- "$text" "$here/said"; then
        fail "$(basename "$program") $*: status $status, expected $wanted and \"$text\"; it said:"
        sed 's/^/    /' "$here/said"
    fi
}

# lost_reader ARGUMENTS...: when nobody reads what it prints the program says so and ends with 2.
lost_reader() {
    {
        sleep 0.2
        local status=0
        "$program" "$@" 2>"$here/said" </dev/null || status=$?
        echo "$status" >"$here/status"
    } | true
    if [ "$(cat "$here/status")" -ne 2 ] || ! grep -qF 'standard output: Broken pipe' "$here/said"; then
        fail "$(basename "$program") $*, no reader: status $(cat "$here/status"); it said:"
        sed 's/^/    /' "$here/said"
    fi
    rm "$here/status"
}

# same FILE FILE: both hold the same.
same() {
    diff "$1" "$2" || fail "$1 and $2 differ"
}
