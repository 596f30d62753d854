#pragma once

// What an operation returns and prints on standard output.

#include <cstdint>
#include <utility>

#include "tests/support/console.h"

using Outcome = std::pair<int64_t, std::string>;

template <typename Operation, typename... Arguments>
Outcome outcomeOf(Operation operation, Arguments &&...arguments)
{
    Outcome outcome;
    outcome.second = printedBy([&] { outcome.first = operation(arguments...); });
    return outcome;
}
