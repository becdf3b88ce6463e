#include <Console.h>

#include <cstdio>
#include <io.h>

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
    // Blanks over what is left of the one before.
    const std::size_t rest = m_barLength > text.size() ? m_barLength - text.size() : 0;
    std::printf("\r   %s%s", text.c_str(), std::string(rest, ' ').c_str());
    std::fflush(stdout);
    m_barLength = text.size();
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
        digits.insert(static_cast<std::size_t>(place), ",");
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
