#pragma once

// The exit statuses of veskctl.

enum ExitStatus : int {
    kDone = 0,
    kRefused = 1, // by the device; also what differs from what was asked for
    kUsage = 2,
    kNoAnswer = 3,
    kLocalFailure = 4, // a device, a file or the output
    kNotFinished = 5,  // an update: the device has not started the new program
    kInterrupted = 130,
};
