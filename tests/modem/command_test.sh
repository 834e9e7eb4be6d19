#!/usr/bin/env bash
# command_test.sh BENCH DAEMON SCENARIOS - what the bench's command line promises: plans, mistakes
# with line and column, failures that show what came, exit statuses, and the other kinds of worlds.
# shellcheck source=tests/support/command_line.sh
source "$(dirname "$0")/../support/command_line.sh"
program=$1
daemon=$2
scenarios=$3

for scenario in "$scenarios"/*.scenario; do
    check 0 'start daemon' run "$scenario" --dry-run
done
check 0 'plug modem [label STRING]' words
while IFS= read -r statement; do
    grep -qxF -- "  $statement" "$scenarios/../../docs/bench.md" ||
        fail "docs/bench.md does not list: $statement"
done <"$here/said"
check 0 'usage: kestrun-bench run FILE' --help
check 0 'kestrun-bench ' --version
check 2 'usage: kestrun-bench run FILE'
check 2 'usage: kestrun-bench run FILE' run
check 2 'usage: kestrun-bench run FILE' run a --nonsense
check 2 'No such file or directory' run "$here/none"

# says_alone STATUS LINE ARGUMENTS...: the program ends with STATUS and says this line and nothing else.
says_alone() {
    check "$@"
    [ "$(cat "$here/said")" = "$2" ] || fail "not this line alone: $2" "$(cat "$here/said")"
}
says_alone 2 'kestrun-bench: --speed takes a number from 1 to 1000, not "0"' run a --speed 0
says_alone 2 'kestrun-bench: --speed takes a number from 1 to 1000, not "1x"' run a --speed 1x
says_alone 2 'kestrun-bench: --seed takes a number from 0 on, not "-1"' run a --seed -1
says_alone 2 'kestrun-bench: --world takes root, user or real, not "moon"' run a --world moon
says_alone 2 'kestrun-bench: --record takes the recording of one scenario, not of 2' run a b --record c
printf '# nothing\ntitle "Nothing"\n' >"$here/empty"
says_alone 2 "$here/empty:3:1: the scenario holds no statement: begin with \"start daemon\" (\`kestrun-bench words\` lists all)" \
    run "$here/empty"
for recording in "run $scenarios/idle.scenario --record" record; do
    # shellcheck disable=SC2086  # a list of words
    says_alone 2 "kestrun-bench: $here/none/file: No such file or directory: a recording needs a folder that can be written to" \
        $recording "$here/none/file"
done

printf 'logout\n\n  plug disc "Orvanta"\n' >"$here/mistake"
check 2 "$here/mistake:3:8: expected \"disk\", \"modem\" or \"port\"; here stands \"disc\"" \
    run "$here/mistake"

cat >"$here/fails" <<'END'
start daemon
expect log "Kestrun started"
expect log "nobody says this"
END
check 1 'line 3: expect log "nobody says this"' run "$here/fails" --speed 50 --daemon "$daemon"
for shown in 'came: the log does not say it' '> line 2===' 'TOOL-BrelmarkV100R001B035'; do
    grep -qF -- "$shown" "$here/said" ||
        fail "a failed expectation does not show \"$shown\""
done

cat >"$here/mounted" <<'END'
start daemon
expect mounted "/Volumes/Orvanta" within 1 s
END
check 1 'came: nothing is mounted' run "$here/mounted" --speed 50 --daemon "$daemon"

# In JSON there is an object on each line and nothing else, whatever a device is called.
cat >"$here/named" <<'END'
title "A name of any bytes"
start daemon
plug disk "a\"\x01\\\xff"
expect log "Kestrun started"
END
said_in_json() {  # KIND TEXT: one of the lines has them
    python3 - "$here/said" "$@" <<'END' || fail "no line of JSON has $*"
import json, sys
with open(sys.argv[1], encoding="utf-8") as file:
    entries = [json.loads(line) for line in file]
sys.exit(not any(entry.get("kind") == sys.argv[2] and sys.argv[3] in entry["text"] for entry in entries))
END
}
check 0 '"kind":"true"' run "$here/named" --speed 50 --daemon "$daemon" --json
said_in_json log 'Kestrun started'
said_in_json true 'expect log "Kestrun started"'
check 0 '{"line":2,"statement":"start daemon","meaning":"' run "$here/named" --dry-run --json

# Several are played one after the other; what is worst decides. A mistake in one is told before any is played.
printf 'title "First"\nstart daemon\nexpect log "Kestrun started"\n' >"$here/first"
check 0 'First' run "$here/first" "$here/named" --speed 50 --daemon "$daemon"
grep -qF 'A name of any bytes' "$here/said" || fail 'the second of two scenarios is not played'
check 1 'A name of any bytes' run "$here/fails" "$here/named" --speed 50 --daemon "$daemon"
check 2 "$here/mistake:3:8" run "$here/first" "$here/mistake" --speed 50 --daemon "$daemon"
! grep -qF 'First' "$here/said" || fail 'a scenario is played although another has a mistake'

# A daemon that ends by itself is a failure, whatever was expected.
printf 'start daemon\nwait 100 s\n' >"$here/ends"
check 1 'the daemon ended with exit status 0' run "$here/ends" --speed 50 --daemon /bin/true

if unshare -Urm true 2>/dev/null; then
    check 0 'the world: user and mount namespace, asked for' \
        run "$scenarios/plugged-in-later.scenario" --speed 50 --daemon "$daemon" --world user
fi

# At the real paths, in a world of the bench's own making: it must leave nothing behind.
if unshare -m true 2>/dev/null; then
    cat >"$here/real" <<'END'
set -e
mount -t tmpfs tmpfs "$1/root"
mkdir "$1/root/old" "$1/root/dev"
for entry in /*; do
    case $entry in
    /dev | /Volumes | /Library | /Applications | /run) ;;
    *) if [ -L "$entry" ]; then
           cp -P "$entry" "$1/root/"
       elif [ -d "$entry" ]; then
           mkdir "$1/root$entry"
           mount --rbind "$entry" "$1/root$entry"
       fi ;;
    esac
done
mkdir "$1/root/run" "$1/root/dev/pts"
for node in null zero tty urandom; do
    touch "$1/root/dev/$node"
    mount --bind "/dev/$node" "$1/root/dev/$node"
done
mount -t devpts -o newinstance,ptmxmode=0666 devpts "$1/root/dev/pts"
ln -s pts/ptmx "$1/root/dev/ptmx"
pivot_root "$1/root" "$1/root/old"
mount -t tmpfs tmpfs /usr/local
umount -l /old
shift
[ "$1" != cannot ] || { shift; mount -o remount,ro /usr/local; }
status=0
"$@" || status=$?
for left in /Volumes /Library /Applications /usr/local/Tarnwell /run/kestrun /dev/disk /dev/serial \
    /dev/sr0 /dev/sr0-pulled /dev/ttyUSB0; do
    if [ -e "$left" ]; then
        echo "left behind: $left"
        exit 3
    fi
done
exit "$status"
END
    mkdir "$here/root"
    # at_real_paths STATUS TEXT WORD...: the program ends so there, says so, and has put everything back.
    at_real_paths() {
        local wanted=$1 text=$2 status=0
        shift 2
        unshare -m sh "$here/real" "$here" "$@" --speed 50 --daemon "$daemon" --world real \
            >"$here/said" 2>&1 || status=$?
        if [ "$status" -ne "$wanted" ] || ! grep -qF "$text" "$here/said"; then
            fail "at the real paths: status $status, expected $wanted and \"$text\"; it said:"
            sed 's/^/    /' "$here/said"
        fi
    }
    at_real_paths 0 'the world: real paths, asked for' "$program" run "$scenarios/replugged.scenario"
    # The modem stays in; one disk is pulled and its medium changed before.
    at_real_paths 0 'came true' "$program" run "$scenarios/changes-in-one-drive.scenario"
    at_real_paths 0 'came true' "$program" run "$scenarios/plugged-in-later.scenario"
    # No folder can be made where the log belongs: those made before it go again.
    at_real_paths 77 '/usr/local/Tarnwell: Read-only file system' cannot "$program" run "$scenarios/idle.scenario"
fi

# Without namespaces, and with something at a real path, one line says what is missing and what helps; so it
# does without /proc, which a sanitizer cannot do without.
nowhere='mount -t tmpfs tmpfs /usr/local && mkdir /usr/local/Tarnwell &&
    echo 0 >/proc/sys/user/max_mnt_namespaces && echo 0 >/proc/sys/user/max_user_namespaces && exec "$@"'
if unshare -Urm sh -c "$nowhere" sh true 2>/dev/null; then
    status=0
    unshare -Urm sh -c "$nowhere" sh "$program" run "$here/first" --daemon "$daemon" >"$here/said" 2>&1 || status=$?
    limit='mount namespace (a mount namespace: No space left on device)'
    if [ "$status" -ne 77 ] || ! grep -qF "not playable here: no $limit; no user and $limit; at the real paths \
nothing is replaced, and /usr/local/Tarnwell exists here: play as root, or allow users their own namespaces" "$here/said"; then
        fail "without namespaces: status $status; it said:" "$(cat "$here/said")"
    fi
fi
bare='mount -t tmpfs tmpfs /proc && exec "$@"'
if ! grep -qa __asan_init "$program" && unshare -Urm sh -c "$bare" sh true 2>/dev/null; then
    status=0
    unshare -Urm sh -c "$bare" sh "$program" run "$here/first" >"$here/said" 2>&1 || status=$?
    if [ "$status" -ne 2 ] || ! grep -qxF 'kestrun-bench: there is no /proc: mount -t proc proc /proc' "$here/said"; then
        fail "without /proc: status $status; it said:" "$(cat "$here/said")"
    fi
fi
exit "$failed"
