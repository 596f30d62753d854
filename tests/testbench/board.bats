#!/usr/bin/env bats
# What testbench/README.md promises of the simulated board.

setup() {
    board=$BATS_TEST_DIRNAME/../../testbench/board
}

# Waits up to five seconds for a condition.
eventually() {
    for _ in $(seq 100); do
        if "$@"; then
            return 0
        fi
        sleep 0.05
    done
    return 1
}

# The command that a test leaves on a board: it never ends and carries a word to be found by.
endless() {
    echo "while :; do sleep 1; done; : $1"
}

runs() {
    pgrep -fx "sh -c $(endless "$1")" >/dev/null
}

is_gone() {
    ! pgrep -f "$1" >/dev/null
}

@test "a command runs as root of the board and its status comes back" {
    run "$board" sh -c 'id -u; exit 7'
    [ "$status" -eq 7 ]
    [ "$output" = 0 ]
}

@test "arguments arrive as they were given" {
    run "$board" printf '<%s>' 'a b' '' "it's"
    [ "$output" = "<a b><><it's>" ]
}

@test "standard input, output and error are the caller's" {
    [ "$(echo hello | "$board" cat)" = hello ]
    [ "$("$board" sh -c 'echo talk >&2' 2>&1 >/dev/null)" = talk ]
    run "$board" cat </dev/null
    [ "$status" -eq 0 ]
    run "$board" true <&-
    [ "$status" -eq 0 ]
}

@test "the userland is BusyBox's, before the host's programs" {
    run "$board" sh -c 'for tool in sh ifconfig ip awk cp cat chmod sync; do readlink -f /bin/$tool; done | uniq'
    [ "$output" = /bin/busybox ]
    run "$board" sh -c 'echo $PATH'
    [ "$output" = /bin:/sbin:/usr/bin:/usr/sbin:/opt/host/bin:/opt/host/sbin ]
    run "$board" socat -V
    [ "$status" -eq 0 ]
}

@test "the directories of the device are private and writable" {
    run "$board" sh -ec 'mkdir /userdata; for d in /userdata /etc /etc/init.d /usr/bin /dev /tmp; do echo x >$d/probe; done'
    [ "$status" -eq 0 ]
    [ ! -e /userdata/probe ] && [ ! -e /etc/probe ] && [ ! -e /usr/bin/probe ]
    run "$board" sh -c 'ls -d /userdata /etc/probe /usr/bin/probe 2>/dev/null'
    [ -z "$output" ]
}

@test "the device's configuration files are there" {
    run "$board" sh -c 'head -n 1 /etc/issue; cat /etc/resolv.conf; /etc/init.d/S41dhcpcd stop && echo stopped; grep -c ^interface /etc/dhcpcd.conf'
    [ "${lines[0]}" = v2.13 ]
    [ "${lines[1]}" = "nameserver 192.168.0.1" ]
    [ "${lines[2]}" = stopped ]
    [ "${lines[3]}" = 0 ]
}

@test "ifconfig shows the known address of eth0 first" {
    run "$board" ifconfig
    [[ ${lines[0]} == "eth0      Link encap:Ethernet  HWaddr 02:76:65:73:6B:01"* ]]
    [[ $output == *"inet addr:192.168.0.100 "*"Mask:255.255.255.0"* ]]
    run "$board" ip route show
    [[ ${lines[0]} == "default via 192.168.0.1 dev eth0"* ]]
}

@test "datagrams cross the wire between the PC and the board" {
    run "$board" sh -c '
        socat -u UDP-RECV:1000 OPEN:/tmp/board,creat &
        nsenter --net=/run/netns/pc socat -u UDP-RECV:2000 OPEN:/tmp/pc,creat &
        while [ ! -s /tmp/board ] || [ ! -s /tmp/pc ]; do
            echo to-board | nsenter --net=/run/netns/pc socat - UDP-SENDTO:192.168.0.100:1000,bind=192.168.0.10
            echo to-pc | socat - UDP-SENDTO:192.168.0.10:2000
        done
        head -n 1 /tmp/board /tmp/pc'
    [ "$status" -eq 0 ]
    [[ $output == *to-board*to-pc* ]]
}

@test "each board has a port 1000 of its own" {
    # Both hold the port for a second at the same time; socat would end at once on a taken port.
    "$board" timeout 1 socat -u UDP-RECV:1000 - 3>&- &
    run "$board" timeout 1 socat -u UDP-RECV:1000 -
    [ "$status" -eq 143 ]
    wait $! || [ $? -eq 143 ]
}

@test "programs can make a serial line" {
    run "$board" sh -c 'socat PTY,link=/dev/ttyS0,raw,echo=0 PTY,link=/dev/far,raw,echo=0 &
        while [ ! -c /dev/ttyS0 ] || [ ! -c /dev/far ]; do sleep 0.01; done
        echo ping >/dev/far; head -n 1 /dev/ttyS0'
    [ "$output" = ping ]
}

@test "the checkout is at its own path and the current directory is kept" {
    cd "$BATS_TEST_DIRNAME"
    [ "$("$board" pwd)" = "$(pwd -P)" ]
    cd /
    [ "$("$board" pwd)" = / ]
}

@test "what is left running when the command ends is ended too" {
    local mark=left-$RANDOM$RANDOM
    "$board" sh -c "sh -c '$(endless $mark)' & until pgrep -f 'sleep 1'; do sleep 0.01; done"
    eventually is_gone $mark
}

@test "a killed board leaves no process and no file behind" {
    local mark=killed-$RANDOM$RANDOM
    mkdir "$BATS_TEST_TMPDIR/tmp"
    TMPDIR=$BATS_TEST_TMPDIR/tmp "$board" sh -c "$(endless $mark)" 3>&- &
    local id=$!
    eventually runs $mark
    kill -9 $id
    eventually is_gone $mark
    [ -z "$(ls -A "$BATS_TEST_TMPDIR/tmp")" ]
    [ ! -e /run/netns/pc ]
}

@test "a board dies with the one who started it" {
    local mark=orphan-$RANDOM$RANDOM
    bash -c "'$board' sh -c '$(endless $mark)'; :" 3>&- &
    local id=$!
    eventually runs $mark
    kill -9 $id
    eventually is_gone $mark
}

@test "a missing tool is named in one line, with status 125" {
    mkdir "$BATS_TEST_TMPDIR/bin"
    for tool in bash env unshare setpriv busybox ip readlink; do
        ln -s "$(command -v $tool)" "$BATS_TEST_TMPDIR/bin/"
    done
    PATH=$BATS_TEST_TMPDIR/bin run "$board" true
    [ "$status" -eq 125 ]
    [ "${#lines[@]}" -eq 1 ]
    [[ $output == "board: bwrap is missing; "* ]]
}

@test "refused namespaces are said in one line, with status 125" {
    mkdir "$BATS_TEST_TMPDIR/bin"
    printf '#!/bin/sh\necho "unshare: unshare failed: Operation not permitted" >&2\nexit 1\n' \
        >"$BATS_TEST_TMPDIR/bin/unshare"
    chmod +x "$BATS_TEST_TMPDIR/bin/unshare"
    PATH=$BATS_TEST_TMPDIR/bin:$PATH run "$board" true
    [ "$status" -eq 125 ]
    [ "${#lines[@]}" -eq 1 ]
    [[ $output == *namespaces* ]]
}

@test "an unknown option is refused and help is given" {
    run "$board" --nonsense
    [ "$status" -eq 125 ]
    run "$board" --help
    [ "$status" -eq 0 ]
    [[ $output == usage:* ]]
}
