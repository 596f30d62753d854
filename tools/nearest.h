#pragma once

// What a person may have meant who typed a name wrong.

#include <span>
#include <string>
#include <string_view>

// The candidate that differs least from `typed`, in either case; "" if none is similar.
std::string nearest(std::string_view typed, std::span<const std::string> candidates);

// ` (did you mean "NAME"?)`, or "" if there is no similar name.
std::string didYouMean(std::string_view typed, std::span<const std::string> candidates);
