#include <Console.h>

#include <algorithm>
#include <cstdio>
#include <io.h>

namespace
{

constexpr std::size_t kBarLength = 76; // with the indent, a line of the narrowest usual terminal

} // namespace

Console::Console() : m_terminal(_isatty(_fileno(stdout)) != 0)
{
}

void Console::Stage(const std::string& title)
{
    std::printf("\n%d. %s\n", ++m_stage, title.c_str());
    std::fflush(stdout);
}

void Console::Line(const std::string& text)
{
    std::printf("   %s\n", text.c_str());
    std::fflush(stdout);
}

void Console::Value(const std::string& name, const std::string& value)
{
    std::printf("   %-22s %s\n", name.c_str(), value.c_str());
    std::fflush(stdout);
}

void Console::DrawBar(const std::string& text)
{
    if (!m_terminal)
    {
        return;
    }
    // A bar that runs over the line could not be drawn over; blanks go over what is left of the one before.
    std::string bar = text.substr(0, kBarLength);
    const std::size_t length = bar.size();
    bar.resize(std::max(length, m_barLength), ' ');
    std::printf("\r   %s", bar.c_str());
    std::fflush(stdout);
    m_barLength = length;
}

void Console::EndBar(const std::string& text)
{
    DrawBar(text);
    std::printf(m_terminal ? "\n" : "   %s\n", text.c_str());
    std::fflush(stdout);
    m_barLength = 0;
}

std::string CountText(unsigned long long count)
{
    std::string digits = std::to_string(count);
    for (int place = static_cast<int>(digits.size()) - 3; place > 0; place -= 3)
    {
        digits.insert(static_cast<std::size_t>(place), 1, ',');
    }
    return digits;
}

std::string BytesText(unsigned long long bytes)
{
    return CountText(bytes) + " bytes";
}

std::string SecondsText(double seconds)
{
    char text[32] = "";
    std::snprintf(text, sizeof(text), "%.1f s", seconds);
    return text;
}
