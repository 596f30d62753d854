#!/usr/bin/env bats
# What the supervisor and vesk_h264_program do with programs that start and with programs that do not.

bats_require_minimum_version 1.5.0

setup() {
    cd "$BATS_TEST_DIRNAME/../.." || return
}

# Runs a script on a board of its own, with the functions of supervised.sh.
on_board() {
    testbench/board sh -c ". tests/packaging/supervised.sh; $1"
}

@test "two failures: the program is started again, and stays" {
    on_board '
        plan $program young fail fail up
        plan ${program}_backup old up
        supervise
        eventually test -s ${program}_good
        check is $program young
        check not started old 1
        check grep -qx "$(sha256sum <$program | cut -d" " -f1)" ${program}_good'
}

@test "three failures: the backup takes its place, the program is kept, one line says so" {
    on_board '
        plan $program young fail
        plan ${program}_backup old up
        supervise
        eventually started old 1
        check is $program old
        check is ${program}_failed young
        check test "$(grep -cx young $scratch/starts)" -eq 3
        check said "vesk_h264: the program did not come up 3 times; replaced by the backup, and kept as /usr/bin/vesk_h264_failed"
        check logged "the program did not come up 3 times; replaced by the backup"
        check test "$(wc -l <$scratch/console)" -eq 1'
}

@test "it is the same with status 0, with a program that hangs, and with one that ends soon after" {
    for word in zero hang brief; do
        on_board '
            [ '$word' != hang ] || echo MAIN_SECONDS=6 >>/etc/default/vesk_h264
            plan $program young '$word'
            plan ${program}_backup old up
            supervise
            eventually started old 1
            check is ${program}_failed young
            check test "$(grep -cx young $scratch/starts)" -eq 3' &
        pids+=($!)
    done
    for pid in "${pids[@]}"; do
        wait "$pid"
    done
}

@test "a program that was good is never replaced, though it fails four times and more" {
    on_board '
        plan $program young up
        plan ${program}_backup old up
        supervise
        eventually test -s ${program}_good
        # As if the same program failed from now on: a wrong state of the device, not of the program.
        plan $scratch/new young fail
        sha256sum <$scratch/new | cut -d" " -f1 >>${program}_good
        left=$(running)
        mv $scratch/new $program
        kill "$left"
        eventually started young 6
        check is $program young
        check not started old 1
        check not said replaced'
}

@test "a program that cannot be executed is replaced before it is tried" {
    on_board '
        plan $program young up
        plan ${program}_backup old up
        plan $scratch/whole young up
        for fault in missing empty text mode short segments machine; do
            case $fault in
            missing) rm $program ;;
            empty) : >$program ;;
            text) echo "#!/bin/sh" >$program ;;
            mode) cp $scratch/whole $program; chmod 644 $program ;;
            short) head -c 9000 $scratch/whole >$program ;;
            segments) head -c 9000 $scratch/whole >$program # and no section table
                printf "\0\0\0" | dd of=$program bs=1 seek=40 conv=notrunc 2>/dev/null
                printf "\0\0" | dd of=$program bs=1 seek=60 conv=notrunc 2>/dev/null ;;
            machine) cp $scratch/whole $program
                printf "\050" | dd of=$program bs=1 seek=18 conv=notrunc 2>/dev/null ;;
            esac
            [ "$fault" = mode ] || chmod 755 $program
            : >$scratch/console
            check vesk_h264_program before-start
            check is $program old
            check test -x $program
            eventually said "replaced by the backup"
            case $fault in
            missing) check said "there is no program; replaced by the backup"; check not said kept ;;
            mode) check said "the program has no execute bit" ;;
            *) check said "the program is cut short or not for this processor" ;;
            esac
        done'
}

@test "a good program that has lost its execute bit gets it back" {
    on_board '
        plan $program young up
        plan ${program}_backup old up
        sha256sum <$program | cut -d" " -f1 >${program}_good
        chmod 644 $program
        supervise
        eventually started young 1
        eventually said "the program has no execute bit; it was given back"
        check is $program young'
}

@test "both bad: it says why, goes on trying with pauses, and never gives up" {
    for backup in same short machine none; do
        on_board '
            plan $program young fail
            plan ${program}_backup old up
            case '$backup' in
            same) cp $program ${program}_backup; reason="the backup is the same program" ;;
            short) head -c 9000 $program >${program}_backup; reason="the backup is cut short" ;;
            machine) printf "\050" | dd of=${program}_backup bs=1 seek=18 conv=notrunc 2>/dev/null
                reason="not for this processor, so it stays" ;;
            none) rm ${program}_backup; reason="there is no backup" ;;
            esac
            supervise
            eventually said "$reason"
            eventually started young 8
            check is $program young
            # With pauses of 1, 2, 2 ... s that takes thirteen seconds: neither a tight loop nor ever longer.
            check test "$(grep -cx young $scratch/starts)" -le 8' &
        pids+=($!)
    done
    for pid in "${pids[@]}"; do
        wait "$pid"
    done
}

@test "an update's own restart is no failure, however often and soon it comes" {
    on_board '
        plan $program one brief
        plan ${program}_backup old up
        supervise
        for next in two three four five; do
            eventually started "$(tail -n 1 $program | cut -d" " -f2)" 1
            plan $scratch/new $next brief
            mv $scratch/new $program
        done
        eventually started five 3
        eventually said "did not come up 3 times"
        check test "$(wc -l <$scratch/console)" -eq 1'
}

@test "an update after two failures is no third one" {
    on_board '
        plan $program one fail fail update
        plan $scratch/new two up
        plan ${program}_backup old up
        supervise
        eventually test -s ${program}_good
        check is $program two
        check not started old 1'
}

@test "failures count in a row only: a program that was up in between is not replaced" {
    on_board '
        echo GOOD_SECONDS=60 >>/etc/default/vesk_h264
        plan $program young fail fail late fail fail late up
        plan ${program}_backup old up
        supervise
        eventually started young 7
        check is $program young'
}

@test "a note survives a power cut and holds for its program only" {
    on_board '
        plan $program young up
        plan ${program}_backup old up
        supervise
        eventually test -s ${program}_good
        kill -KILL $supervisor "$(running)"
        rm -f /run/vesk_h264.*
        echo half >${program}_good.new
        chmod 644 $program
        supervise
        eventually said "it was given back"
        kill $supervisor
        wait $supervisor
        plan $program other fail
        supervise
        eventually started old 1'
}

@test "a directory that is read-only: it says so and goes on without" {
    on_board '
        plan $program young up
        mount -o bind /usr/bin /usr/bin && mount -o remount,bind,ro /usr/bin
        supervise
        eventually said "which cannot be noted in /usr/bin/vesk_h264_good"
        check kill -0 "$(running)"'
    on_board '
        plan $program young fail
        plan ${program}_backup old up
        mount -o bind /usr/bin /usr/bin && mount -o remount,bind,ro /usr/bin
        supervise
        eventually said "cannot be copied to /usr/bin/vesk_h264_new, so it stays"
        eventually started young 5'
    on_board '
        plan $program young up
        plan ${program}_backup old up
        sha256sum <$program | cut -d" " -f1 >${program}_good
        chmod 644 $program
        mount -o bind /usr/bin /usr/bin && mount -o remount,bind,ro /usr/bin
        supervise
        eventually said "the program has no execute bit; it cannot be given back: is the disk read-only?"
        mount -o remount,bind,rw /usr/bin
        eventually said "it was given back"
        eventually started young 1'
}

@test "a program that cannot be replaced, being a mount point: it says so, and leaves nothing" {
    on_board '
        plan $program young fail
        plan ${program}_backup old up
        plan ${program}_failed older fail
        mount -o bind $program $program
        supervise
        eventually said "the program did not come up 3 times; it cannot be replaced by the backup, so it stays"
        eventually started young 4
        check is ${program}_failed older
        check test "$(echo ${program}_*)" = "${program}_backup ${program}_failed"'
}

@test "the log gets a hundred lines a second, whole ones, and how many were left out" {
    on_board '
        plan $program young chatty
        supervise
        eventually logged "xxx whole"
        eventually logged "lines were left out"
        kill $supervisor
        kept=$(grep -c ": line [0-9]*$" $scratch/log)
        lost=$(sed -n "s/.*: \([0-9]*\) lines were left out$/\1/p" $scratch/log | awk "{ sum += \$1 } END { print sum }")
        # With "enter main" there are 1001 lines, in one second of the clock or in two.
        check test $((kept + lost)) -ge 1000
        check test $((kept + lost)) -le 1001
        check test "$kept" -le 200
        check test "$kept" -ge 99'
}

@test "for systemd it becomes the program: its process, a hundred lines a second, and a file when it starts up" {
    on_board '
        export RUNTIME_DIRECTORY=$scratch/run
        mkdir $RUNTIME_DIRECTORY
        plan $program young chatty
        vesk_h264_program run 100 >$scratch/output &
        eventually test -e $RUNTIME_DIRECTORY/main
        check test "$(running)" = $!
        eventually grep -q "xxx whole" $scratch/output
        eventually grep -q "lines were left out" $scratch/output
        kill $!
        kept=$(grep -c "^line [0-9]*$" $scratch/output)
        lost=$(sed -n "s/^\([0-9]*\) lines were left out$/\1/p" $scratch/output | awk "{ sum += \$1 } END { print sum }")
        check test $((kept + lost)) -ge 1000
        check test $((kept + lost)) -le 1001
        check test "$kept" -le 200
        check test "$kept" -ge 99
        # The file is of this start.
        plan $scratch/new young hang
        mv $scratch/new $program
        vesk_h264_program run 100 >$scratch/output &
        eventually started young 2
        check not test -e $RUNTIME_DIRECTORY/main'
}

@test "a long line is cut after 900 bytes" {
    on_board '
        sed -n "/^filter_output/,/^}/p" /usr/sbin/vesk_h264_supervisor >$scratch/filter
        . $scratch/filter
        LOG_LINES=100 events=/dev/null
        { seq 1000 | tr -d "\n"; echo; echo next; } | filter_output 1 >$scratch/kept
        { seq 1000 | tr -d "\n" | head -c 900; echo; echo next; } >$scratch/wanted
        check cmp $scratch/kept $scratch/wanted'
}

@test "a step of the clock begins a new second for the log, and no line is lost uncounted" {
    on_board '
        # A board has the clock of the computer, so the filter gets one of its own: it goes back, and then on.
        sed -n "/^filter_output/,/^}/p" /usr/sbin/vesk_h264_supervisor |
            sed "s/systime()/(NR <= 250 ? 7200 : NR <= 500 ? 3600 : 9000)/" >$scratch/filter
        check grep -q 7200 $scratch/filter
        . $scratch/filter
        LOG_LINES=100 events=/dev/null
        seq 600 | filter_output 1 >$scratch/kept
        { seq 100; echo "150 lines were left out"; seq 251 350; echo "150 lines were left out"; seq 501 600; } >$scratch/wanted
        check cmp $scratch/kept $scratch/wanted
        seq 351 | filter_output 1 >$scratch/kept
        check test "$(tail -n 1 $scratch/kept)" = "1 line was left out"'
}

@test "a stop ends the program too; what a killed supervisor left is ended by the next" {
    on_board '
        plan $program young up
        supervise
        eventually started young 1
        eventually runs
        left=$(running)
        kill -KILL $supervisor
        supervise
        eventually started young 2
        check not test -e "/proc/$left/exe"
        eventually runs
        left=$(running)
        kill $supervisor
        wait $supervisor
        check not kill -0 "$left"'
}

@test "a program ends and nothing reports it: it is started again" {
    on_board '
        plan $program young up
        supervise
        eventually test -s ${program}_good
        left=$(running)
        reporter=$(sed -n "s/^PPid:[^0-9]*//p" "/proc/$left/status")
        check not test "$reporter" = $supervisor
        kill -KILL "$reporter"
        sleep 5 # which is no reason to start another one
        check test "$(running)" = "$left"
        kill -KILL "$left"
        eventually started young 2
        check kill -0 $supervisor'
}

@test "a stop at any moment of a start ends the program too" {
    on_board '
        plan $program young up
        for pause in 0 0.01 0.02 0.03 0.04 0.05 0.06 0.08 0.1 0.2; do
            supervise
            sleep $pause
            kill $supervisor
            wait $supervisor
            check not runs
        done'
}

@test "a program that was replaced while no supervisor ran is ended by the next one" {
    on_board '
        plan $program young up
        supervise
        eventually started young 1
        kill -KILL $supervisor
        left=$(running)
        plan $scratch/new other up
        mv $scratch/new $program
        supervise
        eventually started other 1
        check not test -e "/proc/$left/exe"'
}

@test "a second supervisor ends at once, and the first goes on" {
    on_board '
        plan $program young up
        supervise
        eventually started young 1
        first=$supervisor
        supervise
        wait $supervisor
        check kill -0 $first
        check runs
        check test "$(grep -cx young $scratch/starts)" -eq 1'
}

@test "of two supervisors that start at once one stays, whatever a killed one left" {
    on_board '
        plan $program young up
        one_stays() { [ "$(kill -0 $first 2>/dev/null && echo yes)" != "$(kill -0 $supervisor 2>/dev/null && echo yes)" ]; }
        for round in 1 2 3 4 5; do
            supervise
            first=$supervisor
            supervise
            eventually started young $round
            eventually one_stays
            check runs
            kill -KILL $first $supervisor 2>/dev/null
            wait $first $supervisor
        done
        mkdir /run/vesk_h264.taking
        supervise
        eventually started young 6
        check not test -e /run/vesk_h264.taking'
}

@test "a log that nobody reads, a full /run, settings that are no numbers: it is started all the same" {
    on_board '
        plan $program young up
        kill -STOP "$(pidof syslogd)"
        rm $program
        plan ${program}_backup old up
        for _ in $(seq 15); do
            rm -f $program
            check timeout 20 vesk_h264_program before-start
        done
        supervise
        eventually started old 1'
    on_board '
        plan $program young up
        mkdir -p /run/netns && mount -t tmpfs -o size=4k tmpfs /run
        cat /dev/zero >/run/full 2>/dev/null
        supervise
        eventually started young 1'
    on_board '
        plan $program young fail
        printf "MAIN_SECONDS=10\r\nUP_SECONDS=\nLONGEST_PAUSE=x\n" >/etc/default/vesk_h264
        supervise
        eventually started young 3
        check not started young 8'
    for pause in 0 08; do
        on_board '
            plan $program young fail
            printf "LONGEST_PAUSE='$pause'\n" >/etc/default/vesk_h264
            supervise
            eventually started young 3
            check not started young 8'
    done
}

@test "settings with a fault are left out: one line says so, and it is started all the same" {
    for fault in "CONSOLE=\"/opt" "if" "exit 0" "LOG_LINES=\$MISSING" "program=x" ". /missing"; do
        on_board '
            ln -s ../run /var/run 2>/dev/null
            cp packaging/board/S60vesk_h264 /etc/init.d/
            echo '"'$fault'"' >/etc/default/vesk_h264
            plan $program young up
            eventually logged "syslogd started"
            check sh /etc/init.d/S60vesk_h264 start
            eventually started young 1
            eventually logged "/etc/default/vesk_h264 cannot be read or has a fault, so none of it counts"
            check test "$(grep -c "has a fault" $scratch/log)" -eq 1
            check runs' &
        pids+=($!)
    done
    for pid in "${pids[@]}"; do
        wait "$pid"
    done
}

@test "a time of no seconds means the usual one" {
    for name in MAIN_SECONDS UP_SECONDS; do
        on_board '
            echo '$name'=0 >>/etc/default/vesk_h264
            # It prints "enter main" at once and runs for four seconds: not up in ten, but up and good in two.
            plan $program young late
            plan ${program}_backup old up
            supervise
            case '$name' in
            MAIN_SECONDS)
                eventually test -s ${program}_good
                eventually started young 3
                check not logged "so it is ended"
                check is $program young ;;
            UP_SECONDS)
                eventually started old 1
                check test "$(grep -cx young $scratch/starts)" -eq 3
                check is ${program}_failed young ;;
            esac' &
        pids+=($!)
    done
    on_board '
        echo GOOD_SECONDS=0 >>/etc/default/vesk_h264
        plan $program young up
        supervise
        eventually grep -q "up$" /run/vesk_h264.tries
        sleep 4
        check not test -e ${program}_good' &
    pids+=($!)
    for pid in "${pids[@]}"; do
        wait "$pid"
    done
}

@test "no room for two copies: what failed before makes room for the backup, and what fails now is kept" {
    on_board '
        size=$((($(wc -c <$STAND_IN) / 4096 + 1) * 4))
        mount -t tmpfs -o size=$((size * 7 / 2))k tmpfs /usr/bin
        plan $program young fail
        plan ${program}_backup old up
        cp $program ${program}_failed
        supervise
        eventually started old 1
        check is ${program}_failed young'
}

@test "no room for the backup, whatever makes room: what failed before stays" {
    on_board '
        # The backup is larger by what failed before and more.
        truncate -s $(($(wc -c <$STAND_IN) / 1024 * 3))k $scratch/more
        size=$((($(wc -c <$STAND_IN) / 4096 + 1) * 4))
        mount -t tmpfs -o size=$((size * 7))k tmpfs /usr/bin
        plan $program young fail
        { cat $STAND_IN $scratch/more; printf "\nPLAN old up\n"; } >${program}_backup
        plan ${program}_failed older fail
        check test "$(wc -c <${program}_backup)" -gt 0
        supervise
        eventually said "the backup cannot be copied to /usr/bin/vesk_h264_new, so it stays"
        check is $program young
        check is ${program}_failed older
        check not test -e ${program}_new'
}

@test "what failed before is replaced by what fails now, which needs no room" {
    on_board '
        size=$((($(wc -c <$STAND_IN) / 4096 + 1) * 4))
        mount -t tmpfs -o size=$((size * 9 / 2))k tmpfs /usr/bin
        plan $program young fail
        plan ${program}_backup old up
        plan ${program}_failed older fail
        supervise
        eventually said "replaced by the backup, and kept as /usr/bin/vesk_h264_failed"
        check is $program old
        check is ${program}_failed young'
    on_board '
        # Where there was no program, nothing fails now.
        plan ${program}_backup old up
        plan ${program}_failed older fail
        check vesk_h264_program before-start
        check is $program old
        check is ${program}_failed older'
}

@test "a program for 32-bit ARM is whole with its last byte only, and not for another processor" {
    on_board '
        # As on a board: what this shell runs on is the first 20 bytes of an ARM program.
        sed -n "/^is_whole/,/^}/p" /usr/sbin/vesk_h264_program | sed "s|/proc/self/exe|$scratch/ours|" >$scratch/function
        check grep -q $scratch/ours $scratch/function
        . $scratch/function

        # elf SECTIONS: two segments, which end at 128 and at 384, and a section table of so many entries at 512.
        elf() {
            printf "\177ELF\1\1\1\0\0\0\0\0\0\0\0\0"         # 32 bits, the low byte first
            printf "\2\0\50\0\1\0\0\0\124\0\1\0\64\0\0\0"     # an executable for ARM; the segments are described at 52
            if [ "$1" = 0 ]; then printf "\0\0\0\0"; else printf "\0\2\0\0"; fi
            printf "\0\4\0\5\64\0\40\0\2\0\50\0\\$1\0\0\0"    # entries of 32 and of 40 bytes
            printf "\1\0\0\0\0\0\0\0\0\0\1\0\0\0\1\0\200\0\0\0\200\0\0\0\5\0\0\0\0\0\1\0"
            printf "\1\0\0\0\0\1\0\0\0\0\2\0\0\0\2\0\200\0\0\0\200\0\0\0\6\0\0\0\0\0\1\0"
            head -c 1000 /dev/zero
        }
        elf 2 | head -c 592 >$scratch/whole
        elf 0 | head -c 384 >$scratch/stripped
        head -c 20 $scratch/whole >$scratch/ours
        for file in whole stripped; do
            check is_whole $scratch/$file
            size=$(wc -c <$scratch/$file)
            for length in $(seq 0 16 $((size - 1))) $((size - 1)); do
                head -c "$length" $scratch/$file >$scratch/cut
                check not is_whole $scratch/cut
            done
        done

        # byte AT OCTAL: the whole one with another byte.
        byte() {
            cp $scratch/whole $scratch/other
            printf "\\$2" | dd of=$scratch/other bs=1 seek=$1 conv=notrunc 2>/dev/null
            is_whole $scratch/other
        }
        check byte 16 3     # loaded at any address
        check not byte 16 1 # an object
        check not byte 16 4 # a core
        check not byte 18 76 # x86-64
        check not byte 18 10 # MIPS
        check not byte 4 2  # 64 bits
        check not byte 5 2  # the high byte first
        check not byte 44 0 # no segment
        check not byte 48 3 # a section table of more than the file has
        check not byte 101 3 # a segment of more than the file has
        # The same file is for another processor where the shell is.
        head -c 20 /proc/self/exe >$scratch/ours
        check not is_whole $scratch/whole'
}

@test "who cannot be told, on the console or in the log, holds it for seconds only and leaves no process" {
    on_board '
        plan $program young up
        plan ${program}_backup old up
        kill -STOP "$(pidof syslogd)"
        for _ in $(seq 12); do logger -t filler full & done
        mkfifo $scratch/nobody
        echo CONSOLE=/opt/scratch/nobody >>/etc/default/vesk_h264
        # What still waits to tell something: the console, and the log, of vesk_h264_program and of the supervisor.
        waits_for_console() { grep -qs "vesk_h264: there is n[o]" /proc/[0-9]*/cmdline; }
        waits_for_log() { grep -qs "daemon[.]warning" /proc/[0-9]*/cmdline; }
        rm -f $program
        timeout -s KILL 60 vesk_h264_program before-start &
        telling=$!
        eventually waits_for_console
        eventually waits_for_log
        check wait $telling
        eventually not waits_for_console
        eventually not waits_for_log
        supervise
        eventually started old 1
        vesk_h264_supervisor # which is the second, and says so
        eventually waits_for_log
        eventually not waits_for_log
        check kill -0 $supervisor'
}

@test "the init script starts, restarts and stops it, as a program and by sh" {
    for init in /etc/init.d/S60vesk_h264 "sh packaging/board/S60vesk_h264"; do
        on_board '
            ln -s ../run /var/run 2>/dev/null
            cp packaging/board/S60vesk_h264 /etc/init.d/
            chmod 755 /etc/init.d/S60vesk_h264
            plan $program young up
            check '"$init"' start
            eventually started young 1
            check '"$init"' start # again, which changes nothing
            sleep 2
            check test "$(grep -cx young $scratch/starts)" -eq 1
            check '"$init"' restart
            eventually started young 2
            eventually runs
            left=$(running)
            check '"$init"' stop
            check not kill -0 "$left"
            check not test -e /var/run/vesk_h264.pid
            '"$init"' status && exit 1
            # A supervisor that was killed leaves a program, which may ignore the signal.
            check '"$init"' start
            eventually started young 3
            eventually runs
            left=$(running)
            kill -KILL "$(cat /var/run/vesk_h264.pid)"
            check '"$init"' stop
            eventually not test -e "/proc/$left/exe"
            check not '"$init"' stop
            # An old pid file names another process by now.
            sleep 100 &
            echo $! >/var/run/vesk_h264.pid
            check not '"$init"' stop
            check kill -0 $!' &
        pids+=($!)
    done
    for pid in "${pids[@]}"; do
        wait "$pid"
    done
}

@test "the init script is one that Buildroot installs: no execute bit of its own, and POSIX" {
    [ ! -x packaging/board/S60vesk_h264 ]
    testbench/board sh -n packaging/board/S60vesk_h264
}
