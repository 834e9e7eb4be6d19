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

# same FILE FILE: both hold the same.
same() {
    diff "$1" "$2" || fail "$1 and $2 differ"
}
