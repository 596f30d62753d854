# shellcheck shell=sh disable=SC2034 # names for the cases
# For cases on the simulated board: the supervisor with programs that behave as planned (stand_in.cpp), and
# shorter times. STAND_IN is the program.

readonly program=/usr/bin/vesk_h264
readonly scratch=/opt/scratch

mkdir -p /etc/default
cp packaging/board/vesk_h264_supervisor packaging/board/vesk_h264_program /usr/sbin/
cat >/etc/default/vesk_h264 <<'END'
CONSOLE=/opt/scratch/console
MAIN_SECONDS=30
UP_SECONDS=1
GOOD_SECONDS=1
LONGEST_PAUSE=2
END
: >$scratch/console
: >$scratch/starts
syslogd -n -O $scratch/log &

# plan FILE NAME WORD...
plan() {
    plan_file=$1
    shift
    { cat "$STAND_IN" && echo && echo "PLAN $*"; } >"$plan_file"
    chmod 755 "$plan_file"
}

supervise() {
    vesk_h264_supervisor &
    supervisor=$!
}

uptime_seconds() {
    cut -d. -f1 /proc/uptime
}

# Waits up to two minutes for a condition: the machine may be busy.
eventually() {
    end=$(($(uptime_seconds) + 120))
    while [ "$(uptime_seconds)" -lt $end ]; do
        "$@" && return
        sleep 0.1
    done
    echo "never: $*"
    tail -n 30 $scratch/starts $scratch/log
    exit 1
}

started() { # NAME TIMES, or more
    [ "$(grep -cx "$1" $scratch/starts)" -ge "$2" ]
}

said() { # TEXT
    grep -qF "$1" $scratch/console
}

logged() { # TEXT
    grep -qF "$1" $scratch/log
}

# The process of the program; nothing if none runs.
running() {
    for process in /proc/[0-9]*; do
        [ "$(readlink "$process/exe")" != $program ] || echo "${process#/proc/}"
    done
}

runs() {
    [ -n "$(running)" ]
}

is() { # FILE NAME
    tail -n 1 "$1" | grep -q "^PLAN $2 "
}

# Every check of a case must hold.
check() {
    "$@" && return
    echo "not so: $*"
    cat $scratch/starts $scratch/console
    exit 1
}

not() {
    ! "$@"
}
