#!/usr/bin/env bash
# command_test.sh PROGRAM VERSION - the arguments of kestrun-status and what they give.
set -euo pipefail
program=$1
version=$2
failed=0

# check STATUS STREAM TEXT ARGUMENTS...: the program ends with STATUS, and the first line that it
# prints to STREAM (out or err) is TEXT; the other stream stays empty.
check() {
    local wanted=$1 stream=$2 text=$3 status=0 out err
    shift 3
    err=$(mktemp)
    out=$("$program" "$@" 2>"$err") || status=$?
    local said=$out other
    other=$(cat "$err")
    if [ "$stream" = err ]; then
        said=$other
        other=$out
    fi
    rm -f "$err"
    if [ "$status" -ne "$wanted" ] || [ "${said%%$'\n'*}" != "$text" ] || [ -n "$other" ]; then
        echo "kestrun-status $*: status $status, expected $wanted and \"$text\"; it said: $said $other"
        failed=1
    fi
}

check 0 out "usage: kestrun-status [--json]" --help
check 0 out "kestrun-status $version" --version
check 2 err "usage: kestrun-status [--json]" --jason
check 2 err "usage: kestrun-status [--json]" file
check 2 err "usage: kestrun-status [--json]" --json file
if [ -w /dev/full ]; then
    for option in --json --help --version; do
        status=0
        "$program" "$option" >/dev/full 2>/dev/null || status=$?
        [ "$status" -eq 2 ] || { echo "a full output, $option: status $status" && failed=1; }
    done
fi
for option in --json --help --version; do
    said=$({ { sleep 0.2; status=0; "$program" "$option" 2>&3 || status=$?; echo "$status" >&3; } | true; } 3>&1)
    [ "$said" = "kestrun-status: standard output: Broken pipe
2" ] || { echo "no reader, $option: $said" && failed=1; }
done
exit "$failed"
