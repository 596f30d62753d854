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
