#!/usr/bin/env bats
# `veskctl version`, and the version that the daemon's executable carries.

bats_require_minimum_version 1.5.0

setup() {
    cd "$BATS_TEST_DIRNAME/../.."
    expected=$(sed -nE 's/^project\(vesk_h264 VERSION ([0-9.]+) .*/\1/p' CMakeLists.txt)
    [ -n "$expected" ]
}

# mark FILE TEXT: appends what version.cpp would have put into it.
mark() {
    printf '%s\0' "$2" >>"$1"
}

@test "the daemon carries its version once, for strings too, and stripped as well" {
    strip -o "$BATS_TEST_TMPDIR/stripped" "$DAEMON"
    for program in "$DAEMON" "$BATS_TEST_TMPDIR/stripped"; do
        run -0 "$VESKCTL" version "$program"
        [[ $output == "vesk_h264 $expected for "* ]]
        [ "$(strings "$program" | grep -c '^@(#)')" -eq 1 ]
        strings "$program" | grep -qxF "@(#)vesk_h264 $expected"
    done
}

@test "the same version everywhere: veskctl, the man page, JSON" {
    run -0 "$VESKCTL" --version
    [ "$output" = "veskctl $expected" ]
    protocol/generate.py manual | head -n 1 | grep -F "vesk_h264 $expected"
    run -0 "$VESKCTL" version --json "$DAEMON"
    tests/tools/validate.py version <<<"$output"
    [[ $output == *"\"version\":\"$expected\""* ]]
}

@test "only a whole mark is a version" {
    program=$BATS_TEST_TMPDIR/program
    for text in 'vesk_h264 2.0' '@(#)vesk_h265 2.0' '@(#)vesk_h264 ' '@(#)vesk_h264 2.0-rc1' '@(#)vesk_h264 .2'; do
        cp /bin/true "$program"
        mark "$program" "$text"
        run -2 --separate-stderr "$VESKCTL" version "$program"
        [ "$stderr" = "veskctl: $program carries no version: it is another program, or older than version 1.0.0" ]
    done
    mark "$program" '@(#)vesk_h264 12.0.345'
    run -0 "$VESKCTL" version "$program"
    [ "$output" = 'vesk_h264 12.0.345 for x86_64' ]
}

@test "what is no program: one line, status 2; what cannot be read: status 4" {
    head -c 3000 "$DAEMON" >"$BATS_TEST_TMPDIR/cut"
    for file in /dev/null README.md "$BATS_TEST_TMPDIR/cut"; do
        run -2 --separate-stderr "$VESKCTL" version "$file"
        [[ -z $output && ${#stderr_lines[@]} -eq 1 && $stderr == "veskctl: $file is no program for a device: "* ]]
    done
    for file in "$BATS_TEST_TMPDIR/nowhere" "$BATS_TEST_TMPDIR"; do
        run -4 --separate-stderr "$VESKCTL" version "$file"
        [[ -z $output && ${#stderr_lines[@]} -eq 1 && $stderr == "veskctl: cannot read $file: "* ]]
    done
    run -2 --separate-stderr "$VESKCTL" version
    [ "${#stderr_lines[@]}" -eq 1 ]
}

@test "help has two examples; the man page and the completion have the subcommand" {
    run -0 "$VESKCTL" version --help
    [ "$(grep -c '^  veskctl version ' <<<"$output")" -eq 2 ]
    grep -q '^\*version\*' protocol/veskctl.1.scd.in
}
