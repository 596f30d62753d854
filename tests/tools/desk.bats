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
    run -0 --separate-stderr testbench/board sh -c '
        echo "$SESSION" >/opt/scratch/session
        chmod +x /opt/scratch/session
        exec testbench/desk "$MODE" "$DAEMON" /opt/scratch/session'
    echo "$output"
    echo "${stderr?}"
}

@test "update over the line by another build, which then answers" {
    # An executable also runs with bytes after its end.
    at_desk --serial '
        { cat "$DAEMON"; echo rebuilt; } >/opt/scratch/new
        veskctl 60000 update --query /opt/scratch/new
        for _ in $(seq 1200); do # while the daemon synchronises the disks
            runs 2 && break
            sleep 0.1
        done
        is_installed /opt/scratch/new
        veskctl 60000 send read device type'
    # 8 bytes more, and a header of 128, in blocks of 1024.
    blocks=$((($(stat -c %s "$DAEMON") + 8 + 128 + 1023) / 1024))
    [ "${lines[0]}" = '<F00009aa107040046>  reply, address 00, tag 00: update block size: 0x0400' ]
    [ "${lines[1]}" = '<F00009ab107010a5d>  reply, address 00, tag 00: update version: 1.10' ]
    [[ ${lines[2]} =~ ^"$blocks blocks in "[0-9.]+' s, '[0-9.]+' blocks/s, '[0-9]+' sent again'$ ]]
    [ "${lines[3]}" = '<F00006801263300c2>  reply, address 00, tag 00: read device type: 2633' ]
    [ "${#lines[@]}" -eq 4 ]
}

@test "update over UDP where the front board echoes" {
    # The PC hears nothing while the daemon synchronises the disks, and gives up at last; so it does
    # not. (BusyBox's shell would run its own sync.)
    at_desk --echo '
        rm /bin/sh /bin/sync
        ln -s /opt/host/bin/dash /bin/sh
        echo "#!/bin/sh" >/bin/sync
        chmod +x /bin/sync
        printf "#!/bin/sh\nexec /usr/bin/vesk_h264_backup\n%01000d" 0 >/opt/scratch/new
        veskctl 5000 update /opt/scratch/new
        is_installed /opt/scratch/new
        runs 2
        veskctl 60000 send read device type'
    [[ ${lines[0]} =~ ^'2 blocks in '[0-9.]+' s, '[0-9.]+' blocks/s, '[0-9]+' sent again'$ ]]
    [ "${lines[1]}" = '<F00006801263300c2>  reply, address 00, tag 00: read device type: 2633' ]
    [ "${#lines[@]}" -eq 2 ]
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
