#pragma once

// What an operation returns and prints on standard output.

#include <cstdint>
#include <string>
#include <utility>

#include "tests/support/console.h"

using Outcome = std::pair<int64_t, std::string>;

template <typename Operation> Outcome outcomeOf(Operation operation)
{
    Outcome outcome;
    outcome.second = printedBy([&] { outcome.first = operation(); });
    return outcome;
}
