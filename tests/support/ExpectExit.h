#pragma once

#include <tests/support/ChildProcess.h>

#include <gtest/gtest.h>

namespace TestSupport
{

/// Expects that a child, run with these arguments, ends by itself with this code.
inline void ExpectExit(const std::string& program, const std::string& arguments, unsigned long code,
                       std::chrono::milliseconds limit = std::chrono::seconds(20))
{
    const ChildResult result = RunChild(program, arguments, limit);

    EXPECT_TRUE(result.ended) << "hangs: " << program << ' ' << arguments;
    EXPECT_EQ(result.exitCode, code) << program << ' ' << arguments;
}

} // namespace TestSupport
