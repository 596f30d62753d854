#pragma once

// How veskctl speaks: set once from the options, before anything is said.

#include <string>
#include <string_view>

struct Manner {
    bool json = false;      // data as JSON, an object a line
    bool quiet = false;     // no messages but errors, no summaries
    bool verbose = false;   // what the lines carry, on standard error
    bool isColored = false; // data on standard output
    bool isTyped = true;    // on a command line, so that advice may name options and subcommands
    unsigned retries = 0;   // how often a command is sent again that is not answered
};

Manner &manner();

// `advice` for somebody who types a command line, `otherwise` if nobody does.
std::string ifTyped(std::string_view advice, std::string_view otherwise = {});

// Whether data are coloured if the user said `when`: auto, always or never. `auto` asks for a
// terminal and for no NO_COLOR in the environment.
bool wantsColor(std::string_view when);

enum class Color { kGood, kBad, kAsked, kFaint };

// The text in a colour, or as it is.
std::string colored(Color color, std::string_view text);

// The colour of a frame: a command, a reply, or what is refused or wrong. `meaning` is what
// describe() says.
Color colorOf(std::string_view meaning);

// The frame, followed by its sentence, in its colour.
std::string coloredFrame(std::string_view frame);
