#!/usr/bin/env bash
# log_command_test.sh KESTRUN-LOG LOGS - what the command line promises: exit statuses, what goes
# where, and that nothing is written that was not asked for.
set -euo pipefail
tool=$1
logs=$2
here=$(mktemp -d)
trap 'rm -rf "$here"' EXIT
cd "$here"
failed=0

# check STATUS TEXT ARGUMENTS...: the tool ends with STATUS, and TEXT is in what it says.
check() {
    local wanted=$1 text=$2 status=0
    shift 2
    "$tool" "$@" >"$here/said" 2>&1 </dev/null || status=$?
    if [ "$status" -ne "$wanted" ] || ! grep -qF -- "$text" "$here/said"; then
        echo "kestrun-log $*: status $status, expected $wanted and \"$text\"; it said:"
        sed 's/^/    /' "$here/said"
        failed=1
    fi
}

check 0 'usage: kestrun-log' --help
check 0 'kestrun-log 1.' --version
check 2 'usage: kestrun-log' --nonsense
check 2 'usage: kestrun-log' one two
check 2 'usage: kestrun-log' --svg
check 2 'usage: kestrun-log' --follow --json
check 2 'No such file or directory' "$here/none"
check 2 'Is a directory' "$here"
check 0 'Opened:' "$logs/plugged-in-later.log"
check 1 'Not opened:' "$logs/application-fails-always.log"
check 0 '"findings": false' --json "$logs/plugged-in-later.log"
check 0 'no line of the daemon' -
check 2 'No such file or directory' --svg "$here/none/picture" "$logs/plugged-in-later.log"
[ "$(echo ./*)" = ./said ] || { echo "something was written: $(ls)"; failed=1; }
check 0 'Opened:' --svg "$here/picture.svg" "$logs/plugged-in-later.log"
cmp -s "$logs/plugged-in-later.txt" "$here/said" || { echo 'the text differs with --svg'; failed=1; }
[ "$(echo ./*)" = './picture.svg ./said' ] || { echo "something was written: $(ls)"; failed=1; }

# --follow: a line that is appended is shown.
head -c 2000 "$logs/plugged-in-later.log" >growing.log
"$tool" --follow growing.log >followed &
follower=$!
for _ in $(seq 100); do [ -s followed ] && break; sleep 0.1; done
tail -c +2001 "$logs/plugged-in-later.log" >>growing.log
for _ in $(seq 100); do grep -q '=> Opened:' followed && break; sleep 0.1; done
kill "$follower"
grep -q '=> Opened:' followed || { echo '--follow did not show what was appended'; failed=1; }
exit "$failed"
