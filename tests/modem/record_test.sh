#!/usr/bin/env bash
# record_test.sh BENCH DAEMON SCENARIOS [NAME|all] - recordings: persons are masked; a system is recorded as it
# is, without being changed. With a scenario's name instead: playing its recording and recording that gives
# the same text. With "all": so it is with every scenario that can be recorded as it plays, three times.
# shellcheck source=tests/support/command_line.sh
source "$(dirname "$0")/../support/command_line.sh"
program=$1
daemon=$2
scenarios=$3

# play FILE ARGUMENTS...: plays it; a machine that cannot ends the test as skipped.
play() {
    local file=$1 status=0
    shift
    "$program" run "$file" --speed 50 --daemon "$daemon" "$@" >"$here/said" 2>&1 || status=$?
    [ "$status" -ne 77 ] || exit 77
    if [ "$status" -ne 0 ]; then
        fail "$file: status $status"
        cat "$here/said"
    fi
}

# stays_same NAME...: these scenarios' recordings play, and give themselves.
stays_same() {
    local name
    for name in "$@"; do
        play "$scenarios/$name.scenario" --record "$here/$name.first"
        play "$here/$name.first" --record "$here/$name.second"
        same "$here/$name.first" "$here/$name.second"
    done
}

if [ "${4-}" = all ]; then
    # These cannot: docs/bench.md says why.
    names=$(find "$scenarios" -maxdepth 1 -name '*.scenario' -exec basename {} .scenario \; |
        grep -vxF -e storm -e killed-and-started-again | sort)
    [ "$(wc -w <<<"$names")" -ge 36 ] || fail "too few scenarios: $names"
    for _ in 1 2 3; do
        # shellcheck disable=SC2086  # a list of words
        stays_same $names
    done
    exit "$failed"
fi

if [ $# -gt 3 ]; then
    stays_same "$4"
    case $4 in
    other-label-ignored) told='plug disk ".#Orvanta" as disk1' ;;
    log-at-its-cap) told='fill log 10000000 bytes' ;;
    setup-read-only) told='sysconfig read-only' ;;
    changes-in-one-drive) told='touch modem' ;;
    disk-image) told='plug disk image' ;;
    unplugged-during-mount) told='mount holds' ;;
    stale-folder) told='expect not mounted "/Volumes/Orvanta 1"' ;;
    *) told='start daemon' ;;
    esac
    grep -qF -- "$told" "$here/$4.first" || fail "the recording of $4 lacks $told"
    exit "$failed"
fi

# Persons and serial numbers do not get into a recording.
cat >"$here/person.scenario" <<'END'
daemon user "anna"
login "anna"
config
  | [Volumes]
  | name = Orvanta
  | path1 = /Volumes/Orvanta/../../Users/anna/"My" App.app
make folder "/Users/anna/\"My\" App.app"
plug port "usb-ACME_Phone_R5CT1234567-if00"
start daemon
expect log "value of disable_cdrom"
wait until idle
plug disk "Anna's Stick" as stick
login "berta"
plug modem
expect log "are not same return"
wait until idle
END
cat >"$here/person.expected" <<'END'
title "A recording"

config
  | [Volumes]
  | name = Orvanta
  | path1 = /Volumes/Orvanta/../../Users/user1/"My" App.app
daemon user "user1"
login "user1"
plug port "usb-ACME_Phone_serial1-if00"
start daemon
expect log "Kestrun:main --- TOOL-"
expect log "Kestrun:main --- value of disable_cdrom is false"
wait until idle

login "user2"
plug disk "user1's Stick" as disk1
plug modem
expect log "Kestrun:DiskPeekCallback --- DiskPeekCallback Enter"
expect log "Kestrun:DiskMountCallback --- DiskMountCallback Enter"
expect log "Kestrun:DiskMountCallback --- are not same return....."
wait until idle
expect mounted "/Volumes/Orvanta" with "ro,nosuid,nodev"
END
play "$here/person.scenario" --record "$here/person.recorded"
same "$here/person.expected" "$here/person.recorded"

# A system as it is, the daemon at rest: recorded from within the world, by looking alone.
cat >"$here/live.scenario" <<END
config
  | [Volumes]
  | name = Orvanta
start daemon
expect log "value of disable_cdrom"
wait until idle
expect run "($program record $here/live >/dev/null 2>$here/told & echo \$! >$here/pid); until grep -qs recording $here/told; do sleep 0.1; done"
plug modem
expect log "DiskMountCallback exit"
wait until idle
expect run "kill -INT \$(cat $here/pid); while [ ! -s $here/live ]; do sleep 0.1; done"
END
cat >"$here/live.expected" <<'END'
title "A recording"

config
  | [Volumes]
  | name = Orvanta
daemon user "user1"
login "user1"
start daemon
wait until idle

plug modem
expect log "Kestrun:DiskPeekCallback --- DiskPeekCallback Enter"
expect log "Kestrun:DiskMountCallback --- DiskMountCallback Enter"
expect log "Kestrun:DiskMountCallback --- actvie == pname....."
expect log "Kestrun:DiskMountCallback --- have some one login succ"
expect log "Process:RunShellProgram --- RunShellProgram exit true.(open -a \"/Volumes/Orvanta/Orvanta.app/\")"
expect log "Kestrun:DiskMountCallback --- Run Orvanta Program success"
expect log "ActiveVolumeProgram:RunSDProgram --- open file [/Applications/Orvanta.app/Contents/Resources/SysConfig.dat] failed, RunSDProgram exit false"
expect log "Kestrun:DiskMountApproval --- finish run program, and error, DiskMountApproval exit "
expect log "Kestrun:DiskMountCallback --- DiskMountCallback exit"
wait until idle
expect mounted "/Volumes/Orvanta" with "ro,nosuid,nodev"
END
play "$here/live.scenario"
same "$here/live.expected" "$here/live"
play "$here/live"

# What cannot be written is told.
status=0
timeout -s INT 1 "$program" record "$here/none/file" >"$here/said" 2>&1 || status=$?
if ! grep -qF 'none/file: No such file or directory' "$here/said"; then
    fail "a recording that cannot be written: it said:"
    cat "$here/said"
fi
exit "$failed"
