#pragma once

// The one way in which a test replaces a system call or an operation of the daemon: it names the
// function under WRAP in its folder's CMakeLists.txt (an operation by its mangled name), and says
// here what runs in its place. Every call from another source file then arrives there.
//
//     REPLACE(int, usleep, (useconds_t microseconds))
//     {
//         slept.push_back(microseconds);
//         return REAL(usleep)(microseconds);
//     }

#define REAL(name) __real_##name

#define REPLACE(result, name, parameters)                                                          \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters;                                                    \
    result __wrap_##name parameters
