#!/usr/bin/env bash
# command_test.sh KESTRUN-CONFORMANCE - mistakes get one line with the remedy, and whatever becomes of a
# run, nothing is left mounted and no file behind.
# shellcheck source=tests/support/command_line.sh
source "$(dirname "$0")/../support/command_line.sh"
program=$1
cd "$here"
export TMPDIR=$here/temporary
mkdir "$TMPDIR"

# one_line: what the program said was one line.
one_line() {
    [ "$(wc -l <"$here/said")" -eq 1 ] || fail "not one line: $(cat "$here/said")"
}

# nothing_left: no folder of the run, no mount of it, no process of it.
nothing_left() {
    [ -z "$(ls -A "$TMPDIR")" ] || fail "left behind: $(ls "$TMPDIR")"
    ! grep -q "$TMPDIR\|/Volumes/K[0-9]" /proc/self/mountinfo || fail "still mounted"
}

check 0 'usage: kestrun-conformance' --help
check 2 'what is --nonsense? See --help' --nonsense
one_line
check 2 'what is --report? See --help' --yes --report
one_line
check 2 'there is no terminal to ask: add --yes'
one_line
check 2 'name another file after --report' --yes --report "$here/none/report"
one_line
TMPDIR=$here/none check 77 'set TMPDIR to a folder with room' --yes
one_line
nothing_left

# Without rights: a user whom no namespace is left.
status=0
unshare --user "$program" --yes --quick >said 2>&1 </dev/null || status=$?
if [ "$status" -eq 77 ]; then
    grep -q '^kestrun-conformance: no private world (.*): run it as root$' said || fail "$(cat said)"
    one_line
fi
nothing_left

# A run that is stopped on the way.
"$program" --yes --report report >printed 2>said </dev/null &
run=$!
for _ in $(seq 100); do
    ! grep -q '^ok 6' printed || break
    sleep 0.1
done
kill -TERM "$run"
status=0
wait "$run" || status=$?
if [ "$status" -ne 77 ]; then
    [ "$status" -eq 1 ] || fail "stopped: status $status"
    [ "$(tail -n 1 report)" = 'Bail out! the checks ended by signal 15' ] || fail "$(cat report)"
    cmp -s report printed || fail 'the report is not what was printed'
fi
nothing_left

exit "$failed"
