#pragma once

#include <cstddef>
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

    /// Draws a progress bar over the one before it. Nothing when the output is no terminal.
    void DrawBar(const std::string& text);
    /// Draws the bar a last time, as a line that stays.
    void EndBar(const std::string& text);

private:
    bool m_terminal;
    int m_stage = 0;
    std::size_t m_barLength = 0; // on the current line
};

/// "1,234,567".
std::string CountText(unsigned long long count);
/// "1,234,567 bytes".
std::string BytesText(unsigned long long bytes);
/// "14.3 s".
std::string SecondsText(double seconds);
