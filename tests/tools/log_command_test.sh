#!/usr/bin/env bash
# log_command_test.sh KESTRUN-LOG LOGS - what the command line promises: exit statuses, what goes
# where, and that nothing is written that was not asked for.
# shellcheck source=tests/support/command_line.sh
source "$(dirname "$0")/../support/command_line.sh"
program=$1
logs=$2
cd "$here"

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
[ "$(echo ./*)" = ./said ] || fail "something was written: $(ls)"
check 0 'Opened:' --svg "$here/picture.svg" "$logs/plugged-in-later.log"
cmp -s "$logs/plugged-in-later.txt" "$here/said" || fail 'the text differs with --svg'
[ "$(echo ./*)" = './picture.svg ./said' ] || fail "something was written: $(ls)"

# --follow: a line that is appended is shown.
head -c 2000 "$logs/plugged-in-later.log" >growing.log
"$program" --follow growing.log >followed &
follower=$!
for _ in $(seq 100); do [ -s followed ] && break; sleep 0.1; done
tail -c +2001 "$logs/plugged-in-later.log" >>growing.log
for _ in $(seq 100); do grep -q '=> Opened:' followed && break; sleep 0.1; done
kill "$follower"
grep -q '=> Opened:' followed || fail '--follow did not show what was appended'
exit "$failed"
