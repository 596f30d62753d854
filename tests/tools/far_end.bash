# shellcheck shell=bash
# A script at the far end of a pair of terminals, for the tests that `load far_end`. They set $device, the
# near end's path, and $cable, empty at first; teardown kills $cable.
#
# shellcheck disable=SC2154 # the test sets device

# wait_until COMMAND...: until COMMAND succeeds, for a minute at most.
wait_until() {
    for _ in $(seq 1200); do
        "$@" && return
        sleep 0.05
    done
    echo "in vain: $*"
    return 1
}

# connect SCRIPT: $device becomes a serial line whose far end SCRIPT reads and writes.
connect() {
    disconnect
    printf '%s\n' "$1" >"$BATS_TEST_TMPDIR/script"
    socat "PTY,link=$device,raw,echo=0" EXEC:"bash $BATS_TEST_TMPDIR/script" 3>&- &
    cable=$!
    wait_until [ -c "$device" ]
}

# disconnect: the far end goes away, if there is one.
disconnect() {
    if [ -n "$cable" ]; then
        kill "$cable"
        wait "$cable" || true
        cable=
    fi
}
