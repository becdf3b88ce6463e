#pragma once

#include <Console.h>

#include <gtest/gtest.h>

#include <string>

/// What a stage prints: `stage` is called with the console.
template <typename Stage>
std::string Printed(Stage stage)
{
    testing::internal::CaptureStdout();
    Console console;
    stage(console);
    return testing::internal::GetCapturedStdout();
}
