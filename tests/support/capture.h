#pragma once

#include <string>

#include <gtest/gtest.h>

// What `action` prints on standard output, or on standard error.
template <class Action>
std::string stdout_of(Action action)
{
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

template <class Action>
std::string stderr_of(Action action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}
