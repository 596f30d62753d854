#pragma once

// A subcommand of veskctl, and what runs when the user has chosen it.

#include <functional>

#include <CLI/CLI.hpp>

struct Choice {
    CLI::App *command;
    std::function<int()> run; // gives the exit status
};
