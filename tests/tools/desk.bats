#!/usr/bin/env bats
# veskctl and the running daemon at one desk: the subcommands whose steps depend on what the other one
# says. VESKCTL and DAEMON name the programs (those of build/release if not set).
#
# shellcheck disable=SC2016 # the board's shell expands what is in single quotes

bats_require_minimum_version 1.5.0

setup() {
    cd "$BATS_TEST_DIRNAME/../.." || return
    export VESKCTL=${VESKCTL:-$PWD/build/release/tools/veskctl}
    export DAEMON=${DAEMON:-$PWD/build/release/vesk_h264}
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
        head -c 300000 "$DAEMON" >/opt/scratch/cut
        echo 127.0.0.1 localhost >/opt/scratch/hosts
        for file in "$DAEMON" /opt/scratch/hosts "--machine any /opt/scratch/cut"; do
            status=0
            veskctl 60000 update $file || status=$?
            [ "$status" -eq 2 ]
        done
        runs 1
        is_installed /opt/scratch/before
        ! grep "file size" /opt/scratch/vesk_h264.log' # of block 0
}

@test "update: a device that stores the wrong bytes goes on with its old program, status 5" {
    at_desk --serial "$MAKE_NEW"'
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
    at_desk --serial "$MAKE_NEW"'
        printf "<T00009aa007000041>half a block" >/dev/frontboard
        for blocks in 1 20 77 200 333; do
            (
                until [ "$(stat -c %s /userdata/_update.pkg 2>/dev/null || echo 0)" -ge $((blocks * 1024)) ]; do
                    sleep 0.005
                done
                kill -KILL "$(cat /opt/scratch/id)"
            ) &
            status=0
            sh -c "echo \$\$ >/opt/scratch/id; exec \"\$@\"" sh "$VESKCTL" $options update --machine any \
                /opt/scratch/new || status=$?
            echo "killed at $blocks: $status"
            [ "$status" -eq 137 ]
            rm -f /userdata/_update.pkg
        done
        veskctl 5000 update --machine any --restart-timeout 120000 /opt/scratch/new
        is_installed /opt/scratch/new
        runs 2'
    [ "${lines[-1]}" = 'the device has restarted, with version 1.10' ]
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
