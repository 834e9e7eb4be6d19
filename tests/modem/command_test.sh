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
check 2 'usage: kestrun-bench run FILE' run a b
check 2 'usage: kestrun-bench run FILE' run a --speed 0
check 2 'usage: kestrun-bench run FILE' run a --world moon
check 2 'No such file or directory' run "$here/none"

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
check 0 '"kind": "true"' run "$here/named" --speed 50 --daemon "$daemon" --json
said_in_json log 'Kestrun started'
said_in_json true 'expect log "Kestrun started"'
check 0 '{"line": 2, "statement": "start daemon", "meaning": "' run "$here/named" --dry-run --json

# A daemon that ends by itself is a failure, whatever was expected.
printf 'start daemon\nwait 100 s\n' >"$here/ends"
check 1 'the daemon ended with exit status 0' run "$here/ends" --speed 50 --daemon /bin/true

if unshare -Urm true 2>/dev/null; then
    check 0 'user and mount namespace' \
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
status=0
"$@" || status=$?
for left in /Volumes /Library /Applications /usr/local/Tarnwell /run/kestrun /dev/disk /dev/serial /dev/sr0; do
    if [ -e "$left" ]; then
        echo "left behind: $left"
        exit 3
    fi
done
exit "$status"
END
    mkdir "$here/root"
    status=0
    unshare -m sh "$here/real" "$here" "$program" run "$scenarios/replugged.scenario" --speed 50 \
        --daemon "$daemon" --world real >"$here/said" 2>&1 || status=$?
    if [ "$status" -ne 0 ] || ! grep -qF 'real paths' "$here/said"; then
        echo "at the real paths: status $status; it said:"
        sed 's/^/    /' "$here/said"
        failed=1
    fi
fi
exit "$failed"
