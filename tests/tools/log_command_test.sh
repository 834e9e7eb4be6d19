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

# Nothing that a device put into the log steers a terminal, in JSON neither.
printf 'line 1===2026-11-20 9:5:3   Kestrun:main --- a\302\2332J\342\200\256\377\n' >steering
check 1 '"message": "a\u009b2J\u202e\ufffd"' --json steering
check 1 'Kestrun:main --- a\xC2\x9B2J\xE2\x80\xAE\xFF' steering

# What is no log, and what cannot be read or written.
: >nothing
printf 'no line of it\n' >foreign
head -c 100000 /dev/urandom >random
check 0 'no line of the daemon' nothing
check 1 'no line of the daemon' foreign
check 1 'no line of the daemon' random
check 2 ': No such file or directory' ''
check 2 ': No such file or directory' --svg '' "$logs/plugged-in-later.log"
cp "$logs/plugged-in-later.log" mine && ln -s mine other
check 2 'mine: that is the log itself' --svg mine mine
check 2 'other: that is the log itself' --svg other ./mine
cmp -s mine "$logs/plugged-in-later.log" || fail 'the picture took the place of the log'
check 2 'Is a directory' --svg . "$logs/plugged-in-later.log"
check 2 'usage: kestrun-log' --follow -
check 2 'Is a directory' --follow .
check 2 'nothing/log: Not a directory' --follow nothing/log
check 2 ': No such file or directory' --follow ''
# Every byte, and characters that are valid UTF-8 and no text, in the command of the sentence.
{
    sed '/RunShellProgram --- RunShellProgram exit true.(open/,$d' "$logs/plugged-in-later.log"
    printf 'line 63===2026-11-21 14:49:18   Process:RunShellProgram --- RunShellProgram exit true.(open '
    for byte in $(seq 1 9) $(seq 11 255); do
        # shellcheck disable=SC2059  # the format is the byte
        printf "\\x$(printf %x "$byte")"
    done
    printf '\xEF\xBF\xBE\xEF\xBF\xBF\xC2\x9B)\n'
} >bytes
check 0 '=> Opened:' bytes

# A log that went through an editor or a mail program tells the same, with a note on what became of it.
{
    printf '\xEF\xBB\xBF'
    sed 's/$/\r/' "$logs/plugged-in-later.log"
} >mailed
check 0 'every line ends in CR LF: ' mailed
grep -v '^the file begins with a byte-order mark: \|^every line ends in CR LF: ' said |
    cmp -s - "$logs/plugged-in-later.txt" || fail 'a log with CR LF tells something else'
check 0 'every line ends in CR LF: ' --json mailed
for log in nothing foreign random bytes mailed "$logs"/*.log; do
    status=0
    "$program" --json --calls --svg picture.svg "$log" >said || status=$?
    [ "$status" -le 1 ] || fail "$log: status $status"
    python3 -m json.tool said >/dev/null || fail "$log: no JSON"
    python3 -c 'import sys, xml.dom.minidom as dom; dom.parse(sys.argv[1])' picture.svg ||
        fail "$log: no XML"
done
if [ -w /dev/full ]; then
    for option in --help --version "$logs/plugged-in-later.log"; do
        status=0
        "$program" "$option" >/dev/full 2>said || status=$?
        [ "$status" -eq 2 ] || fail "a full output, $option: status $status"
    done
fi
lost_reader --help
lost_reader --version
lost_reader "$logs/plugged-in-later.log"
lost_reader --json "$logs/plugged-in-later.log"
lost_reader --follow "$logs/plugged-in-later.log"
if [ "$(id -u)" -eq 0 ] && command -v setpriv >/dev/null; then
    chmod 755 .
    cp "$logs/plugged-in-later.log" locked && chmod 000 locked
    mkdir -m 700 closed
    for options in locked '--follow locked' '--follow closed/log'; do
        status=0
        # shellcheck disable=SC2086  # a list of words
        setpriv --reuid=65534 --clear-groups "$program" $options 2>said || status=$?
        { [ "$status" -eq 2 ] && grep -q ': Permission denied' said; } ||
            [ "$status" -eq 126 ] || [ "$status" -eq 127 ] || fail "a locked log: status $status"
    done
fi

# A log at its cap is explained within a second of the processor's time (the machine may be busy), when it
# is not watched by a sanitizer and its lines are not counted.
if ! grep -qaE '__asan_init|__gcov_' "$program"; then
    while [ "$(stat -c %s full 2>/dev/null || echo 0)" -lt 10000000 ]; do
        for _ in $(seq 200); do cat "$logs/plugged-in-later.log"; done >>full
    done
    # So is one of as many modems as can be, none of whose mounts ends, and one of as many starts.
    seq 120000 | sed 's/.*/line &===2026-11-20 9:5:3   Kestrun:DiskPeekCallback --- DiskPeekCallback Enter/' >peeks
    sed 's/^line [0-9]*/line 1/' peeks >starts
    for options in full '--json full' '--calls full' peeks starts; do
        # shellcheck disable=SC2086  # a list of words
        seconds=$( { TIMEFORMAT='%U %S'; time "$program" $options >/dev/null || true; } 2>&1 |
            awk '{ print int($1 + $2) }')
        [ "$seconds" -eq 0 ] || fail "10 MB, $options: more than $seconds s"
    done
fi

# --follow: a line that is appended is shown; a log that is replaced, emptied or missing for a while is
# shown from its start.
# await TEXT TIMES: it is shown so often.
await() {
    local count=0
    for _ in $(seq 100); do
        count=$(grep -c -- "$1" followed || true)
        [ "$count" -lt "$2" ] || break
        sleep 0.1
    done
    [ "$count" -eq "$2" ] || fail "--follow has shown \"$1\" $count times, expected $2"
}
head -c 2000 "$logs/plugged-in-later.log" >growing.log
"$program" --follow growing.log >followed &
follower=$!
await 'TOOL-' 1
tail -c +2001 "$logs/plugged-in-later.log" >>growing.log
await '=> Opened:' 1
cp "$logs/plugged-in-later.log" next && mv next growing.log
await '=> Opened:' 2
: >growing.log
sleep 0.5
cat "$logs/application-fails-always.log" >>growing.log
await '=> Not opened:' 1
rm growing.log
sleep 0.5
cp "$logs/plugged-in-later.log" growing.log
await '=> Opened:' 3
kill -0 "$follower" 2>/dev/null || fail '--follow has ended'
kill "$follower"
exit "$failed"
