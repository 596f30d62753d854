#!/usr/bin/env bats
# What veskctl offers to a person in the field and to a script: info, ping, monitor, JSON, transcripts of
# what was said, colour. With the running daemon on a board where a test says `at_desk`, otherwise with
# a script at the far end of a pair of terminals. VESKCTL and VESK_DAEMON or DAEMON name the programs (those of
# build/release if not set).
#
# shellcheck disable=SC2016 # the board's shell expands what is in single quotes
# shellcheck disable=SC2154 # `run` sets stderr

bats_require_minimum_version 1.5.0
load far_end

setup() {
    here=$BATS_TEST_DIRNAME
    cd "$here/../.." || return
    export VESKCTL=${VESKCTL:-$PWD/build/release/tools/veskctl}
    export DAEMON=${VESK_DAEMON:-${DAEMON:-$PWD/build/release/vesk_h264}}
    device=$BATS_TEST_TMPDIR/device
    cable=
    watcher=
    plugged=
}

teardown() {
    # shellcheck disable=SC2086 # any of them may be nobody
    kill $cable $watcher $plugged 2>/dev/null || true
}

# Answers every frame with $1.
answers() {
    connect "while IFS= read -r -N 19; do printf %s '$1'; done"
}

# ctl ARGUMENT...: veskctl on $device; it waits long, as the machine may be busy.
ctl() {
    "$VESKCTL" --serial "$device" --timeout 60000 "$@"
}

# at_desk SCRIPT: the board's shell runs SCRIPT beside the daemon, with `ctl ARGUMENT...`.
at_desk() {
    export SESSION="#!/bin/sh
        set -eu
        options=\$*
        ctl() { \"\$VESKCTL\" \$options --timeout 60000 \"\$@\"; }
        valid() { /opt/host/bin/python3 tests/tools/validate.py \"\$@\"; }
        $1"
    run -0 --separate-stderr testbench/board sh -c '
        echo "$SESSION" >/opt/scratch/session
        chmod +x /opt/scratch/session
        exec testbench/desk --serial "$DAEMON" /opt/scratch/session'
    echo "$output"
    echo "$stderr"
}

@test "info: a table of everything that the device tells" {
    at_desk 'ctl info'
    [ "$output" = 'device type       2633
protocol version  1.10
system version    2.13
serial number     0 (0x0000)
program version   1.10
update block      1024 bytes
DHCP              on
address           192.168.0.100
mask              255.255.255.0
gateway           192.168.0.1
MAC               02:76:65:73:6b:01' ]
    [ "$stderr" = '' ]
}

@test "info: --json, with what was written before, as its schema says" {
    at_desk 'ctl send 6a 10 12 34 00 >/opt/scratch/out
        ctl info --json >/opt/scratch/info
        valid info /opt/scratch/info
        ctl info --stored --json >/opt/scratch/stored
        valid info /opt/scratch/stored
        grep -o "\"serial_number\":[0-9]*" /opt/scratch/info
        grep -o "\"network\":.*" /opt/scratch/info
        grep -o "\"stored\":.*" /opt/scratch/stored'
    [ "${lines[0]}" = '"serial_number":4660' ]
    [ "${lines[1]}" = '"network":{"address":"192.168.0.100","mask":"255.255.255.0","gateway":"192.168.0.1","mac":"02:76:65:73:6b:01"}}' ]
    [ "${lines[2]}" = '"stored":{"address":"192.168.0.100","mask":"255.255.255.0","gateway":"192.168.0.1","mac":"02:76:65:73:6b:01"}}' ]
}

@test "info: a silent line, status 3, after one question" {
    connect 'cat >"$BATS_TEST_TMPDIR/heard"'
    run -3 --separate-stderr "$VESKCTL" --serial "$device" --timeout 200 info
    [ "$output" = '' ]
    [ "$stderr" = 'veskctl: device type: no answer; is the device on, and is this its line?' ]
    [ "$(cat "$BATS_TEST_TMPDIR/heard")" = '<T0000680100000069>' ]
}

@test "ping: status 3 when nothing came" {
    connect 'cat >/dev/null'
    run -2 "$VESKCTL" --serial "$device" ping -c none
    [ "$output" = 'veskctl: --count: Value none not in range 1 to 1000000000; see `veskctl ping --help`' ]
    run -3 --separate-stderr "$VESKCTL" --serial "$device" --timeout 200 ping -c 2 -i 0
    [ "${lines[0]}" = "no answer from $device: seq=1" ]
    [[ ${lines[2]} =~ ^'2 sent, 0 answered, 100% lost, '[0-9]+' ms'$ ]]
    [ "$stderr" = "veskctl: nobody answered at $device; is the device on, and is this its line?" ]
}

@test "ping: counts what came and what did not" {
    connect 'IFS= read -r -N 19; printf "<F00016a03010a0079>"; IFS= read -r -N 19
        IFS= read -r -N 19; printf "<F00036a03010a007b>"; cat >/dev/null'
    run -0 --separate-stderr "$VESKCTL" --serial "$device" --timeout 1000 ping -c 3 -i 0
    [[ ${lines[0]} =~ ^"answer from $device: seq=1 time="[0-9.]+' ms'$ ]]
    [ "${lines[1]}" = "no answer from $device: seq=2" ]
    [[ ${lines[2]} =~ ^"answer from $device: seq=3 time="[0-9.]+' ms'$ ]]
    [[ ${lines[3]} =~ ^'3 sent, 2 answered, 33% lost, '[0-9]+' ms'$ ]]
    [[ ${lines[4]} =~ ^'time min/mean/max/deviation = '[0-9./]+' ms'$ ]]
    [ "$stderr" = '' ]
}

@test "ping: Ctrl-C ends it with a summary, status 0; --quiet prints nothing else" {
    connect 'IFS= read -r -N 19; printf "<F00016a03010a0079>"; cat >/dev/null'
    "$VESKCTL" --serial "$device" ping -i 60 >"$BATS_TEST_TMPDIR/out" 3>&- &
    watcher=$!
    wait_until grep -q seq=1 "$BATS_TEST_TMPDIR/out"
    kill -INT "$watcher"
    wait "$watcher"
    grep -q '^1 sent, 1 answered, 0% lost' "$BATS_TEST_TMPDIR/out"
    connect 'IFS= read -r -N 19; printf "<F00016a03010a0079>"; cat >/dev/null'
    run -0 ctl ping -c 1 -q
    [ "${#lines[@]}" -eq 2 ]
}

@test "JSON: what the daemon says, as the schemas have it" {
    at_desk '
        ctl send read device type --json | valid send
        ctl send write serial number 4660 --json | valid send
        ! ctl send input source --json >/opt/scratch/refused
        valid send /opt/scratch/refused
        ctl network read --json | valid network-read
        ctl network write 192.168.0.100 255.255.255.0 192.168.0.1 02:76:65:73:6b:01 --json | valid network-write
        ctl text write 09 00 "[a=1]" --json | valid send
        ctl text read 09 --json | valid text-read
        ctl ping -c 2 -i 0 --json | valid ping
        echo "front> <T0000680100000069>" >/opt/scratch/play
        echo "front< <F00006801263300c2>" >>/opt/scratch/play
        ctl play --json /opt/scratch/play | valid play
        echo "front< more" >>/opt/scratch/play
        ! ctl play --json --timeout 100 /opt/scratch/play >/opt/scratch/failed
        valid play /opt/scratch/failed
        ctl send read IP address --json'
    [ "$output" = '{"command":{"frame":"<T0000890000000089>","kind":"command","address":0,"tag":0,"command":137,"data":[0,0,0,0],"name":"read IP address","checksum_is_right":true,"fields":{}},"reply":{"frame":"<F000089c0a8006455>","kind":"reply","address":0,"tag":0,"command":137,"data":[192,168,0,100],"name":"read IP address","checksum_is_right":true,"fields":{"ip":"192.168.0.100"}}}' ]
}

@test "JSON: every schema is one; no answer is a null" {
    "$here/validate.py"
    connect 'cat >/dev/null'
    run -3 --separate-stderr "$VESKCTL" --serial "$device" --timeout 100 send 68 01 --json
    "$here/validate.py" send <<<"$output"
    [[ $output == *'"reply":null}' ]]
}

@test "JSON: the console, a line for each command and for what else is said" {
    at_desk '
        printf "%s\n" "read device type" "input source" info "network read" "text write 09 00 [a=1]" "text read 09" \
            "front hello" dance "help gateway" |
            ctl console --json >/opt/scratch/out 2>/opt/scratch/help || [ $? = 2 ]
        valid console /opt/scratch/out
        grep -v "\"log\"" /opt/scratch/out
        grep -c "write gateway" /opt/scratch/help >&2'
    [[ ${lines[0]} == '{"command":{"frame":"<T0000680100000069>",'*'"reply":{"frame":"<F00006801263300c2>",'* ]]
    [[ ${lines[1]} == *'"reply":{"frame":"<F000073ffffffff6f>","kind":"refusal",'* ]]
    [[ ${lines[2]} == '{"device_type":"2633",'* ]]
    [[ ${lines[3]} == *'"network":{"address":"192.168.0.100",'* ]]
    [[ ${lines[4]} == '{"command":{"frame":"<T0000f20900'*'"reply":{"frame":"<F0000f20900'* ]]
    [[ ${lines[5]} == *'"text":"[]"}' ]]
    [ "${lines[6]}" = '{"line":"front","direction":"sent","bytes":"68656c6c6f","text":"hello"}' ]
    [[ ${lines[7]} == '{"typed":"dance","error":"'* ]]
    [ "${lines[8]}" = '{"summary":{"sent":2,"answered":2}}' ]
    [ "$stderr" = 1 ]
    # What is no answer to the command, and no answer at all.
    connect 'IFS= read -r -N 19; printf "noise<F00006a03010a0078>"; cat >/dev/null'
    run -3 --separate-stderr "$VESKCTL" --serial "$device" --timeout 500 console --json <<<'68 01'
    "$here/validate.py" console <<<"$output"
    [ "${lines[0]}" = '{"line":"front","direction":"received","bytes":"6e6f697365","text":"noise"}' ]
    [[ ${lines[1]} == '{"line":"front","direction":"received","frame":{"frame":"<F00006a03010a0078>",'* ]]
    [[ ${lines[2]} == '{"command":{"frame":"<T0000680100000069>",'*'"reply":null}' ]]
}

@test "console: info, network and text, as the subcommands print them" {
    at_desk '
        printf "%s\n" info "network read" "text write 09 01 [a=1,b=2]" "text read 09 01" |
            "$VESKCTL" ${options%--log*} --timeout 60000 console >/opt/scratch/out
        { ctl info; ctl network read; ctl text write 09 01 "[a=1,b=2]"; ctl text read 09 01; } >/opt/scratch/expected
        cat /opt/scratch/out
        cmp /opt/scratch/out /opt/scratch/expected'
    [[ $output == 'device type       2633'* ]]
}

@test "JSON: decode and serial ports" {
    "$VESKCTL" decode --json '<T0000680100000069>' '<F0000fffffffffffb>' | "$here/validate.py" decode
    "$VESKCTL" serial ports --json | "$here/validate.py" serial-ports
}

@test "decode: as it reads" {
    mkfifo "$BATS_TEST_TMPDIR/pipe"
    "$VESKCTL" decode <"$BATS_TEST_TMPDIR/pipe" >"$BATS_TEST_TMPDIR/out" 3>&- &
    watcher=$!
    exec 8>"$BATS_TEST_TMPDIR/pipe"
    printf '<T00006801' >&8
    printf '00000069>' >&8
    wait_until grep -q 'read device type' "$BATS_TEST_TMPDIR/out" # the pipe is still open
    exec 8>&-
    wait "$watcher"
}

@test "record: what info, console and send have said is played again, and holds" {
    at_desk '
        ctl info --record /opt/scratch/info.txt >/opt/scratch/out
        ctl play /opt/scratch/info.txt
        ctl text write 09 00 "[a=1,b=2]" --record /opt/scratch/text.txt >/opt/scratch/out
        ctl play /opt/scratch/text.txt
        printf "68 01\nread IP address\n8e 04\nnetwork read\nfront hello\n" |
            "$VESKCTL" $options --timeout 200 console --record /opt/scratch/console.txt >/opt/scratch/out || [ $? = 3 ]
        ctl play /opt/scratch/console.txt'
    [[ $output == *'/opt/scratch/info.txt: all 17 steps held'* ]]
    [[ $output == *'/opt/scratch/text.txt: all 2 steps held'* ]]
    [[ $output == *'/opt/scratch/console.txt: all '*' steps held'* ]]
}

@test "record: an update is played again, and installs the program again; its JSON is as the schema says" {
    at_desk '
        { cat "$DAEMON"; echo rebuilt; } >/opt/scratch/new
        ctl update --machine any --record /opt/scratch/update.txt --json /opt/scratch/new >/opt/scratch/result
        valid update /opt/scratch/result
        tail -n 1 /opt/scratch/result | grep -o "\"outcome\":\"[a-z ]*\""
        ctl play -q /opt/scratch/update.txt'
    [ "$output" = '"outcome":"restarted"' ]
}

@test "record: a file that cannot be written, status 4, before anything is sent" {
    connect 'cat >"$BATS_TEST_TMPDIR/heard"'
    run -4 --separate-stderr "$VESKCTL" --serial "$device" send 68 01 --record /nowhere/file
    [[ $stderr == 'veskctl: cannot write /nowhere/file: No such file or directory'* ]]
    [ ! -s "$BATS_TEST_TMPDIR/heard" ]
}

@test "record: a full disk, status 4" {
    answers '<F00006801263300c2>'
    run -4 ctl send 68 01 --record /dev/full
    run -4 --separate-stderr ctl send 68 01 --pcap /dev/full
    [ "$stderr" = 'veskctl: cannot write /dev/full: No space left on device' ]
    run -4 --separate-stderr ctl send 68 01 --pcap /nowhere/line.pcapng
    [ "$stderr" = 'veskctl: cannot write /nowhere/line.pcapng: No such file or directory' ]
}

@test "monitor: rows of bytes with their text, frames decoded, counters at the end" {
    connect 'printf "a\001b\n<T0000680100000069>0123456789abcdefX"; cat >/dev/null'
    "$VESKCTL" --serial "$device" monitor --time none --record "$BATS_TEST_TMPDIR/heard" >"$BATS_TEST_TMPDIR/out" \
        2>"$BATS_TEST_TMPDIR/err" 3>&- &
    watcher=$!
    wait_until grep -q '|X|' "$BATS_TEST_TMPDIR/out"
    kill -INT "$watcher"
    wait "$watcher"
    [ "$(cat "$BATS_TEST_TMPDIR/out")" = '61 01 62 0a                                      |a.b.|
<T0000680100000069>  command, address 00, tag 00: read device type
30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  |0123456789abcdef|
58                                               |X|' ]
    grep -qE '^[0-9.]+ s: 1 commands, 0 replies, 0 refusals, 21 other bytes; 1 connections$' "$BATS_TEST_TMPDIR/err"
    # The transcript has the time of each packet.
    grep -qE '^# [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\.[0-9]{3}$' "$BATS_TEST_TMPDIR/heard"
    grep -q '^front<' "$BATS_TEST_TMPDIR/heard"
}

@test "monitor: the time of each packet, absolute or since the last" {
    for kind in absolute delta; do
        go=$BATS_TEST_TMPDIR/go-$kind
        connect "printf '<T0000680100000069>'; until [ -e '$go' ]; do sleep 0.02; done
            printf '<F00006801263300c2>'; cat >/dev/null"
        "$VESKCTL" --serial "$device" monitor --time "$kind" >"$BATS_TEST_TMPDIR/$kind" 3>&- &
        watcher=$!
        wait_until grep -q command "$BATS_TEST_TMPDIR/$kind"
        sleep 0.3 # between the two packets, however busy the machine is
        touch "$go"
        wait_until grep -q reply "$BATS_TEST_TMPDIR/$kind"
        kill "$watcher"
        wait "$watcher"
    done
    grep -qE '^[0-2][0-9]:[0-5][0-9]:[0-5][0-9]\.[0-9]{3}  <F' "$BATS_TEST_TMPDIR/absolute"
    grep -qE '^ +\+[0-9]+\.[0-9]{3}  <F' "$BATS_TEST_TMPDIR/delta"
    awk '/reply/ { exit !($1 > 0.2) }' "$BATS_TEST_TMPDIR/delta"
}

@test "monitor: --filter by name and by code; --json" {
    frames='abc<T0000680100000069><T00006a030000006d><T0000850000000085><F00006affffffff66>'
    connect "printf '$frames'; cat >/dev/null"
    "$VESKCTL" --serial "$device" monitor --json --filter 'net mask' --filter '6A 03' >"$BATS_TEST_TMPDIR/out" 3>&- &
    watcher=$!
    wait_until grep -q F00006a "$BATS_TEST_TMPDIR/out"
    kill "$watcher"
    wait "$watcher"
    "$here/validate.py" monitor "$BATS_TEST_TMPDIR/out"
    [ "$(grep -o '"frame":"[^"]*"' "$BATS_TEST_TMPDIR/out" | tr '\n' ' ')" = \
        '"frame":"<T00006a030000006d>" "frame":"<T0000850000000085>" "frame":"<F00006affffffff66>" ' ]
    tail -n 1 "$BATS_TEST_TMPDIR/out" | grep -q '"commands":3,"replies":0,"refusals":1,"other_bytes":3'
}

@test "monitor: waits for a device that is not there, and opens it again when it comes back" {
    rm -f "$device"
    "$VESKCTL" --serial "$device" monitor --time none >"$BATS_TEST_TMPDIR/out" 2>"$BATS_TEST_TMPDIR/err" 3>&- &
    watcher=$!
    wait_until grep -q 'is not there; waiting for it' "$BATS_TEST_TMPDIR/err"
    connect 'printf "<T0000680100000069>"; cat >/dev/null'
    wait_until grep -q 'read device type' "$BATS_TEST_TMPDIR/out"
    disconnect
    wait_until grep -q 'was closed' "$BATS_TEST_TMPDIR/err"
    connect 'printf "<T0000850000000085>"; cat >/dev/null'
    wait_until grep -q 'read net mask' "$BATS_TEST_TMPDIR/out"
    kill -INT "$watcher"
    wait "$watcher"
    grep -q '2 connections$' "$BATS_TEST_TMPDIR/err"
}

# plug: a cable from $front to $relay, which its process is.
plug() {
    socat "PTY,link=$front,raw,echo=0" "PTY,link=$relay,raw,echo=0" 3>&- &
    plugged=$!
    wait_until [ -c "$front" ]
    wait_until [ -c "$relay" ]
}

unplug() {
    kill "$plugged"
    wait "$plugged" || true
    plugged=
}

has_answers() {
    [ "$(grep -c '^front<' "$BATS_TEST_TMPDIR/out")" -eq "$1" ]
}

@test "monitor: --relay hands on what device and front board say, and shows and captures both" {
    front=$BATS_TEST_TMPDIR/front relay=$BATS_TEST_TMPDIR/relay
    answers '<F00006801263300c2>'
    plug
    "$VESKCTL" --serial "$device" monitor --relay "$relay" --time none --pcap "$BATS_TEST_TMPDIR/line.pcapng" \
        >"$BATS_TEST_TMPDIR/out" 2>"$BATS_TEST_TMPDIR/err" 3>&- &
    watcher=$!
    run -0 "$VESKCTL" --serial "$front" --timeout 60000 send read device type
    wait_until has_answers 1
    unplug
    wait_until grep -q "$relay is not there; waiting for it" "$BATS_TEST_TMPDIR/err"
    plug
    wait_until grep -q "$relay is there" "$BATS_TEST_TMPDIR/err"
    run -0 "$VESKCTL" --serial "$front" --timeout 60000 send read device type
    wait_until has_answers 2
    kill -INT "$watcher"
    wait "$watcher"
    unplug
    exchange='front> <T0000680100000069>  command, address 00, tag 00: read device type
front< <F00006801263300c2>  reply, address 00, tag 00: read device type: 2633'
    [ "$(cat "$BATS_TEST_TMPDIR/out")" = "$exchange
$exchange" ]
    grep -q ' 2 commands, 2 replies, 0 refusals, 0 other bytes; 2 connections$' "$BATS_TEST_TMPDIR/err"
    run -0 python3 -c 'import sys; sys.path.insert(0, sys.argv[1]); sys.dont_write_bytecode = True
import wireshark_test as w
for way in w.TO, w.FROM:
    print(way, b"".join(each.data for each in w.read_capture(sys.argv[2]) if each.direction == way).decode())' \
        "$here" "$BATS_TEST_TMPDIR/line.pcapng"
    [ "$output" = 'to the device <T0000680100000069><T0000680100000069>
from the device <F00006801263300c2><F00006801263300c2>' ]
}

@test "monitor: --relay with --json says who it was; it needs the device's line" {
    front=$BATS_TEST_TMPDIR/front relay=$BATS_TEST_TMPDIR/relay
    answers 'noise'
    plug
    "$VESKCTL" --serial "$device" monitor --relay "$relay" --json >"$BATS_TEST_TMPDIR/out" 3>&- &
    watcher=$!
    run -3 "$VESKCTL" --serial "$front" --timeout 1500 send read device type
    wait_until grep -q '"from":"device","bytes":"6e6f697365"' "$BATS_TEST_TMPDIR/out"
    kill "$watcher"
    wait "$watcher"
    unplug
    grep -q '"from":"front board","frame":"<T0000680100000069>"' "$BATS_TEST_TMPDIR/out"
    "$here/validate.py" monitor "$BATS_TEST_TMPDIR/out"
    run -2 --separate-stderr "$VESKCTL" --udp localhost monitor --relay "$relay"
    [ "$stderr" = "veskctl: --relay needs --serial, the device's line" ]
}

@test "retries: a command that is not answered is sent again" {
    connect 'IFS= read -r -N 19; IFS= read -r -N 19; printf "<F00006801263300c2>"; cat >/dev/null'
    run -0 --separate-stderr "$VESKCTL" --serial "$device" --timeout 2000 --retries 1 send 68 01
    [ "$stderr" = 'veskctl: no answer within 2000 ms, sent again' ]
}

@test "verbose: what the line carries, on standard error; quiet: no reports" {
    answers 'noise<F00006801263300c2>'
    run -0 --separate-stderr ctl send 68 01 -v -q
    [ "$output" = '<F00006801263300c2>  reply, address 00, tag 00: read device type: 2633' ]
    [ "$stderr" = 'front> <T0000680100000069>  command, address 00, tag 00: read device type
front< noise
front< <F00006801263300c2>  reply, address 00, tag 00: read device type: 2633' ]
}

@test "color: always, never, and not into a pipe" {
    run -0 "$VESKCTL" decode --color always '<F000068ffffffff64>'
    [ "$output" = $'<F000068ffffffff64>  \e[31mrefusal, address 00, tag 00: read device type\e[0m' ]
    for options in '--color never' '--color auto' ''; do
        # shellcheck disable=SC2086 # words
        run -0 "$VESKCTL" decode $options '<F000068ffffffff64>'
        [ "$output" = '<F000068ffffffff64>  refusal, address 00, tag 00: read device type' ]
    done
}

@test "output that cannot be written, status 4" {
    answers '<F00006801263300c2>'
    run -4 bash -c '"$VESKCTL" --serial "$0" --timeout 60000 send 68 01 --json >/dev/full' "$device"
    run -4 bash -c '"$VESKCTL" decode "<T0000680100000069>" >/dev/full'
    run -4 bash -c '"$VESKCTL" serial ports --json >/dev/full'
}

@test "baud: a rate that no line has, status 2" {
    connect 'cat >/dev/null'
    run -2 --separate-stderr "$VESKCTL" --serial "$device" --baud 12345 send 68 01
    [[ $stderr == 'veskctl: no serial line runs at 12345; possible are 1200, '* ]]
}

@test "version; every subcommand's help lists its options and two examples" {
    run -0 "$VESKCTL" --version
    [[ $output =~ ^'veskctl '[0-9.]+$ ]]
    for subcommand in send 'network read' 'network write' 'text read' 'text write' update monitor decode \
        console play info ping 'serial ports'; do
        # shellcheck disable=SC2086 # words
        run -0 "$VESKCTL" $subcommand --help
        [ "$(grep -c '^  \(veskctl\|.*| veskctl\) ' <<<"$output")" -ge 2 ] || { echo "examples: $subcommand"; false; }
        [[ $output == *--quiet* ]]
        [[ $subcommand == decode || $subcommand == 'serial ports' || $output == *--serial*--record* ]]
        [[ $output == *--json* ]]
        [[ $subcommand == console || $subcommand == play || $output != *--log* ]]
        [[ ! $subcommand =~ ^(update|ping|play|monitor|decode|serial ports)$ || $output != *--retries* ]]
        [ "$(awk 'length > 100' <<<"$output")" = '' ] || { echo "wide lines: $subcommand"; false; }
    done
}

@test "man page: every option of every subcommand, every command, every status" {
    page=$BATS_TEST_TMPDIR/page
    "$here/../../protocol/generate.py" manual "$page"
    scdoc <"$page" >"$page.1"
    grep -qi '^.TH "veskctl" "1"' "$page.1"
    for subcommand in '' send 'network read' 'network write' 'text read' 'text write' update monitor decode \
        console play info ping 'serial ports'; do
        # shellcheck disable=SC2086 # words
        for option in $("$VESKCTL" $subcommand --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+'); do
            grep -q -- "\*$option\*" "$page" || { echo "the page lacks $option"; false; }
        done
        grep -q "^\*$subcommand\*\|, \*$subcommand\*" "$page" || [ -z "$subcommand" ] ||
            { echo "the page lacks $subcommand"; false; }
    done
    # An entry begins with the name of its subcommand.
    twice=$(sed '/^# OPTIONS/,$d' "$page" | grep '^\*[a-z]' | sort | uniq -d)
    [ -z "$twice" ] || { echo "the page has twice: $twice"; false; }
    # Without a blank line above it, it would be part of the one before.
    sed '/^# OPTIONS/,$d' "$page" | awk '/^\*[a-z]/ && above != "" { print "no blank line above: " $0; bad = 1 }
        { above = $0 } END { exit bad }'
    while read -r name; do
        grep -q ":\[ $name\$" "$page" || { echo "the page lacks $name"; false; }
    done < <(sed -nE 's/^(- name:|- \{name:) ([^,#]*[^,# ]).*/\2/p' "$here/../../protocol/vesk.yaml" | grep -v MAC)
    for status in 0 1 2 3 4 5 130; do
        grep -q "^|\[ \*$status\*\$" "$page"
    done
}

@test "on a terminal: console, monitor and ping, as a person sees them" {
    "$here/terminal_test.py"
}

@test "scripts/run: help, and what cannot be meant" {
    run -0 scripts/run --help
    [[ $output == *'scripts/run [DAEMON]'* ]]
    for arguments in --frobnicate /nowhere/at/all README.md '/bin/true /bin/true'; do
        # shellcheck disable=SC2086 # words
        run -2 scripts/run $arguments
        [[ $output == *'scripts/run --help says what is possible' ]]
    done
}
