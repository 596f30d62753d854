#!/usr/bin/env bats
# `veskctl timing`: what it prints where, and its exit status; no device. timing_test.py holds its numbers
# against others. VESKCTL names the program (build/release/tools/veskctl if not set).
#
# shellcheck disable=SC2016 # the inner shell expands what is in single quotes

bats_require_minimum_version 1.5.0

VESKCTL=${VESKCTL:-$BATS_TEST_DIRNAME/../../build/release/tools/veskctl}

setup() {
    mkdir "$BATS_TEST_TMPDIR/work"
    cd "$BATS_TEST_TMPDIR/work" || return
}

# gives STATUS STDOUT STDERR ARGUMENT...: what `veskctl timing ARGUMENT...` does and prints.
gives() {
    run "-$1" --separate-stderr "$VESKCTL" timing "${@:4}"
    [ "$output" = "$2" ] || { echo "standard output: $output"; return 1; }
    [ "${stderr?}" = "$3" ] || { echo "standard error: $stderr"; return 1; }
}

# is_json NAME STATUS ARGUMENT...: every line of what it prints is as docs/schema/timing-NAME.schema.json says.
is_json() {
    run "-$2" --separate-stderr "$VESKCTL" timing "$1" --json "${@:3}"
    "$BATS_TEST_DIRNAME/validate.py" "timing-$1" <<<"$output"
}

@test "list: all 124 formats, each on a line; filters by size, rate and class" {
    run -0 "$VESKCTL" -q timing list
    [ "${#lines[@]}" -eq 124 ]
    run -0 "$VESKCTL" timing list
    [ "${#lines[@]}" -eq 125 ]
    gives 0 ' 11  1920x1080x59.94   1920x1080  2200x1125  148.351648  60   59.94  ++' '' \
        -q list --size 1920x --rate 59.94 --class none
    while read -r count arguments; do
        read -ra words <<<"$arguments"
        run -0 "$VESKCTL" -q timing list "${words[@]}"
        [ "${#lines[@]}" -eq "$count" ] || { echo "$arguments: ${#lines[@]}"; return 1; }
    done <<'END'
7 --class interlaced
4 --class sd
35 --class 4K2K
16 --class 8k1k
66 --class none
8 --size 7680x1080
26 --size 1920x1080
8 --size x2160 --rate 60
1 --rate 29.9
END
}

@test "list: nothing like this, status 1" {
    gives 1 '' 'veskctl: no format is like this' list --size 1920x1080 --rate 85
}

@test "show: all formats that bear a name, or the one with an id" {
    gives 0 '103  1024x2160x25
                active  front porch  sync  back porch  total  start  sync is
    horizontal    1024          242    22          32   1320     54  positive
    vertical      2160            9    10          71   2250     81  positive
    clock 74.25 MHz; 25 Hz, by the clock 25; lines 56.25 kHz
    class: 4K2K; GS4911 code: 45; list: none
    an input with the format'\''s own numbers, 1024 2160 1320 2250 25, is reported as 101 1024x2160x29.98' '' show 103
    for name in 1920x1080x60 1920X1080X60; do
        run -0 --separate-stderr "$VESKCTL" timing show "$name"
        [ "$(grep '^[0-9]' <<<"$output")" = '10  1920x1080x60
66  1920x1080x60' ]
    done
    run -0 "$VESKCTL" timing show 3840x2160x29.97 92
    [ "$(grep '^[0-9]' <<<"$output" | cut -d ' ' -f 1 | paste -sd ' ')" = '78 84 92' ]
    [[ $output == *'a quarter of 76 3840x2160x60'* ]]
    gives 0 '# format 38: 60 Hz, 33.75 kHz
Modeline "1920x1080x60i"  74.25  1920 2012 2056 2200  1080 1085 1090 1125 interlace +hsync +vsync' '' \
        show --modeline 38
}

@test "calc: the device's timing beside the standard's, differences marked" {
    gives 0 '1366x768@60             device     CVT-RB v1       CVT-RB v2
H active                  1366          1360 *          1366
H front porch               42            48 *             8 *
H sync                      32            32              32
H back porch                80            80              40 *
H total                   1520          1520            1446 *
H start                    112           112              72 *
H sync is             positive      positive        positive
V active                   768           768             768
V front porch                3             3               8 *
V sync                       4            10 *             8 *
V back porch                15             9 *             6 *
V total                    790           790             790
V start                     19            19              14 *
V sync is             positive      negative *      negative *
pixel clock, MHz        72.048            72 *         68.54 *
line rate, kHz            47.4        47.368 *          47.4
rate, Hz                    60         59.96 *            60
accepted: the clock is 72 MHz, the limit 600' '' calc 1366 768 60
    gives 0 '# the device'\''s 1920x1080@60: 60 Hz, 66.66 kHz
Modeline "1920x1080@60"  138.6528  1920 1968 2000 2080  1080 1083 1087 1111 +hsync +vsync
# CVT-RB v1 1920x1080@60: 59.934 Hz, 66.587 kHz
Modeline "1920x1080@60-rb1"  138.50  1920 1968 2000 2080  1080 1083 1088 1111 +hsync -vsync
# CVT-RB v2 1920x1080@60: 60 Hz, 66.66 kHz
Modeline "1920x1080@60-rb2"  133.32  1920 1928 1960 2000  1080 1097 1105 1111 +hsync -vsync' '' \
        calc --modeline 1920 1080 60
}

@test "calc: a clock above the limit, status 1; 600.9 MHz is within it" {
    run -1 --separate-stderr "$VESKCTL" timing calc 4096 2160 70
    [ "${lines[-1]}" = 'the device refuses 4096x2160@70: its clock is 664 MHz, and the limit is 600' ]
    [[ ${lines[5]} =~ ^'H total '\ +'-  '\ +'4256  '\ +4176$ ]]
    gives 1 '# CVT-RB v1 4096x2160@70: 69.978 Hz, 156.191 kHz
Modeline "4096x2160@70-rb1"  664.75  4096 4144 4176 4256  2160 2163 2173 2232 +hsync -vsync
# CVT-RB v2 4096x2160@70: 70 Hz, 156.24 kHz
Modeline "4096x2160@70-rb2"  652.458  4096 4104 4136 4176  2160 2218 2226 2232 +hsync -vsync' \
        'veskctl: the device refuses 4096x2160@70: its clock is 664 MHz, and the limit is 600' \
        calc --modeline 4096 2160 70
    # 4256 pixels by more than 2160 lines, 240 times a second, are beyond 2147 MHz, where the device's numbers end.
    run -1 "$VESKCTL" timing calc 4096 2160 240
    [ "${lines[-1]}" = 'the device refuses 4096x2160@240: its clock is 2147 MHz or more, and the limit is 600' ]
    run -0 "$VESKCTL" timing calc 1840 4870 60
    run -1 "$VESKCTL" timing calc 1840 4871 60
    # One that is refused counts, wherever it is.
    run -1 "$VESKCTL" timing calc 4096 2160 70 1920 1080 60
}

@test "calc: numbers that are not what was meant are explained" {
    run -0 "$VESKCTL" timing calc 640 480 2500
    [ "${lines[-1]}" = 'above 2173 Hz no time is left for a line, and the numbers are useless' ]
    run -0 "$VESKCTL" timing calc 640 100 60
    [ "${lines[-1]}" = 'the vertical sync reaches 4 lines into the picture' ]
    run -1 --separate-stderr "$VESKCTL" timing calc --modeline 640 100 60
    [ "$stderr" = "veskctl: the device's 640x100@60 has no modeline: V sync is 4, but V start is 0" ]
}

@test "detect: the format that the device reports, also for one field; none, status 1" {
    gives 0 '2  1280x720x60
                active  front porch  sync  back porch  total  start  sync is
    horizontal    1280          110    40         220   1650    260  positive
    vertical       720            5     5          20    750     25  positive
    clock 74.25 MHz; 60 Hz, by the clock 60; lines 45 kHz
    class: none; GS4911 code: 11; list: outFormatList
    these have the same numbers: 3 1280x720x59.94' '' detect 1281 719 1646 754 56
    run -0 "$VESKCTL" timing detect 1920 540 2640 563 50
    [ "${lines[0]}" = '39  1920x1080x50i' ]
    [[ $output == *'found by the numbers of one field'* ]]
    # Those of the whole frame are another's.
    [[ $output == *"an input with the format's own numbers, 1920 1080 2640 1125 50, is reported as 12 1920x1080x50"* ]]
    gives 1 '126  UNDEFINE: no format is near' '' detect 1282 720 1650 750 60
    gives 1 '' 'veskctl: no format is near' detect --modeline 1000 1000 1100 1100 60
    gives 0 '# format 2: 60 Hz, 45 kHz
Modeline "1280x720x60"  74.25  1280 1390 1430 1650  720 725 730 750 +hsync +vsync' '' \
        detect --modeline 1280 720 1650 750 60
}

@test "with --json every line is as the schema says" {
    is_json list 0
    is_json show 0 1920x1080x60 103
    is_json calc 0 1920 1080 60 640 100 1 640 480 2500 70000 3 1
    is_json calc 1 4096 2160 70
    is_json detect 0 1920 540 2200 562 60
    is_json detect 1 1 2 3 4 5
}

@test "draw: a picture, whole or not at all" {
    gives 0 '' '' draw 10 -o new.svg
    [ "$(stat -c %a new.svg)" = "$(printf '%o' $((0666 & ~$(umask))))" ]
    chmod 600 new.svg
    ln -s new.svg link.svg
    gives 0 '' '' draw 1366x768@60 -o link.svg
    grep -q 'Custom format 1366x768@60' new.svg
    [ -L link.svg ]
    [ "$(stat -c %a new.svg)" = 600 ]
    run -0 "$VESKCTL" timing draw 10 -o -
    [ "${lines[-1]}" = '</svg>' ]
    [ "$(ls)" = 'link.svg
new.svg' ]
}

@test "draw: what cannot be drawn or written; nothing has changed" {
    echo old >old.svg
    gives 1 '' 'veskctl: the device refuses 4096x2160@70: its clock is 664 MHz, and the limit is 600; nothing was written' \
        draw 4096x2160@70 -o old.svg
    gives 1 '' 'veskctl: the device refuses 4096x2160@240: its clock is 2147 MHz or more, and the limit is 600; nothing was written' \
        draw 4096x2160@240 -o old.svg
    gives 2 '' 'veskctl: 640x100@60 cannot be drawn: V sync is 4, but V start is 0' draw 640x100@60 -o old.svg
    gives 2 '' 'veskctl: "1920x1080x60" is the name of the formats 10 and 66; give the id' \
        draw 1920x1080x60 -o old.svg
    [ "$(cat old.svg)" = old ]
    mkdir folder
    mkfifo pipe
    gives 4 '' 'veskctl: cannot write folder: Is a directory' draw 10 -o folder
    gives 4 '' 'veskctl: cannot write pipe: it is not a regular file' draw 10 -o pipe
    gives 4 '' 'veskctl: cannot write none/a.svg: No such file or directory' \
        draw 10 -o none/a.svg
    run -4 bash -c '"$0" timing draw 10 -o - >/dev/full' "$VESKCTL"
    [ "$(ls)" = 'folder
old.svg
pipe' ]
}

@test "wrong use: one line that says what and why, status 2" {
    while IFS='|' read -r arguments message; do
        read -ra words <<<"$arguments"
        gives 2 '' "veskctl: $message" "${words[@]}" || { echo "$arguments"; return 1; }
    done <<'END'
calc 0 1080 60|WIDTH: "0" is not a whole number from 1 to 2147483647
calc 1920 -1080 60|HEIGHT: "-1080" is not a whole number from 1 to 2147483647
calc 1920 1080 59.94|RATE: "59.94" is not a whole number from 1 to 2147483647
calc 1920 1080 2147483648|RATE: "2147483648" is not a whole number from 1 to 2147483647
calc 1920 1080|a mode is three numbers: WIDTH HEIGHT RATE
calc 1920 1080 60 1280|a mode is three numbers: WIDTH HEIGHT RATE
detect 1920 1080 2200 1125|a measured timing is five numbers: HDE VDE HTOTAL VTOTAL RATE
detect 1920 1080 2200 0x465 60|VTOTAL: "0x465" is not a whole number from 0 to 2147483647
show 124|format 124 is not in the table, which has 0 to 123; 124 is the custom format: see `veskctl timing calc`
show 127|format 127 is not in the table, which has 0 to 123; 127 stands for NO INPUT
show 256|format 256 is not in the table, which has 0 to 123
show 1920x1080x61|no format has the name "1920x1080x61" (did you mean "1920x1080x60"?)
list --size 1920|--size: "1920" is not WIDTHxHEIGHT, WIDTHx or xHEIGHT
list --size x|--size: "x" is not WIDTHxHEIGHT, WIDTHx or xHEIGHT
list --rate fast|--rate: "fast" is not a number of Hz
list --json --modeline|--json or --modeline, not both
draw 10 --standard v1 -o a.svg|--standard is for WIDTHxHEIGHT@RATE
draw 640x480@2174 --standard v1 -o a.svg|the standard has no 640x480@2174
draw 640xx@60 -o a.svg|the height: "x" is not a whole number from 1 to 2147483647
END
    for arguments in '' dance 'list --class HD' show calc detect draw 'draw 10'; do
        read -ra words <<<"$arguments"
        run -2 --separate-stderr "$VESKCTL" timing "${words[@]}"
        [ "$output" = '' ]
        [ "$(wc -l <<<"${stderr?}")" -eq 1 ]
    done
    [ "$(ls)" = '' ]
}

@test "help: the statuses and examples of timing, not those of the whole program" {
    run -0 "$VESKCTL" timing --help
    [ "$(grep -oE '^ {4}[0-9]+' <<<"$output" | paste -sd ' ' | tr -s ' ')" = ' 0 1 2 4' ]
    [ "$(grep -c '^  veskctl timing ' <<<"$output")" -eq 5 ]
    [ "$(grep -c '^  veskctl ' <<<"$output")" -eq 5 ]
    [[ $output != *'refused by the device'* ]]
}
