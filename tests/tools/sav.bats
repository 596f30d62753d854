#!/usr/bin/env bats
# veskctl sav at its command line: what it prints where, its exit status, and that a file is written whole
# or not at all. VESKCTL names the program (build/release/tools/veskctl if not set).
#
# shellcheck disable=SC2016 # the editors' shells expand what is in single quotes
# shellcheck disable=SC2030,SC2031 # each case has variables of its own

VESKCTL=${VESKCTL:-$BATS_TEST_DIRNAME/../../build/release/tools/veskctl}

bats_require_minimum_version 1.5.0

# The folder of each case has one whole file of each kind, under the name that the device uses.
setup() {
    cd "$BATS_TEST_TMPDIR" || return
    local data=$BATS_TEST_DIRNAME/../data/first-start
    cp "$data/save0.sav" "$data/workTime.sav" .
    # The records that docs/files.md shows.
    bytes 38 76 24 06 00 00 d0 07 01 01 c0 a8 00 64 c0 a8 00 01 ff ff ff 00 c2 19 02 81 c2 19 02 82 00 00 \
        00 00 00 00 00 00 00 00 00 00 00 01 02 03 04 05 06 07 01 32 00 00 00 00 >UserPref.sav
    bytes 5c 36 cd 4b 34 12 00 00 00 00 00 00 00 32 00 00 00 00 00 00 >DevInfo.sav
    { bytes ad 04 11 20; head -c 148 /dev/zero; } >timeCon0.sav
    # The preview has an identification, and the program view has none before it is stored.
    tail -c +3813 save0.sav | head -c 3996 >view3.sav
    local i
    for ((i = 0; i < 16; i++)); do cat view3.sav; done >page0_0.sav
    whole=(UserPref.sav DevInfo.sav save0.sav view3.sav page0_0.sav timeCon0.sav workTime.sav)
}

# bytes XX...: writes these bytes.
bytes() {
    printf '%b' "$(printf '\\x%s' "$@")"
}

# gives STATUS STDOUT STDERR ARGUMENT...: what `veskctl sav ARGUMENT...` does and prints.
gives() {
    run "-$1" --separate-stderr "$VESKCTL" sav "${@:4}"
    [ "$output" = "$2" ] || { echo "standard output: $output"; return 1; }
    [ "${stderr?}" = "$3" ] || { echo "standard error: $stderr"; return 1; }
}

# refuses STATUS STDERR ARGUMENT...: the same for what prints nothing and changes no file here.
refuses() {
    state >"$BATS_TEST_TMPDIR.before"
    gives "$1" '' "veskctl: $2" "${@:3}"
    state | diff "$BATS_TEST_TMPDIR.before" -
}

# Every file, with its content.
state() {
    find . -type f ! -name 'separate-stderr-*' -printf '%p %m ' -exec sha256sum {} \; | sort
}

# Root reads and writes what it wants, so it does without.
as_anybody() {
    if ((EUID == 0)); then
        set -- setpriv --bounding-set=-dac_override,-dac_read_search "$@"
    fi
    "$@"
}

takes() {
    "$BATS_TEST_DIRNAME/validate.py" "$@"
}

@test "dump: a table with the values that docs/files.md reads in the record" {
    gives 0 'UserPref.sav: UserPref, 56 bytes

UserPref.sav
  offset  field             value                      unit or range
       0  identification    0x06247638                 0x06247638
       4  language          0                          0 or 1
       5  loadFadeInOutOff  0                          0 or 1
       6  preferenceWord    2000
       8  networkFlag       1
       9  dhcpEnable        1                          0 or 1
      10  ipAddress         192.168.0.100              address
      14  gateway           192.168.0.1                address
      18  netMask           255.255.255.0              leading ones
      22  dns               194.25.2.129 194.25.2.130  two addresses
      30  mac               00:00:00:00:00:00          MAC address
      36  delayCallTime     0
      37  reserved37        0x00
      38  delayCallIndex    0
      39  padLockEnable     0                          0, or not 0
      40  padLockState      0
      41  reserved41        0x00
      42  indexTable        0 1 2 3 4 5 6 7            entry n holds n
      50  preferenceBytes   013200
      53  padding           000000' '' dump UserPref.sav
}

@test "dump: several files in one table each; chapters as in docs/files.md" {
    run -0 "$VESKCTL" sav dump save0.sav DevInfo.sav
    [ "$(grep '^[^ ]' <<<"$output")" = 'save0.sav: save, 11832 bytes
save0.sav
Timings of inputs and outputs
Inputs
Outputs
preview: view0.sav to view15.sav
program: view0.sav to view15.sav
DevInfo.sav: DevInfo, 20 bytes
DevInfo.sav' ]
    grep -qxE '  \[0\] to \[23\] +76 +0 +4400 +2250 +384 +82 +3840 +2160 +88 +10' <<<"$output"
    grep -qxE ' +3736  customResolution.width +1920 +pixels' <<<"$output"
}

@test "dump: the values of each layer, and of a page each view" {
    run -0 "$VESKCTL" sav dump page0_0.sav
    [ "$(grep -c '^views\[[0-9]*\]: view0.sav to view15.sav$' <<<"$output")" -eq 16 ]
    grep -qxE ' +62682  views\[15\]\.viewNumber +0 +0 to 15' <<<"$output"
    grep -qx '  views\[15\].layers, at 59956 and every 26 bytes' <<<"$output"
}

@test "dump --json: every kind, whole, too short and too long, is as its schema says" {
    local file kind
    for file in "${whole[@]}"; do
        mkdir short long
        head -c $(($(stat -c %s "$file") / 3 + 1)) "$file" >"short/$file"
        { cat "$file"; echo more; } >"long/$file"
        "$VESKCTL" sav dump --json "$file" "short/$file" "long/$file" >json
        [ "$(wc -l <json)" -eq 3 ]
        kind=${file%.sav}
        takes "sav-${kind%%[0-9]*}" json
        [[ $file == page* ]] || takes sav-dump json
        rm -r short long
    done
}

@test "dump --json: the schemas are those of the program" {
    local file
    takes
    for file in "$BATS_TEST_DIRNAME"/../../docs/schema/sav-*.schema.json; do
        file=${file##*/sav-}
        file=${file%.schema.json}
        case $file in dump | diff | set | check) continue ;; esac
        "$VESKCTL" sav schema "$file" | diff - "$BATS_TEST_DIRNAME/../../docs/schema/sav-$file.schema.json"
    done
}

@test "dump and make: every byte of whole and damaged files comes back" {
    local file length
    umask 027
    for file in "${whole[@]}"; do
        for length in 0 1 7 23 1000 3995 $(($(stat -c %s "$file") - 1)) "$(stat -c %s "$file")" 999999; do
            { cat "$file"; head -c 3 /dev/zero; } | head -c "$length" >"cut"
            "$VESKCTL" sav dump --json --kind "$("$VESKCTL" sav dump --json "$file" |
                sed 's/.*"kind":"\([A-Za-z]*\)".*/\1/')" cut | "$VESKCTL" sav make - -o made
            cmp cut made
            [ "$(stat -c %a made)" = 640 ]
            rm made
        done
    done
}

@test "dump: under another name the content tells the kind; --kind says it where that does not" {
    cp UserPref.sav a
    run -0 "$VESKCTL" sav dump a
    [ "${lines[0]}" = 'a: UserPref, 56 bytes' ]
    head -c 3000 view3.sav >b
    refuses 2 'b is not known as a settings file: neither its name nor its identification is that of one; --kind says what it is' dump b
    run -0 "$VESKCTL" sav dump --kind view b
    [ "${lines[0]}" = 'b: view, 3000 of 3996 bytes: the last 996 are missing' ]
}

@test "dump: a file that cannot be read does not stop the others; the status is that of the worst" {
    run -4 --separate-stderr "$VESKCTL" sav dump DevInfo.sav nothing /etc/passwd workTime.sav
    [ "$(grep -c ' bytes$' <<<"$output")" -eq 2 ]
    [ "$(wc -l <<<"${stderr?}")" -eq 2 ]
    [ "${stderr%%$'\n'*}" = 'veskctl: cannot read nothing: No such file or directory' ]
}

@test "bad input: one line says what and why, and nothing is changed" {
    mkfifo fifo
    mkdir view9.sav
    head -c 60 save0.sav >short.sav
    head -c 1048577 /dev/zero >save1.sav
    ln -s nowhere UserPref.lnk
    : >UserPref0
    local command
    for command in 'dump' 'set viewNumber=1' 'edit'; do
        # shellcheck disable=SC2086 # its words
        set -- $command
        refuses 2 'fifo is a FIFO, not a settings file' "$1" fifo "${@:2}"
        refuses 2 'view9.sav is a directory, not a settings file' "$1" view9.sav "${@:2}"
        refuses 2 '/dev/null is a device, not a settings file' "$1" /dev/null "${@:2}"
        refuses 2 'save1.sav is longer than 1048576 bytes, so it is not a settings file' "$1" save1.sav "${@:2}"
        refuses 2 'UserPref0 is not known as a settings file: neither its name nor its identification is that of one; --kind says what it is' \
            "$1" UserPref0 "${@:2}"
        refuses 4 'cannot read UserPref.lnk: No such file or directory' "$1" UserPref.lnk "${@:2}"
        refuses 4 'cannot read view3.sav/x: Not a directory' "$1" view3.sav/x "${@:2}"
        refuses 4 'cannot read /proc/self/mem: Input/output error' "$1" /proc/self/mem "${@:2}"
    done
    refuses 2 'fifo is a FIFO, not a settings file' check fifo
    refuses 2 'fifo is a FIFO, not a settings file' draw fifo -o made
    # What diff cannot do has its status 2.
    refuses 2 'fifo is a FIFO, not a settings file' diff view3.sav fifo
    refuses 2 'cannot read nothing: No such file or directory' diff nothing view3.sav
    refuses 2 'view3.sav is a view file and save0.sav a save file' diff view3.sav save0.sav
    # A text that is none.
    refuses 2 'fifo is a FIFO, not a JSON text' make fifo -o made
    refuses 2 'view9.sav is a directory, not a JSON text' make view9.sav -o made
    refuses 4 'cannot read nothing: No such file or directory' make nothing -o made
    run -2 --separate-stderr "$VESKCTL" sav make view3.sav -o made
    [[ ${stderr?} == 'veskctl: view3.sav: line 1, column 1: '* ]]
    [ ! -e made ]
    # Deep nesting is refused at once: a tree of it would take the better part of a minute.
    head -c 5000000 /dev/zero | tr '\0' '[' >deep
    refuses 2 'deep: arrays and objects are nested more than 32 deep' make deep -o made
    # Places where nothing can be written.
    "$VESKCTL" sav dump --json view3.sav >view3.json
    refuses 4 'cannot write view9.sav: Is a directory' make view3.json -o view9.sav
    refuses 4 'cannot write fifo: it is not a regular file' make view3.json -o fifo
    refuses 4 'cannot write /dev/full: it is not a regular file' make view3.json -o /dev/full
    refuses 4 'cannot write nowhere/view3.sav: No such file or directory' make view3.json -o nowhere/view3.sav
    refuses 4 'cannot write /proc/view3.sav: No such file or directory' make view3.json -o /proc/view3.sav
    refuses 2 'save0.sav is the name of a save file, and view3.json has a view' make view3.json -o save0.sav
}

@test "bad input: a file without permission is neither read nor written" {
    chmod 0444 view3.sav
    chmod 0000 DevInfo.sav
    mkdir closed
    cp save0.sav closed
    chmod 0555 closed
    run -4 --separate-stderr as_anybody "$VESKCTL" sav dump DevInfo.sav
    [ "${stderr?}" = 'veskctl: cannot read DevInfo.sav: Permission denied' ]
    run -4 --separate-stderr as_anybody "$VESKCTL" sav set view3.sav viewNumber=9
    [ "${stderr?}" = 'veskctl: cannot write view3.sav: Permission denied' ]
    run -4 --separate-stderr as_anybody "$VESKCTL" sav set closed/save0.sav pageNumber=9
    [ "${stderr?}" = 'veskctl: cannot write closed/save0.sav: Permission denied' ]
    cmp closed/save0.sav save0.sav
    [ "$("$VESKCTL" sav dump view3.sav | grep -c 'viewNumber  *0 ')" -eq 1 ]
    [ "$(find closed -type f | wc -l)" -eq 1 ]
    chmod 0755 closed
}

@test "set: a disk that takes only a part leaves the file as it was, and nothing beside it" {
    cp save0.sav before
    run -4 --separate-stderr sh -c "trap '' XFSZ; ulimit -f 2; exec \"\$@\"" sh \
        "$VESKCTL" sav set save0.sav pageNumber=9
    [ "${stderr?}" = 'veskctl: cannot write save0.sav: File too large' ]
    [ "$output" = '' ]
    cmp save0.sav before
    [ "$(find . -name 'save0.sav*' | wc -l)" -eq 1 ]
}

@test "bad input: a message is one line, whatever the name" {
    local name=$'a\nb\e[31m.sav'
    refuses 4 'cannot read a\nb\x1b[31m.sav: No such file or directory' dump "$name"
    head -c 100 view3.sav >"$name"
    refuses 2 'a\nb\x1b[31m.sav is not known as a settings file: neither its name nor its identification is that of one; --kind says what it is' \
        dump "$name"
    refuses 2 'a\nb\x1b[31m.sav ends before viewNumber: it has 100 bytes' set --kind view "$name" viewNumber=1
    "$VESKCTL" sav dump --json view3.sav >view3.json
    mkdir "$name.d"
    refuses 4 'cannot write a\nb\x1b[31m.sav.d: Is a directory' make view3.json -o "$name.d"
}

@test "make: - as the settings file is standard output" {
    "$VESKCTL" sav dump --json save0.sav >save0.json
    "$VESKCTL" sav make save0.json -o - >made
    cmp made save0.sav
    [ ! -e ./- ]
    "$VESKCTL" sav dump --json view3.sav | "$VESKCTL" sav make - -o - | cmp - view3.sav
    run -4 bash -c '"$0" sav make save0.json -o - >/dev/full' "$VESKCTL"
    [ "$output" = 'veskctl: cannot write the output: No space left on device' ]
    run -0 "$VESKCTL" sav make --help
    grep -q 'SAVFILE' <<<"$output"
}

@test "check and draw: --kind names the kind" {
    head -c 3992 view3.sav >a
    bytes 00 00 00 00 >>a # instead of the identification
    refuses 2 'a is not known as a settings file: neither its name nor its identification is that of one; --kind says what it is' check a
    run -1 "$VESKCTL" sav check --kind view a
    [ "${lines[0]}" = 'a: as view0.sav: refused by LoadViewSetting(0), which no start calls' ]
    run -0 "$VESKCTL" sav draw --kind view a -o -
    [[ $output == '<?xml'* ]]
    refuses 2 '. is a directory; --kind is for files' check --kind view .
}

@test "check: messages and findings come in their order" {
    run -4 bash -c '"$0" sav check UserPref.sav nothing DevInfo.sav 2>&1' "$VESKCTL"
    [ "$output" = 'UserPref.sav: taken at the next start
veskctl: cannot read nothing: No such file or directory
DevInfo.sav: taken at the next start' ]
}

@test "set: root leaves a file to its owner" {
    if ! chown 1234:2345 view3.sav 2>/dev/null; then
        skip 'only root can give a file away'
    fi
    chmod 0640 view3.sav
    run -0 "$VESKCTL" sav set view3.sav viewNumber=9
    [ "$(stat -c '%u:%g %a' view3.sav)" = '1234:2345 640' ]
}

@test "diff: names and values of what differs; statuses as diff" {
    cp save0.sav other
    gives 0 '' '' diff save0.sav other
    "$VESKCTL" sav set -q other 'outputTiming[3].hStart=128' program.layers[7].windowWidth=960 \
        preview.other.settingBytes9=0102030405 settingValue3776=1.5
    gives 1 'outputTiming[3].hStart: 192 -> 128
settingValue3776: 0.0 -> 1.5
preview.other.settingBytes9: 0000000000 -> 0102030405
program.layers[7].windowWidth: 1920 -> 960' '' diff save0.sav other
    run -1 "$VESKCTL" sav diff --json save0.sav other
    takes sav-diff <<<"$output"
    [ "${lines[0]}" = '{"field":"outputTiming[3].hStart","before":192,"after":128}' ]
    [ "${lines[2]}" = '{"field":"preview.other.settingBytes9","before":"0000000000","after":"0102030405"}' ]
    # The first differences where docs/files.md has the fields.
    [ "$(cmp -l save0.sav other | awk '{ print $1 - 1 }' | paste -sd ' ')" = \
        '1814 3782 3783 6525 6526 6527 6528 6529 8022 8023' ]
}

@test "diff: files of different lengths" {
    head -c 21 workTime.sav >short
    { cat workTime.sav; bytes 01 ff; } >long
    gives 1 'identification: 0x20150321 -> -
length: 24 -> 21
rest: - -> 21' '' diff --kind workTime workTime.sav short
    gives 1 'length: 24 -> 26
rest: - -> 01ff' '' diff workTime.sav long
    run -1 "$VESKCTL" sav diff --json --kind workTime workTime.sav short
    takes sav-diff <<<"$output"
    [ "$output" = '{"field":"identification","before":"0x20150321","after":null}
{"field":"length","before":24,"after":21}
{"field":"rest","before":"","after":"21"}' ]
}

@test "set: the named bytes and no others, with the file's mode, through a link" {
    chmod 0640 view3.sav
    ln -s view3.sav link
    gives 0 'layers[95].windowHeight: 1080 -> 513
layerAlpha[95]: 0 -> 255' '' set --kind view link 'layerAlpha[95]=255' 'layers[95].windowHeight=0x201'
    [ -L link ]
    [ "$(stat -c %a view3.sav)" = 640 ]
    tail -c +3813 save0.sav | head -c 3996 | cmp -l - view3.sav >different || true
    # Layer 95 is at 16 + 95 * 26, its window's height at 18; alpha 95 at 2608 + 95. cmp counts from 1.
    [ "$(awk '{ print $1 - 1, $2, $3 }' different)" = '2504 70 1
2505 4 2
2703 0 377' ]
    gives 0 '{"field":"viewNumber","before":0,"after":15}' '' set --json view3.sav viewNumber=15
    takes sav-set <<<"$output"
    gives 0 '' 'veskctl: nothing was changed' set view3.sav viewNumber=15
    gives 0 '' '' set --quiet view3.sav viewNumber=15
}

@test "set: arrays, addresses and bytes" {
    gives 0 'dhcpEnable: 1 -> 0
ipAddress: 192.168.0.100 -> 10.0.0.7
dns[0]: 194.25.2.129 -> 1.1.1.1
dns[1]: 194.25.2.130 -> 8.8.8.8
mac: 00:00:00:00:00:00 -> 02:76:65:73:6b:01
reserved37: 0x00 -> 0xa5
indexTable[1]: 1 -> 7
preferenceBytes: 013200 -> 0132ff' '' \
        set UserPref.sav dhcpEnable=0 ipAddress=10.0.0.7 dns=1.1.1.1,8.8.8.8 mac=02:76:65:73:6b:01 \
        reserved37=165 'indexTable=0 7 2 3 4 5 6 7' preferenceBytes=0132ff
    [ "$(od -An -v -tx1 -w56 UserPref.sav)" = ' 38 76 24 06 00 00 d0 07 01 00 0a 00 00 07 c0 a8 00 01 ff ff ff 00 01 01 01 01 08 08 08 08 02 76 65 73 6b 01 00 a5 00 00 00 00 00 07 02 03 04 05 06 07 01 32 ff 00 00 00' ]
}

@test "set: what is wrong is refused before anything is written" {
    head -c 100 view3.sav >view4.sav
    refuses 2 '"viewNumber" is not FIELD=VALUE' set view3.sav viewNumber
    refuses 2 '"viewNumbr" is not a field of a view file (did you mean "viewNumber"?)' \
        set view3.sav viewNumber=3 viewNumbr=1
    refuses 2 'viewNumber: "256" is not a number from 0 to 255' set view3.sav 'layerAlpha[0]=1' viewNumber=256
    refuses 2 '"1,2" has 2 values; layerAlpha needs 96' set view3.sav layerAlpha=1,2
    refuses 2 '"1" has 1 value; inputEnable needs 26' set save0.sav inputEnable=1
    refuses 2 '"" has 0 values; inputEnable needs 26' set save0.sav inputEnable=
    refuses 2 'there are several layers: layers[0] to layers[95]' set view3.sav layers.state=1
    refuses 2 'view4.sav ends before viewNumber: it has 100 bytes' set view4.sav viewNumber=1
    refuses 2 'view4.sav ends before layers[3].sourceY: it has 100 bytes' set view4.sav 'layers[3].sourceY=1'
    gives 0 'layers[3].sourceX: 0 -> 1' '' set view4.sav 'layers[3].sourceX=1'
    [ "$(stat -c %s view4.sav)" -eq 100 ]
}

# editor SCRIPT: $EDITOR is a script that gets the text as $1.
editor() {
    printf '#!/bin/sh\n%s\n' "$1" >"$BATS_TEST_TMPDIR.editor"
    chmod +x "$BATS_TEST_TMPDIR.editor"
    unset VISUAL
    export EDITOR=$BATS_TEST_TMPDIR.editor TMPDIR=$BATS_TEST_TMPDIR.texts
    mkdir -p "$TMPDIR"
}

# edits STATUS STDERR FILE: nothing is printed on standard output; NAME in STDERR is the name of the text.
edits() {
    run "-$1" --separate-stderr "$VESKCTL" sav edit "$3"
    [ "$output" = '' ]
    local said=${stderr?}
    # shellcheck disable=SC2001 # an expression
    [ "$(sed "s|$TMPDIR/veskctl-[A-Za-z0-9]*.json|NAME|g" <<<"$said")" = "$2" ] || { echo "$said"; return 1; }
}

@test "edit: what the editor writes is in the file, and the text is gone" {
    editor 'sed -i "s/\"pageNumber\": 0/\"pageNumber\": 7/" "$1"'
    cp save0.sav before
    edits 0 '' save0.sav
    gives 1 'pageNumber: 0 -> 7' '' diff before save0.sav
    [ -z "$(ls "$TMPDIR")" ]
    # $VISUAL comes first, and either may have options.
    VISUAL='sed -i s/\"pageNumber\":.7/\"pageNumber\":8/' edits 0 '' save0.sav
    gives 1 'pageNumber: 0 -> 8' '' diff before save0.sav
    editor :
    edits 0 'veskctl: nothing was changed' save0.sav
    [ -z "$(ls "$TMPDIR")" ]
}

@test "edit: a damaged file can be made whole" {
    head -c 21 workTime.sav >cut.sav
    "$VESKCTL" sav dump --json workTime.sav >whole.json
    editor "cat '$PWD/whole.json' >\"\$1\""
    run -0 "$VESKCTL" sav edit --kind workTime cut.sav
    cmp cut.sav workTime.sav
}

@test "edit: a text that is wrong is kept, and the message says where it is wrong" {
    cp save0.sav before
    editor 'sed -i "5s/: /: x/" "$1"'
    edits 2 "veskctl: NAME: line 5, column 13: syntax error while parsing value - invalid literal; last read: '\"fields\": x'; nothing was written, and the text is kept in NAME" \
        save0.sav
    cmp save0.sav before
    [ "$(wc -l <"$TMPDIR"/*.json)" -gt 1000 ]
    rm "$TMPDIR"/*
    editor 'sed -i "s/\"pageNumber\": 0/\"pageNumber\": 256/" "$1"'
    edits 2 'veskctl: NAME: pageNumber: "256" is not a number from 0 to 255; nothing was written, and the text is kept in NAME' save0.sav
    cmp save0.sav before
    grep -q '"pageNumber": 256' "$TMPDIR"/*.json
}

@test "edit: an editor that fails, a text that is gone, a file that changes meanwhile" {
    cp save0.sav before
    editor 'exit 3'
    edits 4 "veskctl: the editor \`$EDITOR\` failed (status 3); nothing was written, and the text is kept in NAME" \
        save0.sav
    editor 'rm "$1"'
    edits 4 'veskctl: cannot read NAME: No such file or directory; nothing was written' save0.sav
    cmp save0.sav before
    editor 'sed -i "s/\"pageNumber\": 0/\"pageNumber\": 7/" "$1"; echo more >>save0.sav'
    edits 4 'veskctl: save0.sav has changed meanwhile; nothing was written, and the text is kept in NAME' save0.sav
}

@test "every subcommand's help lists two examples, and the man page its options" {
    local subcommand option page=$BATS_TEST_TMPDIR/page
    "$BATS_TEST_DIRNAME/../../protocol/generate.py" manual "$page"
    for subcommand in dump make diff set edit check draw schema; do
        run -0 "$VESKCTL" sav "$subcommand" --help
        [ "$(grep -c '^  *\(veskctl\|.*| veskctl\) ' <<<"$output")" -ge 2 ] || { echo "examples: $subcommand"; false; }
        grep -q "^\*sav $subcommand\*" "$page"
        while read -r option; do
            grep -q -- "\*$option\*" "$page" || { echo "the page lacks $option"; false; }
        done < <(grep -oE '^  (-[a-z],)?--[a-z-]+' <<<"$output" | grep -oE -- '--[a-z-]+')
    done
    run -2 "$VESKCTL" sav
    [ "$output" = 'veskctl: a subcommand is missing; possible are: dump, make, diff, set, edit, check, draw, schema; see `veskctl sav --help`' ]
    run -2 "$VESKCTL" sav dmp
    [ "$output" = 'veskctl: "dmp" is not a subcommand (did you mean "dump"?); possible are: dump, make, diff, set, edit, check, draw, schema; see `veskctl sav --help`' ]
}

@test "output that cannot be written, status 4, of diff 2" {
    local said='veskctl: cannot write the output: No space left on device' arguments
    for arguments in 'dump save0.sav' 'dump --json save0.sav' 'schema view'; do
        run -4 bash -c '"$0" sav $1 >/dev/full' "$VESKCTL" "$arguments"
        [ "$output" = "$said" ]
    done
    cp workTime.sav other
    "$VESKCTL" sav set -q other 'counters[0]=1'
    run -2 bash -c '"$0" sav diff workTime.sav other >/dev/full' "$VESKCTL"
    [ "$output" = "$said" ]
}
