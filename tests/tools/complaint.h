#pragma once

#include <string>

#include "tools/errors.h"

// What the user is told about what `action` refuses; "accepted" if it refuses nothing.
template <typename Action> std::string complaintOf(Action action)
{
    try {
        action();
    } catch (const UsageError &error) {
        return error.what();
    }
    return "accepted";
}
