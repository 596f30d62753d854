#pragma once

// What the code under test prints, on both streams, from the making of the object to end().

#include <string>

#include <gtest/gtest.h>

class Console {
public:
    Console()
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
    }
    void end()
    {
        out = testing::internal::GetCapturedStdout();
        err = testing::internal::GetCapturedStderr();
    }
    std::string out;
    std::string err;
};

// Runs `action` and returns what it prints on standard output; there must be nothing on the other.
template <typename Action> std::string printedBy(Action action)
{
    Console console;
    action();
    console.end();
    EXPECT_EQ(console.err, "");
    return console.out;
}
