#pragma once

// Standard output, which may be a full disk.

// Writes what has been printed. Throws LocalError if anything printed so far could not be written.
void flushOutput();
