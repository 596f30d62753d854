#pragma once

// The ranges of the values in settings files. They are what the field lines say of units and
// ranges; the daemon itself checks next to none of them.

#include "tools/sav_fields.h"

#include <string>
#include <string_view>

// What the unit of a field says: that it is a range, no more than a unit, or nothing that is known
// here. The last must not be.
enum class SavUnit : uint8_t { kRange, kUnit, kUnknown };
SavUnit meaningOf(std::string_view unit);

// What every good value of the field is, for "7 is not ...": "0 or 1"; "" if the value is one.
// Requires: all bytes of the value are there.
std::string wantedInstead(const SavValue &value, std::string_view bytes);
