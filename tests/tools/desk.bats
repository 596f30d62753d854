#!/usr/bin/env bats
# veskctl and the running daemon at one desk: the subcommands whose steps depend on what the other one
# says. VESKCTL and VESK_DAEMON or DAEMON name the programs (those of build/release if not set).
#
# shellcheck disable=SC2016 # the board's shell expands what is in single quotes

bats_require_minimum_version 1.5.0

setup() {
    cd "$BATS_TEST_DIRNAME/../.." || return
    export VESKCTL=${VESKCTL:-$PWD/build/release/tools/veskctl}
    export DAEMON=${VESK_DAEMON:-${DAEMON:-$PWD/build/release/vesk_h264}}
}

# at_desk MODE SCRIPT: the board's shell runs SCRIPT, with this instead of veskctl and the desk's options:
# veskctl TIMEOUT SUBCOMMAND...
at_desk() {
    export MODE=$1 SESSION="#!/bin/sh
        set -eu
        options=\$*
        veskctl() { \"\$VESKCTL\" \$options --timeout \"\$@\"; }
        is_installed() { head -c \"\$(wc -c <\"\$1\")\" /usr/bin/vesk_h264 | cmp - \"\$1\"; }
        runs() { [ \"\$(grep -c '^enter main' /opt/scratch/vesk_h264.log)\" -eq \"\$1\" ]; }
        $2"
    run --separate-stderr testbench/board sh -c '
        echo "$SESSION" >/opt/scratch/session
        chmod +x /opt/scratch/session
        exec testbench/desk "$MODE" "$DAEMON" /opt/scratch/session'
    echo "$output"
    echo "${stderr?}"
    [ "$status" -eq 0 ]
}

# An executable also runs with bytes after its end.
MAKE_NEW='{ cat "$DAEMON"; echo rebuilt; } >/opt/scratch/new'

@test "update over the line by another build, which then answers" {
    at_desk --serial "$MAKE_NEW"'
        veskctl 60000 update --machine any --restart-timeout 120000 --query /opt/scratch/new
        runs 2
        is_installed /opt/scratch/new
        veskctl 60000 send read device type'
    # 8 bytes more, and a header of 128, in blocks of 1024.
    blocks=$((($(stat -c %s "$DAEMON") + 8 + 128 + 1023) / 1024))
    [ "${lines[0]}" = '<F00009aa107040046>  reply, address 00, tag 00: update block size: 0x0400' ]
    [ "${lines[1]}" = '<F00009ab107010a5d>  reply, address 00, tag 00: update version: 1.10' ]
    [[ ${lines[2]} =~ ^"$blocks blocks in "[0-9.]+' s, '[0-9.]+' blocks/s, '[0-9]+' sent again'$ ]]
    [ "${lines[3]}" = 'the device has restarted, with version 1.10' ]
    [ "${lines[4]}" = '<F00006801263300c2>  reply, address 00, tag 00: read device type: 2633' ]
    [ "${#lines[@]}" -eq 5 ]
}

@test "update over UDP where the front board echoes: no block is sent again" {
    at_desk --echo '
        printf "#!/bin/sh\nexec /usr/bin/vesk_h264_backup\n%01800d" 0 >/opt/scratch/new
        veskctl 5000 update --force --restart-timeout 120000 /opt/scratch/new
        is_installed /opt/scratch/new
        runs 2
        veskctl 60000 send read device type'
    [[ ${lines[0]} =~ ^'2 blocks in '[0-9.]+' s, '[0-9.]+' blocks/s, 0 sent again'$ ]]
    [ "${lines[1]}" = 'the device has restarted, with version 1.10' ]
    [ "${lines[2]}" = '<F00006801263300c2>  reply, address 00, tag 00: read device type: 2633' ]
}

@test "update: a file that is no program for the device is not sent" {
    at_desk --serial '
        cp /usr/bin/vesk_h264 /opt/scratch/before
        head -c $(($(wc -c <"$DAEMON") / 2)) "$DAEMON" >/opt/scratch/cut
        echo 127.0.0.1 localhost >/opt/scratch/hosts
        for file in /opt/host/bin/false /opt/scratch/hosts "--machine any /opt/scratch/cut"; do
            status=0
            veskctl 60000 update $file || status=$?
            [ "$status" -eq 2 ]
        done
        runs 1
        is_installed /opt/scratch/before
        ! grep "file size" /opt/scratch/vesk_h264.log' # of block 0
}

@test "update: a device that stores the wrong bytes goes on with its old program, status 5" {
    # So long that the rest of it takes longer than to see that it is time.
    at_desk --serial "$MAKE_NEW"'
        head -c 200000 /dev/zero >>/opt/scratch/new
        (
            until [ "$(stat -c %s /userdata/_update.pkg 2>/dev/null || echo 0)" -gt 50000 ]; do
                sleep 0.01
            done
            : >/userdata/_update.pkg
        ) &
        status=0
        veskctl 5000 update --machine any /opt/scratch/new || status=$?
        [ "$status" -eq 5 ]
        runs 1'
    [[ $stderr == *'veskctl: the device goes on with its old program: '* ]]
}

@test "update: a program that does not answer, status 5" {
    at_desk --serial '
        status=0
        veskctl 5000 update --machine any --restart-timeout 3000 /opt/host/bin/false || status=$?
        [ "$status" -eq 5 ]'
    [[ $stderr == *'veskctl: the device has not answered for 3000 ms after the last block'* ]]
    [[ $stderr == *'Ask again in a minute: veskctl --serial /dev/frontboard send read device type'* ]]
}

@test "update: after half a block, and killed at some blocks and begun again, it ends well" {
    # As long as in the case above, for the same reason.
    at_desk --serial "$MAKE_NEW"'
        head -c 200000 /dev/zero >>/opt/scratch/new
        printf "<T00009aa007000041>half a block" >/dev/frontboard
        size=$(wc -c </opt/scratch/new)
        for percent in 0 5 20 50 80; do
            bytes=$((size * percent / 100 + 1))
            (
                until [ "$(stat -c %s /userdata/_update.pkg 2>/dev/null || echo 0)" -ge "$bytes" ]; do
                    sleep 0.005
                done
                kill -KILL "$(cat /opt/scratch/id)"
            ) &
            # On a busy machine the daemon waits for the other half for longer than veskctl asks.
            status=3
            while [ "$status" -eq 3 ]; do
                status=0
                sh -c "echo \$\$ >/opt/scratch/id; exec \"\$@\"" sh "$VESKCTL" $options --timeout 60000 update \
                    --machine any /opt/scratch/new || status=$?
            done
            echo "killed at $percent %: $status"
            [ "$status" -eq 137 ]
            rm -f /userdata/_update.pkg
        done
        veskctl 5000 update --machine any --restart-timeout 120000 /opt/scratch/new
        is_installed /opt/scratch/new
        runs 2'
    [ "${lines[-1]}" = 'the device has restarted, with version 1.10' ]
}

@test "update: a device that hears nothing, status 3 within 6 s" {
    at_desk --serial '
        kill -STOP "$(pidof vesk_h264)"
        start=$(date +%s)
        status=0
        veskctl 1000 update --machine any "$DAEMON" || status=$?
        [ $(($(date +%s) - start)) -le 6 ]
        kill -CONT "$(pidof vesk_h264)"
        [ "$status" -eq 3 ]'
    [ "$stderr" = 'veskctl: nobody answers at /dev/frontboard, asked twice within 5000 ms; is the device on, and is this its line?' ]
}

@test "update: interrupted, it says how far it was; the device goes on, and it can be begun again" {
    at_desk --serial "$MAKE_NEW"'
        (
            until [ "$(stat -c %s /userdata/_update.pkg 2>/dev/null || echo 0)" -gt 20000 ]; do
                sleep 0.01
            done
            kill -INT "$(cat /opt/scratch/id)"
        ) &
        status=0
        sh -c "echo \$\$ >/opt/scratch/id; exec \"\$@\"" sh "$VESKCTL" $options --timeout 60000 update --machine any \
            /opt/scratch/new || status=$?
        [ "$status" -eq 130 ]
        ! is_installed /opt/scratch/new
        runs 1
        veskctl 60000 update --machine any --restart-timeout 120000 /opt/scratch/new
        is_installed /opt/scratch/new'
    [[ $stderr =~ 'veskctl: interrupted after '[0-9]+' of '[0-9]+' blocks; the device goes on with its old program; begin again with the same command' ]]
    [ "${lines[-1]}" = 'the device has restarted, with version 1.10' ]
}

@test "send: the device keeps what it has when a command that writes is not whole" {
    at_desk --serial '
        refuses() {
            status=0
            veskctl 60000 send "$@" || status=$?
            [ "$status" -eq 2 ] || exit 9
        }
        veskctl 60000 send write serial number 0x1234
        veskctl 60000 send write DHCP off
        veskctl 60000 send write net mask 255.255.255.255
        veskctl 60000 send write gateway 192.168.0.7
        veskctl 60000 send write IP address 192.168.0.9
        refuses write serial number
        refuses write serial number 12 34
        refuses write serial number 65536
        refuses 6A10
        refuses write DHCP
        refuses write DHCP 2
        refuses write net mask
        refuses write net mask 255.0.255.0
        refuses write gateway
        refuses write gateway 192.168.0
        refuses write IP address
        refuses 88
        veskctl 60000 send read serial number
        veskctl 60000 send read DHCP
        veskctl 60000 send read net mask
        veskctl 60000 send read gateway'
    [[ ${lines[-4]} == *': read serial number: 4660 (0x1234)' ]]
    [[ ${lines[-3]} == *': read DHCP: off' ]]
    [[ ${lines[-2]} == *': read net mask: 255.255.255.255' ]]
    [[ ${lines[-1]} == *': read gateway: 192.168.0.7' ]]
}

@test "a device has one user: the others wait, or say who has it" {
    at_desk --serial '
        for i in 1 2 3 4 5 6; do
            veskctl 60000 --wait 60000 send read device type >/opt/scratch/out$i &
        done
        wait
        cat /opt/scratch/out?
        veskctl 60000 monitor --wait 60000 >/opt/scratch/heard &
        until veskctl 60000 send 68 01 2>&1 | grep -q "in use"; do
            sleep 0.1
        done
        status=0
        veskctl 60000 send 68 01 || status=$?
        kill "$(pidof veskctl)"
        wait
        [ "$status" -eq 4 ]'
    [ "$(sort -u <<<"$output")" = '<F00006801263300c2>  reply, address 00, tag 00: read device type: 2633' ]
    [ "${#lines[@]}" -eq 6 ]
    [[ $stderr =~ 'veskctl: /dev/frontboard is in use by process '[0-9]+' (veskctl); end that, or wait for it with --wait MS' ]]
}

@test "output that cannot be written, status 4; a console from a pipe has the highest status of its lines" {
    at_desk --serial '
        is() {
            wanted=$1
            shift
            status=0
            "$@" || status=$?
            [ "$status" -eq "$wanted" ] || exit 9
        }
        into_full() { veskctl 60000 "$@" >/dev/full; }
        from_pipe() { printf "%s\n" "$@" | veskctl 60000 console >/dev/null; }
        is 4 into_full send read device type
        is 4 into_full info
        is 4 into_full network read --json
        is 0 from_pipe "read device type"
        is 1 from_pipe "input source" "read device type"
        is 2 from_pipe "read device type" "write IP address"'
}

@test "network write: what the interface has now is compared" {
    at_desk --serial '
        veskctl 60000 network write 192.168.0.100 255.255.255.0 192.168.0.1 02:76:65:73:6b:02
        status=0
        veskctl 60000 network write --force 192.168.0.100 255.255.255.0 10.0.0.1 02:76:65:73:6b:02 || status=$?
        [ "$status" -eq 1 ]'
    [[ $output == *'address, mask and gateway are set
the MAC 02:76:65:73:6b:02 is kept for the next start; now it is '* ]]
    [[ $stderr == *'the gateway is '*' and not 10.0.0.1'* ]]
}

@test "network read and text read: what follows the reply" {
    at_desk --serial '
        veskctl 60000 network read
        veskctl 60000 text write 09 01 "[a=1,b=2]"
        veskctl 60000 text read 09 01'
    [ "$output" = '<F0000f12000130024>  reply, address 00, tag 00: read data, data 20 00 13 00
address  192.168.0.100
mask     255.255.255.0
gateway  192.168.0.1
MAC      02:76:65:73:6b:01
<F0000f209010000fc>  reply, address 00, tag 00: write text, data 09 01 00 00
<F0000f309010000fd>  reply, address 00, tag 00: read text, data 09 01 00 00
[]' ]
}

@test "the example of a driver runs every command that reads" {
    at_desk --serial '/opt/host/bin/python3 protocol/read_all.py /dev/frontboard'
    [ "$output" = 'read device type: <F00006801263300c2>
read protocol version: <F00006a03010a0078>
read system version: <F00006a04020d007d>
read serial number: <F00006a110000007b>
read net mask: <F000085ffffff0082>
read IP address: <F000089c0a8006455>
read gateway: <F00008dc0a80001f6>
read DHCP: <F00008e0301000092>
read MAC address, first half: <F00008e0502766570>
read MAC address, last half: <F00008e07736b0174>
update query: <F00009a10000000aa>
update block size: <F00009aa107040046>
update version: <F00009ab107010a5d>
read data: <F0000f12000130024> c0a80064ffffff00c0a80001027665736b01ee
read text: <F0000f300000000f3> 5b5d' ]
}
