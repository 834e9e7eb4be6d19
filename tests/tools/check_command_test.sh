#!/usr/bin/env bash
# check_command_test.sh KESTRUN-CHECK - what the command line promises: exit statuses, machines, modes,
# and that nothing is written.
# shellcheck source=tests/support/command_line.sh
source "$(dirname "$0")/../support/command_line.sh"
program=$1
cd "$here"
umask 022

check 0 'usage: kestrun-check' --help
check 0 'kestrun-check 1.' --version
check 2 'usage: kestrun-check' --nonsense
check 2 'usage: kestrun-check' a b c
check 2 'usage: kestrun-check' --root / a
check 2 'No such file or directory' none
check 2 'Is a directory' .

printf '[Volumes]\nname = Orvanta\n' >config
printf '[SD_THIRDPARTY_SETUP]\nSD_THIRD_SETUP=yes\nSD_THIRD_FILE_PATH=Orvanta\nSD_THIRD_FILE_NAME=ThirdPartySetup.dmg\nSD_RUN_THIRD_FILE_ONCE=yes\n' >SysConfig.dat
check 0 'the daemon waits for a volume of this label' config
check 2 'No such file or directory' config none
check 0 'the bytes at offset 37 become 4E 6F 00' config SysConfig.dat
check 0 '"value": "Orvanta"' --json config SysConfig.dat
check 0 '"verdict": "PASS"' --json config SysConfig.dat
cp config wrong && printf 'name=B' >>wrong
check 1 'WARN  wrong:3  key-twice: name once more' wrong
chmod 666 wrong
check 1 'WARN  wrong  mode: mode 0666' wrong
chmod 777 .
check 1 'WARN  config  folder-mode: its folder: mode 0777' config
chmod 755 .

# A whole machine.
root=$here/root
mkdir "$root"
check 1 "WARN  $root/Library/StartupItems/QVKestrun/config  file: it is not there" --root "$root"
check 1 'FAIL  machine  log-folder: /usr/local/Tarnwell is missing' --root "$root"
check 1 'NOTE  machine  volume: /Volumes/Orvanta is not there' --root "$root"
check 1 'WARN  machine  volume: /Volumes/Orvanta is not there' --strict --root "$root"
mkdir -p "$root/usr/local/Tarnwell" "$root/Library/StartupItems/QVKestrun" "$root/Volumes/Mine"
printf '[Volumes]\nname = Mine\n' >"$root/Library/StartupItems/QVKestrun/config"
check 1 'PASS  machine  log-folder:' --root "$root"
check 1 'FAIL  machine  volume: /Volumes/Mine is a folder and no volume' --root "$root"
check 1 "NOTE  $root/Applications/Orvanta.app/Contents/Resources/SysConfig.dat  file: it is not there" --root "$root"

# A healthy machine without a modem; then a disk with nearly the configured label, and the right one.
rmdir "$root/Volumes/Mine"
check 0 'NOTE  machine  volume: /Volumes/Mine is not there' --root "$root"
check 1 'WARN  machine  volume: /Volumes/Mine is not there' --strict --root "$root"
mkdir -p "$root/dev/disk/by-label" "$root/dev/serial/by-id"
ln -s ../../sr0 "$root/dev/disk/by-label/mine"
ln -s ../../sda1 "$root/dev/disk/by-label/EFI"
ln -s ../../ttyUSB0 "$root/dev/serial/by-id/usb-QARVELMobile-Pcui"
ln -s ../../ttyUSB1 "$root/dev/serial/by-id/usb-Other"
check 1 'FAIL  machine  label: the disk "mine" is there, the configuration waits for "Mine": they differ in the letter case' --root "$root"
check 1 'PASS  machine  disk: "mine" on /dev/sr0, optical, not mounted' --root "$root"
check 1 "PASS  machine  port: /dev/serial/by-id/usb-QARVELMobile-Pcui
      a modem's" --root "$root"
check 1 "PASS  machine  port: /dev/serial/by-id/usb-Other
      not a modem's" --root "$root"
ln -s ../../sr1 "$root/dev/disk/by-label/Mine"
check 0 'its label is the configured one' --root "$root"

# A volume is one whatever the root is called, also where folders of one disk are mounted; what is mounted
# elsewhere from the folder makes no volume of it.
mkdir -p "$root/Volumes/Two Words" elsewhere
printf '[Volumes]\nname = Two Words\n' >"$root/Library/StartupItems/QVKestrun/config"
if [ "$(id -u)" -eq 0 ] && unshare -m true 2>/dev/null; then
    for name in root root/ ./root "$root" "$here/./root//"; do
        # shellcheck disable=SC2016  # the shell within has arguments of its own
        said=$(unshare -m sh -c 'mount --bind elsewhere "root/Volumes/Two Words" && "$1" --root "$2"' \
            sh "$program" "$name") || true
        [[ "$said" == *'PASS  machine  volume: /Volumes/Two Words is mounted'* ]] || fail "--root $name: $said"
    done
    # shellcheck disable=SC2016
    said=$(unshare -m sh -c 'mount --bind "root/Volumes/Two Words" elsewhere && "$1" --root "$2"' \
        sh "$program" "$root") || true
    [[ "$said" == *'FAIL  machine  volume: /Volumes/Two Words is a folder'* ]] || fail "elsewhere: $said"
fi

# A path that the daemon's reader does not keep whole would have it read another file.
deep=$(printf '%0250d/' 1 2 3 4)
mkdir -p "$deep"
cp config "$deep/config"
check 2 'File name too long' "$here/$deep/config"
check 2 'File name too long' --root "$here/$deep"
check 2 'SysConfig.dat: No such file or directory' config "$here/$deep/SysConfig.dat"
(cd "$deep" && "$program" config >"$here/said") || fail 'a config deep down'

# What is no configuration, and what cannot be read.
: >nothing
head -c 100000 /dev/urandom >random
check 1 'no section [Volumes]' nothing
check 1 'no section [Volumes]' random
check 2 ': No such file or directory' ''
check 2 ': No such file or directory' config ''
check 2 './-: No such file or directory' -
check 2 'Not a regular file' <(printf '[Volumes]\n')
check 2 'Not a regular file' config /dev/null
check 2 'none: No such file or directory' --root none
check 2 'nothing: Not a directory' --root nothing
check 2 'usage: kestrun-check' --root '' config
for options in "config SysConfig.dat" nothing "nothing nothing" "random random" "--root $root"; do
    # shellcheck disable=SC2086  # a list of words
    "$program" --json $options >said || [ $? -eq 1 ] || fail "$options: status $?"
    python3 -m json.tool said >/dev/null || fail "$options: no JSON"
done
if [ -w /dev/full ]; then
    for option in --help --version config; do
        status=0
        "$program" "$option" >/dev/full 2>said || status=$?
        [ "$status" -eq 2 ] || fail "a full output, $option: status $status"
    done
fi
lost_reader --help
lost_reader config

before=$(find . -type f ! -name said -exec cksum {} + | sort)
check 0 'PASS' config SysConfig.dat
[ "$before" = "$(find . -type f ! -name said -exec cksum {} + | sort)" ] ||
    fail 'a file was made or changed'
exit "$failed"
