#!/usr/bin/env bats
# What testbench/README.md promises of the simulated board.

bats_require_minimum_version 1.5.0

setup() {
    testbench=$BATS_TEST_DIRNAME/../../testbench
    board=$testbench/board
}

# A checkout of its own for the test, as a board shows nothing else of the host's files.
make_clone() {
    clone=$1/far/clone
    mkdir -p "$clone"
    cp -r "$testbench" "$clone/"
}

# A threaded program, built with the given compiler and options, in a checkout of its own. With an
# argument it races and reads beyond its array.
build_threaded() {
    make_clone "$BATS_TEST_TMPDIR"
    cd "$clone" || return
    cat >threaded.cpp <<'END'
#include <cstdio>
#include <thread>
int main(int argc, char **)
{
    int *answer = new int[1]{0};
    std::thread worker([answer] { *answer += 42; });
    if (argc > 1) {
        ++*answer;
    }
    worker.join();
    std::printf("%d\n", answer[argc - 1]);
    delete[] answer;
}
END
    "$@" -g -pthread -o threaded threaded.cpp
}

# Waits up to a minute for a condition: the machine may be busy.
eventually() {
    for _ in $(seq 1200); do
        "$@" && return
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

is_being_set_up() {
    [ "$(pgrep -fc "bwrap .*$1")" -eq 2 ]
}

is_gone() {
    ! pgrep -f "$1" >/dev/null
}

@test "a command runs as root of the board and its status comes back" {
    run -7 "$board" sh -c 'id -u; exit 7'
    [ "$output" = 0 ]
}

@test "arguments arrive as they were given" {
    run "$board" printf '<%s>' 'a b' '' "it's"
    [ "$output" = "<a b><><it's>" ]
}

@test "standard input, output and error are the caller's" {
    [ "$(echo hello | "$board" cat)" = hello ]
    [ "$("$board" sh -c 'echo talk >&2' 2>&1 >/dev/null)" = talk ]
    run -0 "$board" cat </dev/null
    run -0 "$board" true <&-
}

@test "a command that does not exist gives 127, one that cannot be run 126" {
    run -127 "$board" no-such-command
    run -126 "$board" /etc/issue
}

@test "a board needs no terminal" {
    [ "$(setsid --wait "$board" echo hello </dev/null)" = hello ]
}

@test "a shell on a terminal has the terminal, with job control" {
    run -5 script -qec "exec '$board' sh" /dev/null <<<'sleep 0.01 & wait; tput -T xterm cols; tty; exit 5'
    [[ $output == *80* && $output == */dev/* ]]
    [[ $output != *"job control"* && $output != *"not a tty"* ]]
}

@test "ctrl-C reaches the command, which may still tidy up" {
    local log=$BATS_TEST_TMPDIR/log
    cat >"$BATS_TEST_TMPDIR/patient" <<END
exec '$board' sh -c 'trap "sleep 0.1; echo tidied; exit 3" INT; echo ready; while :; do sleep 0.05; done'
END
    {
        eventually grep -q ready "$log"
        printf '\003'
    } | {
        run -3 script -qfec "exec sh '$BATS_TEST_TMPDIR/patient'" "$log"
        [[ $output == *tidied* ]]
    }
}

@test "the environment is the caller's but for HOME, SHELL and PATH" {
    WORD='two words' run "$board" sh -c 'echo "$WORD,$HOME,$SHELL,$PATH"'
    [ "$output" = "two words,/root,/bin/sh,/bin:/sbin:/usr/bin:/usr/sbin:/opt/host/bin:/opt/host/sbin" ]
}

@test "the userland is BusyBox's, before the host's programs" {
    run "$board" sh -c 'for tool in sh ifconfig ip awk cp cat chmod sync; do readlink -f /bin/$tool; done | uniq'
    [ "$output" = /bin/busybox ]
}

@test "the host's programs and libraries are there, read-only" {
    run -0 "$board" socat -V
    for file in /opt/host/bin/probe /opt/host/sbin/probe /lib/probe /usr/lib/probe; do
        run "$board" touch "$file"
        [ "$status" -ne 0 ]
    done
}

@test "the directories of the device are private and writable" {
    run "$board" ls /userdata
    [ "$status" -ne 0 ]
    local probe=probe-$RANDOM$RANDOM # no part of the checkout's path
    run -0 "$board" sh -ec '
        mkdir /userdata
        for d in /userdata /etc /etc/init.d /opt/scratch /usr/bin /dev /tmp; do echo x >$d/$0; done' $probe
    [ ! -e /userdata/$probe ] && [ ! -e /etc/$probe ] && [ ! -e /usr/bin/$probe ] && [ ! -e /tmp/$probe ]
    run "$board" sh -c 'ls -A /opt/scratch; ls -d /userdata /etc/$0 /usr/bin/$0 /tmp/$0 2>/dev/null' $probe
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

@test "the PC is a host of its own with three addresses" {
    run "$board" nsenter --net=/run/netns/pc ifconfig eth0
    [[ $output == *"HWaddr 02:76:65:73:6B:02"* ]]
    run "$board" nsenter --net=/run/netns/pc ip address show eth0
    for address in 192.168.0.1 192.168.0.10 192.168.0.11; do
        [[ $output == *"inet $address/24 "* ]]
    done
    run "$board" nsenter --net=/run/netns/pc ip address show lo
    [[ $output == *"inet 127.0.0.1/8 "* ]]
}

@test "nothing of the network is still being settled when the command starts" {
    run -0 "$board" sh -c 'ip -6 address show dev eth0; nsenter --net=/run/netns/pc ip -6 address show dev eth0'
    [[ $output != *inet6* ]]
}

@test "stand-ins for tools are used by another shell than BusyBox's" {
    run "$board" sh -ec '
        rm /bin/ifconfig /bin/sh
        ln -s /opt/host/bin/dash /bin/sh
        printf "#!/bin/sh\necho stand-in\n" >/bin/ifconfig
        chmod +x /bin/ifconfig
        exec /bin/sh -c ifconfig'
    [ "$output" = stand-in ]
}

@test "the host's DHCP client configures the interface from its file" {
    hash dhcpcd || skip "dhcpcd is not installed"
    run -0 "$board" sh -ec '
        printf "interface eth0\nstatic ip_address=192.168.7.77/16\nstatic routers=192.168.0.10\n" >/etc/dhcpcd.conf
        ip address flush dev eth0
        dhcpcd -4 -1 -A eth0 >/dev/null 2>&1
        ifconfig eth0 | grep -o "inet addr:[0-9.]*"
        ip route show | grep -o "default via [0-9.]*"'
    [ "$output" = "inet addr:192.168.7.77"$'\n'"default via 192.168.0.10" ]
}

@test "the host's DHCP client gets a lease from the PC" {
    hash dhcpcd dnsmasq || skip "dhcpcd or dnsmasq is not installed"
    run -0 "$board" sh -ec '
        nsenter --net=/run/netns/pc dnsmasq --no-daemon --user=root --group=root --conf-file=/dev/null \
            --port=0 --interface=eth0 --bind-interfaces --no-ping --dhcp-leasefile=/opt/scratch/leases \
            --dhcp-range=192.168.0.150,192.168.0.150,255.255.255.0,1h --log-facility=/opt/scratch/log 2>/dev/null &
        until grep -q "sockets bound" /opt/scratch/log 2>/dev/null; do sleep 0.01; done
        ip address flush dev eth0
        dhcpcd -4 -1 -A eth0 >/dev/null 2>&1
        ifconfig eth0 | grep -o "inet addr:[0-9.]*"'
    [ "$output" = "inet addr:192.168.0.150" ]
}

@test "sysfs shows the network of the board, where it may be mounted at all" {
    "$board" test -d /sys/class || skip "sysfs is refused here"
    [ "$("$board" ls /sys/class/net | xargs)" = "eth0 lo" ]
}

@test "datagrams cross the wire between the PC and the board" {
    run -0 "$board" sh -c '
        socat -u UDP-RECV:1000 OPEN:/opt/scratch/board,creat &
        nsenter --net=/run/netns/pc socat -u UDP-RECV:2000 OPEN:/opt/scratch/pc,creat &
        while [ ! -s /opt/scratch/board ] || [ ! -s /opt/scratch/pc ]; do
            echo to-board | nsenter --net=/run/netns/pc socat - UDP-SENDTO:192.168.0.100:1000,bind=192.168.0.10
            echo to-pc | socat - UDP-SENDTO:192.168.0.10:2000
        done
        head -n 1 /opt/scratch/board /opt/scratch/pc'
    [[ $output == *to-board*to-pc* ]]
}

@test "each board has a port 1000 of its own" {
    # Both hold the port for a second at the same time; socat would end at once on a taken port.
    "$board" timeout 1 socat -u UDP-RECV:1000 - 3>&- &
    run -143 "$board" timeout 1 socat -u UDP-RECV:1000 -
    wait $! || [ $? -eq 143 ]
}

@test "programs can make a serial line" {
    run "$board" sh -c 'socat PTY,link=/dev/ttyS0,raw,echo=0 PTY,link=/dev/far,raw,echo=0 &
        while [ ! -c /dev/ttyS0 ] || [ ! -c /dev/far ]; do sleep 0.01; done
        echo ping >/dev/far; head -n 1 /dev/ttyS0'
    [ "$output" = ping ]
    run -0 "$board" sh -ec 'touch /dev/ttyS0; mount --bind /dev/null /dev/ttyS0; test -c /dev/ttyS0'
}

@test "the checkout is at its own path and the current directory is kept" {
    cd "$BATS_TEST_DIRNAME"
    [ "$("$board" pwd)" = "$(pwd -P)" ]
    cd /
    [ "$("$board" pwd)" = / ]
}

@test "a checkout below /tmp works, also through a symbolic link" {
    make_clone "$BATS_TEST_TMPDIR"
    ln -s "$clone/testbench/board" "$BATS_TEST_TMPDIR/link"
    cd "$clone/testbench"
    run "$BATS_TEST_TMPDIR/link" sh -c 'pwd; echo hello >../written; ls -d "$0"' "$BATS_TEST_TMPDIR/link"
    [ "${lines[0]}" = "$(pwd -P)" ]
    [[ ${lines[1]} == ls:* ]]
    [ "$(cat "$clone/written")" = hello ]
}

@test "an ordinary user is root of a board too" {
    [ "$(id -u)" -eq 0 ] || skip "every other test already runs as an ordinary user"
    local place user=(setpriv --reuid=65534 --regid=65534 --clear-groups)
    # Below BATS_TEST_TMPDIR nobody but root may look.
    place=$(mktemp -d -p /tmp)
    make_clone "$place"
    chmod -R a+rX "$place"
    cd "$clone"
    run "${user[@]}" testbench/board sh -c '
        id -u; mkdir /userdata && pwd; nsenter --net=/run/netns/pc ifconfig eth0 | grep -o addr:192.168.0.1
        socat -u UDP-RECV:1000 - & sleep 0.2; kill $! && echo bound'
    rm -rf "$place"
    [ "$output" = "0"$'\n'"$clone"$'\n'"addr:192.168.0.1"$'\n'bound ]
}

@test "programs with the address sanitizer run and are judged" {
    build_threaded g++ -fsanitize=address,undefined
    [ "$(testbench/board ./threaded)" = 42 ]
    run testbench/board ./threaded wrong
    [ "$status" -ne 0 ]
    [[ $output == *heap-buffer-overflow*threaded.cpp* ]]
}

@test "programs with the thread sanitizer run and are judged" {
    build_threaded g++ -fsanitize=thread
    # Older runtimes take the wide address randomisation of newer kernels for an error.
    [ "$(testbench/board setarch -R ./threaded)" = 42 ]
    run testbench/board setarch -R ./threaded wrong
    [ "$status" -ne 0 ]
    [[ $output == *"data race"*threaded.cpp* ]]
}

@test "programs for the board's processor run under emulation" {
    build_threaded arm-linux-gnueabihf-g++
    [ "$(testbench/board qemu-arm -L /usr/arm-linux-gnueabihf ./threaded)" = 42 ]
}

# As the programs of this computer: by name, from a script, and not to be written to while they run.
@test "programs for the board's processor run like any others, from Linux 6.7 on" {
    "$board" test -e /proc/sys/fs/binfmt_misc/emulate || skip "this kernel has no register for a board alone"
    make_clone "$BATS_TEST_TMPDIR"
    cd "$clone"
    echo 'int main(int argc, char **argv) { while (argc > 2) pause(); return argv[1][0] - 48; }' >program.c
    local kind
    for kind in -pie -static; do
        arm-linux-gnueabihf-gcc -include unistd.h $kind -o program program.c
        run -7 testbench/board ./program 7
        run -0 testbench/board sh -c '
            cp program /usr/bin/
            printf "#!/bin/sh\nexec program 5\n" >script
            chmod +x script
            ./script
            [ $? -eq 5 ] || exit 1
            program 1 stay &
            until [ "$(pidof program)" = $! ]; do sleep 0.01; done
            ! echo >>/usr/bin/program && cp -f /bin/true /usr/bin/program || exit 2
            kill $!
            wait $!
            [ $? -eq 143 ] || exit 3
            cp program /usr/bin/other
            other 0 && ls /proc/sys/fs/binfmt_misc | grep -c running- | grep -qx 1'
    done
}

# ended SIGNAL COMMAND...: COMMAND, which starts the endless $mark on a board, gets the signal, and
# nothing is left running.
ended() {
    local signal=$1
    shift
    "$@" 3>&- &
    local id=$!
    eventually runs "$mark"
    kill "-$signal" $id
    eventually is_gone "$mark"
}

@test "what is left running when the command ends is ended too" {
    local mark=left-$RANDOM$RANDOM
    "$board" sh -c "sh -c '$(endless $mark)' & until pgrep -f 'sleep 1'; do sleep 0.01; done"
    eventually is_gone $mark
}

@test "a killed board leaves no process and no file behind" {
    local mark=killed-$RANDOM$RANDOM
    mkdir "$BATS_TEST_TMPDIR/tmp"
    TMPDIR=$BATS_TEST_TMPDIR/tmp ended KILL "$board" sh -c "$(endless $mark)"
    [ -z "$(ls -A "$BATS_TEST_TMPDIR/tmp")" ]
    [ ! -e /run/netns/pc ]
}

@test "a board killed while it is being set up leaves no process behind" {
    local mark=early-$RANDOM$RANDOM
    make_clone "$BATS_TEST_TMPDIR"
    # The set-up waits for the end of this file, which does not come.
    rm "$clone/testbench/etc/issue"
    mkfifo "$clone/testbench/etc/issue"
    exec 8<>"$clone/testbench/etc/issue"
    "$clone/testbench/board" sh -c "$(endless $mark)" 3>&- 8>&- &
    local id=$!
    eventually is_being_set_up $mark
    kill -9 $id
    eventually is_gone $mark
    exec 8>&-
}

@test "a board ends when it is told to by SIGTERM" {
    local mark=told-$RANDOM$RANDOM
    ended TERM "$board" sh -c "$(endless $mark)"
}

@test "a board dies with the one who started it" {
    local mark=orphan-$RANDOM$RANDOM
    ended KILL bash -c "'$board' sh -c '$(endless $mark)'; :"
}

# refused PATTERN COMMAND...: COMMAND says in one line, with status 125, why there is no board.
refused() {
    run -125 "${@:2}"
    [ "${#lines[@]}" -eq 1 ]
    [[ $output == "board: "$1* ]]
}

# refused_after COMMAND PATTERN: the same where COMMAND went before.
refused_after() {
    refused "$2" unshare --user --map-root-user --mount sh -c "$1"'; exec "$0" true' "$board"
}

@test "a missing tool is named in one line, with status 125" {
    mkdir "$BATS_TEST_TMPDIR/bin"
    for tool in bash env unshare setpriv busybox ip readlink; do
        ln -s "$(command -v $tool)" "$BATS_TEST_TMPDIR/bin/"
    done
    PATH=$BATS_TEST_TMPDIR/bin refused "bwrap is missing; " "$board" true
}

@test "what keeps a board from being set up is said in one line, with status 125" {
    for kind in user net pid mnt ipc uts; do
        refused_after "echo 0 >/proc/sys/user/max_${kind}_namespaces" '*refuses namespaces'
    done
    refused_after 'mount -t tmpfs tmpfs /proc/tty' '*/proc'
    make_clone "$BATS_TEST_TMPDIR"
    board=/run/clone/testbench/board # where the board has files of its own
    refused_after "mount -t tmpfs tmpfs /run && cp -r '$clone' /run" \
        '*a checkout in /run/clone cannot be used'
}

@test "a failure of the network's set-up is said in one line, with status 125" {
    mkdir "$BATS_TEST_TMPDIR/bin"
    printf '#!/bin/sh\necho "RTNETLINK answers: Operation not supported" >&2\necho "Command failed -:2" >&2\nexit 1\n' \
        >"$BATS_TEST_TMPDIR/bin/ip"
    chmod +x "$BATS_TEST_TMPDIR/bin/ip"
    PATH=$BATS_TEST_TMPDIR/bin:$PATH refused 'cannot set up the network: *not supported' "$board" true
}

@test "an unknown option is refused and help is given" {
    run -125 "$board" --nonsense
    run -125 "$board" --
    run -0 "$board" --help
    [[ $output == usage:* ]]
}
