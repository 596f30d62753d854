#pragma once

// Everything that a device tells about itself.

#include "tools/line.h"

// Asks and prints, as a table or with --json as one object. With `stored`, asks also for the
// network settings that the device keeps in its preferences; for that it first takes over what the
// system has (see docs/protocol.md). Returns kDone; kNoAnswer at once if the device does not answer
// the first question, otherwise if any answer is missing; kRefused if any is a refusal.
int runInfo(Line &line, bool stored, Milliseconds timeout);
