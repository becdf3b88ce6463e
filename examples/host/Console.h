#pragma once

#include <string>

/// What the host shows to the person in front of it. One thread.
class Console
{
public:
    Console();

    /// Begins a numbered stage.
    void Stage(const std::string& title);
    void Line(const std::string& text);
    /// "name       value", aligned.
    void Value(const std::string& name, const std::string& value);

    /// Draws a bar over the current line; `done` from 0 to 1. Nothing when the output is no terminal.
    void Progress(const std::string& what, double done);
    /// Removes the bar, so that the next line starts clean.
    void EndProgress();

private:
    bool m_terminal;
    int m_stage = 0;
};

/// "1,234,567 bytes".
std::string BytesText(unsigned long long bytes);
/// "14.3 s".
std::string SecondsText(double seconds);
