#!/usr/bin/env bats
# veskctl at its command line: what it prints where, and its exit status. The device is a small script
# at the far end of a pair of terminals; VESKCTL names the program (build/release/tools/veskctl if not set).
#
# shellcheck disable=SC2016 # the device's scripts expand what is in single quotes

load far_end

VESKCTL=${VESKCTL:-$BATS_TEST_DIRNAME/../../build/release/tools/veskctl}

setup() {
    cd "$BATS_TEST_TMPDIR" || return
    device=$BATS_TEST_TMPDIR/device
    # This process's own, with a port that nobody gets who does not ask for it.
    peer=127.$((1 + ($$ >> 16 & 63))).$(($$ >> 8 & 255)).$(($$ & 255)):20000
    cable=
    monitor=
}

teardown() {
    # shellcheck disable=SC2086 # either may be nobody
    kill $cable $monitor 2>/dev/null || true
}

peer_is_bound() {
    [ -n "$(ss -Hnau src "$peer")" ]
}

# listen SCRIPT: one datagram to $peer is read by SCRIPT, which writes the answer.
listen() {
    printf '%s\n' "$1" >script
    socat "UDP4-RECVFROM:${peer#*:},bind=${peer%:*}" EXEC:"bash $PWD/script" 3>&- &
    cable=$!
    wait_until peer_is_bound
}

# Answers the first whole frame with $1.
answers() {
    connect "IFS= read -r -N 19; printf %s '$1'; cat >/dev/null"
}

# gives STATUS STDOUT STDERR ARGUMENT...: what veskctl does, and prints, on the serial line. It waits
# long where an answer comes, as the machine may be busy.
gives() {
    on_line "$1" "${@:4}"
    said "$2" "$3"
}

# on_line STATUS ARGUMENT...: the same, whatever it prints.
on_line() {
    local patience=(--timeout 60000)
    [ "$1" != 3 ] || patience=()
    run "-$1" --separate-stderr "$VESKCTL" --serial "$device" "${patience[@]}" "${@:2}"
}

# said STDOUT STDERR: what the last `run --separate-stderr` must have printed.
said() {
    [ "$output" = "$1" ] || { echo "standard output: $output"; return 1; }
    [ "${stderr?}" = "$2" ] || { echo "standard error: $stderr"; return 1; }
}

bats_require_minimum_version 1.5.0

type='<F00006801263300c2>  reply, address 00, tag 00: read device type: 2633'

@test "send: the device gets exactly the frame, an answer is printed, status 0" {
    connect 'IFS= read -r -N 19 frame; printf %s "$frame" >got; printf "<F00006801263300c2>"; cat >/dev/null'
    gives 0 "$type" '' send '<T00006801000000FF>'
    [ "$(cat got)" = '<T00006801000000FF>' ]
}

@test "send: a refusal is printed, status 1" {
    answers '<F000073ffffffff6f>'
    gives 1 '<F000073ffffffff6f>  refusal, address 00, tag 00: input source' '' send input source
}

@test "send: what is not the answer, or a broken one, is skipped and reported" {
    answers 'noise<F000000fffffffffc><F00006801263300c3><F00006801263300c2>'
    gives 0 "$type" 'veskctl: skipped: noise
veskctl: skipped: <F000000fffffffffc>  refusal, address 00, tag 00: command 00
veskctl: skipped: <F00006801263300c3>  reply, address 00, tag 00: read device type: 2633; WRONG CHECKSUM c3, should be c2' \
        send read device type
}

@test "send: no answer in time, status 3; what is never answered is said so" {
    connect 'cat >/dev/null'
    gives 3 '' 'veskctl: no answer within 200 ms; is the device on, and is this its line?' --timeout 200 send 68 01
    gives 3 '' 'veskctl: no answer within 200 ms; this command never gets one' --timeout 200 send 8e 04
}

@test "send: an address of ff ff ff ff is no refusal; what can be either is asked again with another tag" {
    connect 'IFS= read -r -N 19; printf "<F000085ffffffff81>"; IFS= read -r -N 19 again; printf %s "$again" >got
        printf "<F000185ffffffff82>"; cat >/dev/null'
    gives 0 '<F000085ffffffff81>  reply, address 00, tag 00: read net mask: 255.255.255.255' '' send read net mask
    [ "$(cat got)" = '<T0001850000000086>' ]
    connect 'IFS= read -r -N 19; printf "<F000085ffffffff81>"; IFS= read -r -N 19; printf "<F000185ffffff0083>"
        cat >/dev/null'
    gives 0 '<F000185ffffff0083>  reply, address 00, tag 01: read net mask: 255.255.255.0' '' send read net mask
    answers '<F000084ffffffff80>'
    gives 0 '<F000084ffffffff80>  reply, address 00, tag 00: write net mask: 255.255.255.255' '' \
        send write net mask 255.255.255.255
    answers '<F000084ffffffff80>'
    gives 1 '<F000084ffffffff80>  refusal, address 00, tag 00: write net mask' '' send write net mask 255.255.255.0
}

@test "send: over UDP; the options may follow the subcommand" {
    listen 'head -c 19 >got; printf "<F00006801263300c2>"'
    run -0 "$VESKCTL" send read device type --udp "$peer" --timeout 60000
    [ "$(cat got)" = '<T0000680100000069>' ]
}

@test "network read: the record after the reply" {
    connect 'head -c 19 >got; printf "<F0000f12000130024>\\xc0\\xa8\\x00\\x64\\xff\\xff\\xff\\x00"
        sleep 0.1; printf "\\xc0\\xa8\\x00\\x01\\x02vesk\\x01\\xee"; cat >/dev/null'
    gives 0 '<F0000f12000130024>  reply, address 00, tag 00: read data, data 20 00 13 00
address  192.168.0.100
mask     255.255.255.0
gateway  192.168.0.1
MAC      02:76:65:73:6b:01' '' network read
    [ "$(cat got)" = '<T0000f12000000011>' ]
}

@test "network read: a record that is not whole or not right, status 3; a refusal, status 1" {
    reply='<F0000f12000130024>  reply, address 00, tag 00: read data, data 20 00 13 00'
    answers '<F0000f12000130024>abc'
    gives 3 "$reply" 'veskctl: 3 of 19 bytes came after the reply within 5000 ms' --timeout 5000 network read
    answers '<F0000f12000130024>abcabcabcabcabcabcX'
    gives 3 "$reply" 'veskctl: the network record has a wrong checksum: abcabcabcabcabcabcX' network read
    answers '<F0000f1ffffffffed>'
    on_line 1 network read
}

@test "network write: the record after the command" {
    connect 'head -c 38 >got; printf "<F0000f02000130023>"; cat >/dev/null'
    # It cannot be read back.
    run -3 --separate-stderr "$VESKCTL" --serial "$device" \
        network write 192.168.0.100 255.255.255.0 192.168.0.1 02:76:65:73:6b:01
    [ "$(head -c 19 got)" = '<T0000f02000130023>' ]
    [ "$(tail -c +20 got | od -An -tx1 -w19)" = \
        ' c0 a8 00 64 ff ff ff 00 c0 a8 00 01 02 76 65 73 6b 01 ee' ]
}

@test "text write and read" {
    connect 'head -c 28 >got; printf "<F0000f209000000fb>"; cat >/dev/null'
    on_line 0 text write 09 00 '[a=1,b=2]'
    [ "$(cat got)" = '<T0000f209000000fb>[a=1,b=2]' ]
    connect 'head -c 19 >got; printf "<F0000f309010000fd>[a=1"; sleep 0.1; printf ",b=2]"; cat >/dev/null'
    gives 0 '<F0000f309010000fd>  reply, address 00, tag 00: read text, data 09 01 00 00
[a=1,b=2]' '' text read 09 01
    [ "$(cat got)" = '<T0000f309010000fd>' ]
}

@test "text: a refusal, status 1; a text without an end, status 3" {
    answers '<F0000f2ffffffffee>'
    on_line 1 text write 01 00 '[a=1]'
    answers '<F0000f309000000fc>[a=1'
    run -3 --separate-stderr "$VESKCTL" --serial "$device" --timeout 5000 text read 09
    [ "${stderr?}" = 'veskctl: no whole text within 5000 ms: [a=1' ]
}

@test "network write: what was written is read back and compared" {
    # The device has this afterwards: $1, the record and its checksum.
    has() {
        connect "head -c 38 >/dev/null; printf '<F0000f02000130023>'
            head -c 19 >/dev/null; printf '<F0000f12000130024>'; printf '$1'; cat >/dev/null"
    }
    settings=(192.168.0.100 255.255.255.0 192.168.0.1 02:76:65:73:6b:02)
    has '\xc0\xa8\x00\x64\xff\xff\xff\x00\xc0\xa8\x00\x01\x02vesk\x01\xee'
    gives 0 '<F0000f02000130023>  reply, address 00, tag 00: write data, data 20 00 13 00
address, mask and gateway are set
the MAC 02:76:65:73:6b:02 is kept for the next start; now it is 02:76:65:73:6b:01' '' \
        network write "${settings[@]}"
    has '\xc0\xa8\x00\x65\xff\xff\x00\x00\x00\x00\x00\x00\x02vesk\x01\x87'
    on_line 1 network write "${settings[@]}"
    [[ $stderr == *'the address is 192.168.0.101 and not 192.168.0.100'* ]]
    [[ $stderr == *'the mask is 255.255.0.0 and not 255.255.255.0'* ]]
    [[ $stderr == *'the gateway is 0.0.0.0 and not 192.168.0.1'* ]]
}

@test "network write: settings that cannot work together need --force" {
    connect 'cat >got'
    for settings in '192.168.0.100 255.0.255.0 192.168.0.1 02:76:65:73:6b:01' \
        '192.168.0.100 255.255.255.0 192.168.1.1 02:76:65:73:6b:01' \
        '192.168.0.100 255.255.255.0 192.168.0.1 01:00:5e:00:00:01'; do
        read -ra words <<<"$settings"
        run -2 "$VESKCTL" --serial "$device" network write "${words[@]}"
        [[ $output == *--force* ]]
    done
    [ ! -s got ]
    connect 'head -c 38 >got; printf "<F0000f0ffffffffec>"; cat >/dev/null'
    on_line 1 network write --force "${words[@]}"
    [ "$(stat -c %s got)" = 38 ]
}

@test "send: what writes needs all its parameters, of their types; else nothing is sent" {
    connect 'cat >got'
    for command in 'write serial number' 'write serial number 12 34' 'write serial number 65536' \
        'write IP address' 'write IP address 192.168.0.1 1' 'write IP address c0 a8 00 01' \
        'write net mask' 'write net mask 255.0.255.0' 'write gateway' 'write DHCP' 'write DHCP 2' \
        'write DHCP on off' 'update block' 'update block 07' 'write data' 'write data 20 00' \
        'write text' 'write text 09' 'read device type 1' 6A10 6A101234 84 84ffffff 88 8C 8E02 9AA0 F0 F2; do
        read -ra words <<<"$command"
        run -2 "$VESKCTL" --serial "$device" send "${words[@]}"
        [ "$output" != '' ]
    done
    [ ! -s got ]
    connect 'head -c 19 >got; printf "<F00008e0201000091>"; cat >/dev/null'
    gives 0 '<F00008e0201000091>  reply, address 00, tag 00: write DHCP: on' '' send write DHCP on
    [ "$(cat got)" = '<T00008e0201000091>' ]
}

# What a device says before an update, and, when it has restarted, after it: it loses the three
# questions that come right after the last block.
ANSWERS='head -c 19 >asked; printf "<F00016801263300c3>"'
RESTARTS='head -c 76 >asked; printf "<F00056801263300c7>"; head -c 19 >>asked; printf "<F00009ab107010a5d>"; cat >/dev/null'

@test "update: block by block, numbers at the end, then the result, status 0" {
    connect "$ANSWERS"'; head -c 1044 >got; printf "<F00009aa007000041>"; head -c 1044 >>got; printf "<F00019aa007010043>"
        '"$RESTARTS"
    head -c 1000 /dev/zero | tr '\0' 'p' >new
    on_line 0 update --force new
    [[ ${lines[0]} =~ ^'2 blocks in '[0-9.]+' s, '[0-9.]+' blocks/s, 0 sent again'$ ]]
    [ "${lines[1]}" = 'the device has restarted, with version 1.10' ]
    [ "$stderr" = 'veskctl: new is no program for the device: it is no executable (ELF) file; sent because of --force' ]
    [ "$(stat -c %s got)" = 2088 ]
    [ "$(head -c 19 got)" = '<T00009aa007000041>' ]
    [ "$(tail -c +1045 got | head -c 19)" = '<T00019aa007010043>' ]
}

@test "update: with --quiet only the result" {
    connect "$ANSWERS"'; head -c 1044 >got; printf "<F00009affffffff96>"; head -c 1044 >>got; printf "<F00019aa007000042>"
        '"$RESTARTS"
    echo new >new
    on_line 0 update -q --force new
    said 'the device has restarted, with version 1.10' \
        'veskctl: new is no program for the device: it is no executable (ELF) file; sent because of --force'
}

@test "update: with --progress json every line is an object, the last the result" {
    connect "$ANSWERS"'; head -c 1044 >got; printf "<F00009aa007000041>"; '"$RESTARTS"
    echo new >new
    on_line 0 update --force --progress json new
    python3 -c 'import json, sys
lines = [json.loads(line) for line in sys.stdin]
assert [line["event"] for line in lines] == ["following", "progress", "result"], lines
assert lines[-1]["outcome"] == "restarted" and lines[-1]["version"] == "1.10" and lines[-1]["status"] == 0, lines
assert lines[-2]["done"] == lines[-2]["blocks"] == 1 and lines[-2]["sent_again"] == 0, lines
' <<<"$output"
    "$BATS_TEST_DIRNAME/validate.py" update <<<"$output"
}

@test "update: a silent line costs 6 s, status 3" {
    connect 'cat >got'
    start=$SECONDS
    gives 3 '' "veskctl: nobody answers at $device, asked twice within 5000 ms; is the device on, and is this its line?" \
        update --machine any "$(type -P true)"
    ((SECONDS - start <= 6))
    [ "$(cat got)" = '<T000168010000006a><T000268010000006b>' ]
    run -3 "$VESKCTL" --udp "$peer" --timeout 100 update --machine any "$(type -P true)"
    [[ $output == *'only where the front board sends back what it gets'* ]]
    run -3 "$VESKCTL" --udp "$peer" --timeout 100 send read device type
    [[ $output == *'only where the front board sends back what it gets'* ]]
}

@test "update: interrupted, it says how far it was, status 130" {
    connect "$ANSWERS"'; head -c 1044 >got; printf "<F00009aa007000041>"; head -c 1044 >>got; cat >/dev/null'
    head -c 1000 /dev/zero >new
    "$VESKCTL" --serial "$device" --timeout 60000 update --force new >out 2>err 3>&- &
    monitor=$!
    is_sent() { [ "$(stat -c %s got 2>/dev/null)" = 2088 ]; }
    wait_until is_sent
    kill -INT "$monitor"
    status=0
    wait "$monitor" || status=$?
    [ "$status" = 130 ]
    # The last block was sent, so nobody knows.
    grep -q 'whether the device has restarted is unknown: interrupted' err
    grep -q "Ask which version it has: veskctl --serial $device send update version" err
    connect "$ANSWERS"'; head -c 1044 >got; printf "<F00009aa007000041>"; head -c 1044 >>got; cat >/dev/null'
    head -c 2000 /dev/zero >new
    : >got
    "$VESKCTL" --serial "$device" --timeout 60000 update --force new >out 2>err 3>&- &
    monitor=$!
    wait_until is_sent
    kill -TERM "$monitor"
    status=0
    wait "$monitor" || status=$?
    [ "$status" = 130 ]
    [ "$(tail -n 1 err)" = 'veskctl: interrupted after 1 of 3 blocks; the device goes on with its old program; begin again with the same command' ]
}

@test "update: interrupted before the last block, the JSON says to begin again" {
    connect "$ANSWERS"'; head -c 1044 >got; cat >/dev/null'
    head -c 2000 /dev/zero >new
    "$VESKCTL" --serial "$device" --timeout 60000 update --force --progress json new >out 2>err 3>&- &
    monitor=$!
    is_sent() { [ "$(stat -c %s got 2>/dev/null)" = 1044 ]; }
    wait_until is_sent
    kill -INT "$monitor"
    status=0
    wait "$monitor" || status=$?
    [ "$status" = 130 ]
    run -1 grep following out
    grep -q '"message":"interrupted after 0 of 3 blocks; the device goes on with its old program","next":\["Begin again."\]}' out
    "$BATS_TEST_DIRNAME/validate.py" update <out
}

@test "update: interrupted after the last block, the result has the exit status" {
    connect "$ANSWERS"'; head -c 1044 >got; cat >/dev/null'
    echo new >new
    "$VESKCTL" --serial "$device" --timeout 60000 update --force --progress json new >out 2>err 3>&- &
    monitor=$!
    is_sent() { [ "$(stat -c %s got 2>/dev/null)" = 1044 ]; }
    wait_until is_sent
    kill -INT "$monitor"
    status=0
    wait "$monitor" || status=$?
    [ "$status" = 130 ]
    grep -q '"outcome":"unknown","status":130,' out
    "$BATS_TEST_DIRNAME/validate.py" update <out
}

@test "update: the cable is pulled in the middle, status 4 with how far it was" {
    connect "$ANSWERS"'; head -c 1044 >got; printf "<F00009aa007000041>"; head -c 500 >>got'
    head -c 2000 /dev/zero >new
    on_line 4 update --force new
    [[ $stderr == *'was closed'*'1 of 3 blocks were accepted'* ]]
}

@test "update: a file that cannot be sent" {
    connect 'cat >got'
    : >empty
    gives 2 '' 'veskctl: empty is no program for the device: the file is empty; nothing was sent' update --force empty
    gives 4 '' 'veskctl: cannot read nothing: No such file or directory' update nothing
    gives 4 '' 'veskctl: cannot read .: Is a directory' update .
    gives 2 '' 'veskctl: /etc/hosts is no program for the device: it is no executable (ELF) file; nothing was sent, and --force sends it all the same' \
        update /etc/hosts
    # This machine's own program, for the device's processor, and cut.
    on_line 2 update --machine arm "$VESKCTL"
    head -c 100000 "$VESKCTL" >cut
    on_line 2 update --machine any cut
    [[ $stderr == *'not whole'* ]]
    [ ! -s got ]
}

@test "a device has one user: the second says who has it, status 4, or waits" {
    connect 'while IFS= read -r -N 19; do printf "<F00006801263300c2>"; done'
    mkfifo input
    "$VESKCTL" --serial "$device" console <input >seen 3>&- &
    monitor=$!
    exec 7>input
    echo 'read device type' >&7
    wait_until grep -q 'front< <F' seen
    stty -F "$device" -a >before 2>&1 || true
    start=$SECONDS
    gives 4 '' "veskctl: $device is in use by process $monitor ($(cat "/proc/$monitor/comm")); end that, or wait for it with --wait MS" \
        send read device type
    ((SECONDS - start <= 1))
    (sleep 1; exec 7>&-) 7>&7 &
    exec 7>&-
    gives 0 "$type" '' --wait 60000 send read device type
    wait "$monitor"
}

@test "six at once, each gets its answer" {
    connect 'while IFS= read -r -N 19; do printf "<F00006801263300c2>"; done'
    for i in 1 2 3 4 5 6; do
        "$VESKCTL" --serial "$device" --timeout 60000 --wait 60000 send read device type >"out$i" 3>&- &
    done
    wait -n; wait -n; wait -n; wait -n; wait -n; wait -n
    for i in 1 2 3 4 5 6; do
        [ "$(cat "out$i")" = "$type" ]
    done
}

@test "output that cannot be written, status 4" {
    run -4 bash -c '"$0" decode "<T0000680100000069>" >/dev/full' "$VESKCTL"
    [ "$output" = 'veskctl: cannot write the output: No space left on device' ]
    run -4 bash -c '"$0" --help >/dev/full' "$VESKCTL"
    answers '<F00006801263300c2>'
    run -4 bash -c '"$0" --serial "$1" --timeout 60000 send read device type >/dev/full' "$VESKCTL" "$device"
    connect 'cat'
    run -4 bash -c 'echo 68 01 | "$0" --serial "$1" console >/dev/full' "$VESKCTL" "$device"
    connect 'printf "<T0000680100000069>"; cat >/dev/null'
    run -4 bash -c '"$0" --serial "$1" monitor >/dev/full' "$VESKCTL" "$device"
}

@test "wrong words: what is possible, and what may be meant, status 2" {
    run -2 "$VESKCTL" frobnicate
    [[ $output == *'"frobnicate" is not a subcommand; possible are: send, '* ]]
    run -2 "$VESKCTL" monitr
    [[ $output == *'did you mean "monitor"?'* ]]
    run -2 "$VESKCTL" --serail x monitor
    [[ $output == *'did you mean "--serial"?'* ]]
    run -2 "$VESKCTL" --serial /nowhere send raed device type
    [[ $output == *'did you mean "read device type"?'* ]]
}

@test "wrong use, status 2, before any device is touched" {
    for arguments in '' send 'send no such command' 'send 680' '--udp localhost send 68 01' \
        '--udp localhost monitor' '--timeout 0 send 68 01' '--timeout soon send 68 01' \
        'send write IP address 192.168.0.256' network \
        'network write 192.168.0.55 255.255.255.0 192.168.0.1' \
        'network write 192.168.0.55 24 192.168.0.1 02:76:65:73:6b:01' \
        'network write 192.168.0.55 255.255.255.0 192.168.0.1 1' \
        text 'text read' 'text read xy' 'text write 09 00' 'text write 09 00 \q' \
        update '--udp localhost update /bin/true'; do
        echo "--serial /nowhere $arguments"
        read -ra words <<<"$arguments"
        run -2 "$VESKCTL" --serial /nowhere "${words[@]}"
    done
    for arguments in '' dance '--udp localhost:70000 send 68 01' 'send 68 01' 'update /bin/true' \
        'network read' monitor console play; do
        echo "$arguments"
        read -ra words <<<"$arguments"
        run -2 "$VESKCTL" "${words[@]}"
    done
}

@test "wrong use: one file for --record and --pcap, status 2, and it stays as it was" {
    echo kept >a
    ln a hard
    ln -s a soft
    mkdir folder
    while read -r record pcap; do
        for subcommand in 'send 68 01' monitor console 'play nothing.txt'; do
            echo "$record $pcap $subcommand"
            read -ra words <<<"$subcommand"
            run -2 --separate-stderr "$VESKCTL" --serial /nowhere --record "$record" --pcap "$pcap" "${words[@]}"
            said '' 'veskctl: --record and --pcap name the same file; each needs its own'
        done
    done <<'END'
a a
a ./a
a hard
soft a
new new
new ./new
new folder/../new
END
    [ "$(cat a)" = kept ]
    [ ! -e new ]
    # Two files: what is wrong is the line.
    run -4 "$VESKCTL" --serial /nowhere --record new --pcap other send 68 01
}

@test "what fails on this computer, status 4" {
    run -4 --separate-stderr "$VESKCTL" --serial /nowhere/at/all send 68 01
    said '' 'veskctl: cannot open /nowhere/at/all: No such file or directory; is the adapter plugged in, and is that its name?'
    run -4 "$VESKCTL" --serial /dev/null send 68 01
    run -4 "$VESKCTL" --serial /nowhere console
    run -4 "$VESKCTL" --serial /nowhere play nothing.txt
}

@test "a cable that is pulled, status 4" {
    connect 'IFS= read -r -N 19'
    run -4 "$VESKCTL" --serial "$device" --timeout 5000 send 68 01
    [[ $output == *"$device was closed: "* ]]
}

@test "decode: frames from arguments or standard input" {
    run -0 --separate-stderr "$VESKCTL" decode '<T0000680100000069>' '<F00006A03010A0078>'
    said '<T0000680100000069>  command, address 00, tag 00: read device type
<F00006A03010A0078>  reply, address 00, tag 00: read protocol version: 1.10' ''
    run -0 "$VESKCTL" decode <<<'  <T0000680100000069><F000168ffffffff65>'
    [ "${lines[1]}" = '<F000168ffffffff65>  refusal, address 00, tag 01: read device type' ]
}

@test "decode: text that is no frame, status 2; a wrong checksum is only told" {
    run -2 --separate-stderr "$VESKCTL" decode 'abc' '<T0000680100000069>' '<T0000680100000069}'
    said '<T0000680100000069>  command, address 00, tag 00: read device type' \
        'veskctl: not a frame: abc
veskctl: not a frame: <T0000680100000069}'
    run -2 "$VESKCTL" decode <<<'<T000068'
    run -0 "$VESKCTL" decode '<T0000680100000068>'
}

@test "monitor: over UDP the daemon is told where we are" {
    socat -u "UDP4-RECV:${peer#*:},bind=${peer%:*}" OPEN:told,creat 3>&- &
    cable=$!
    wait_until peer_is_bound
    "$VESKCTL" --udp "$peer" monitor 3>&- &
    monitor=$!
    wait_until [ -s told ]
    # It listens for SIGINT and SIGTERM.
    wait_until grep -q '^SigBlk:.*4002$' "/proc/$monitor/status"
    kill -TERM "$monitor"
    wait "$monitor"
    [ "$(od -An -c told | tr -d ' ')" = '\n' ]
}

@test "console: a session from a pipe" {
    connect 'IFS= read -r -N 19; printf "<F00006801263300c2>bye\r\n"; cat >/dev/null'
    printf 'first\nsecond\r\n' >log
    run -2 --separate-stderr "$VESKCTL" --serial "$device" --timeout 60000 --log log console <<'IN'
read device type
# a comment
front hello

dance
pc hello
IN
    said 'vesk_h264 | first
vesk_h264 | second
front> <T0000680100000069>  command, address 00, tag 00: read device type
front< <F00006801263300c2>  reply, address 00, tag 00: read device type: 2633
front< bye\r\n
front> hello
"dance" is not a known command; `help` lists the commands
there is no such line: it needs --udp; `help` lists the commands' ''
}

@test "console: help lists the commands, quit ends" {
    connect 'cat >/dev/null'
    run -0 "$VESKCTL" --serial "$device" --timeout 60000 console <<<$'help\nquit\nread device type'
    for word in 'front TEXT' 'pc TEXT' quit 'read device type' 'read protocol version' 'work time'; do
        [[ $output == *"$word"* ]]
    done
    [[ $output != *'front> <T'* ]]
}

@test "console: network write refuses what the subcommand refuses, status 2" {
    connect 'cat >got'
    run -2 "$VESKCTL" --serial "$device" --timeout 200 console \
        <<<'network write 192.168.0.55 255.0.255.0 10.9.9.9 01:00:5e:00:00:01'
    [ "$output" = "255.0.255.0 is not a mask: its ones must come before its zeros, as in 255.255.255.0; nothing was sent, and the subcommand's --force sends it all the same; \`help\` lists the commands" ]
    [ ! -s got ]
}

@test "console: says when there is no answer" {
    connect 'cat >/dev/null'
    run -3 "$VESKCTL" --serial "$device" --timeout 200 console <<<'68 01'
    [ "${lines[1]}" = 'no answer within 200 ms' ]
}

@test "console: from a pipe the status is the highest of its lines" {
    connect 'IFS= read -r -N 19; printf "<F000073ffffffff6f>"; IFS= read -r -N 19; printf "<F00006801263300c2>"; cat >/dev/null'
    run -1 "$VESKCTL" --serial "$device" --timeout 60000 console <<<$'input source\nread device type'
}

@test "play: every step is printed, status 0" {
    answers '<F00006801263300c2>'
    printf '%s\n' '== Device type' 'front> <T0000680100000069>' 'front< <F00006801263300c2>' >file
    gives 0 '
== Device type
  ok    front> <T0000680100000069>   command, address 00, tag 00: read device type
  ok    front< <F00006801263300c2>   reply, address 00, tag 00: read device type: 2633

file: all 2 steps held' '' play file
}

@test "play: the first step that does not hold is named, status 1" {
    answers '<F000068ffffffff64>'
    printf '%s\n' 'front> <T0000680100000069>' 'front< <F00006801263300c2>' 'front> more' >file
    on_line 1 play file
    [ "${stderr?}" = 'veskctl: file:2: front< <F00006801263300c2>: "<F000068ffffffff64>" came' ]
    [[ $output != *more* ]]
}

@test "play: a file that is no transcript, status 2; none at all, status 4" {
    connect 'cat >/dev/null'
    echo 'front: hello' >file
    run -2 "$VESKCTL" --serial "$device" play file
    [ "$output" = 'veskctl: file:1: "front:" does not begin a step' ]
    echo 'pc> hello' >file
    run -2 "$VESKCTL" --serial "$device" play file
    [ "$output" = 'veskctl: line 1 needs --udp: pc> hello' ]
    run -4 "$VESKCTL" --serial "$device" play nothing
    [ "$output" = 'veskctl: cannot read nothing: No such file or directory' ]
}

@test "help is a manual, status 0" {
    run -0 "$VESKCTL" --help
    for word in send network text update monitor decode console play --serial --udp --timeout --log 'Exit status' Examples; do
        [[ $output == *"$word"* ]]
    done
    for subcommand in send network text update monitor decode console play; do
        run -0 "$VESKCTL" "$subcommand" --help
        [[ $output == *Example* ]]
    done
    run -0 "$VESKCTL" send --help
    [[ $output == *'68 01  read device type'* ]]
}
