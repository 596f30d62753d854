#pragma once

// Transcripts: conversations with the daemon that can be played against it.
//
// One step a line; blank lines and lines that begin with "#" do not count.
//
//   == TITLE       what the next steps show
//   front> TEXT    the front board sends these bytes
//   front< TEXT    exactly these bytes arrive at the front board next
//   front=         nothing (more) arrives there within 100 ms
//   front*         bytes that have arrived there are thrown away, up to the first 100 ms without a
//   byte front>> HEX    the front board sends these bytes front<< HEX    exactly these bytes arrive
//   at the front board next pc> TEXT       the control PC sends one datagram; it may be empty pc<
//   TEXT       exactly these bytes arrive at the PC next, in however many datagrams pc= nothing
//   (more) arrives there within 100 ms pc*            bytes that have arrived there are thrown away
//   pc>> HEX, pc<< HEX   the same for the PC
//   log< TEXT      the daemon prints this line, after the line that the last log< found; there may
//   be
//                  other lines between them
//   wait MS        nothing happens for MS milliseconds
//
// TEXT begins after the one blank after the sign and ends before the blanks at the line's end.
// Escapes: \xNN \r \n \\. A blank at the end of TEXT is therefore written \x20.
//
// HEX are bytes of two hexadecimal digits with blanks between them. NN*COUNT is COUNT such bytes.
//
// Every expectation waits for the bytes or the line no longer than the time-out. If bytes are
// unread when the transcript ends, it fails.

#include "tools/wait.h"

#include <istream>
#include <string>
#include <vector>

struct Step {
    enum Kind { kTitle, kSend, kExpect, kNothing, kDrop, kLog, kWait };
    enum End { kNoEnd, kFront, kPC };

    Kind kind;
    End end;           // of kSend, kExpect, kNothing and kDrop
    std::string bytes; // of these and of kLog and kTitle, without escapes
    Milliseconds time; // of kWait
    unsigned line;     // its number in the file, from 1
    std::string text;  // the line itself
};

// Throws UsageError with `name` and the number of a line that is not a step.
std::vector<Step> parseTranscript(std::istream &stream, const std::string &name);
