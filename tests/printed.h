// Runs an action and gives what it printed on standard output.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

inline std::string printed(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}
