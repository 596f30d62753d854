#pragma once

// Whole files.

#include <string>

// Throws LocalError with the file's name and what is wrong with it.
std::string contentOf(const std::string &file);
