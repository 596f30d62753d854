#pragma once

// Whole files.

#include <string>
#include <string_view>

// Throws LocalError with the file's name and what is wrong with it.
std::string contentOf(const std::string &file);

// Gives `file` this content, or changes nothing: the content is written to a temporary file in the
// same directory, which then takes the name. An existing file keeps its mode and, where the system
// allows it, its owner and group. A symbolic link remains one; a hard link keeps the old content.
// Throws LocalError with the file's name and what is wrong.
void replaceFile(const std::string &file, std::string_view content);
