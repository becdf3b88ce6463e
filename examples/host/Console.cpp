#include <Console.h>

#include <cstdio>
#include <io.h>

namespace
{

constexpr int kBarWidth = 30;

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

void Console::Progress(const std::string& what, double done)
{
    if (!m_terminal)
    {
        return;
    }
    const int filled = static_cast<int>(done * kBarWidth);
    const std::string bar = std::string(filled, '#') + std::string(kBarWidth - filled, '.');
    std::printf("\r   %s [%s] %3d %%", what.c_str(), bar.c_str(), static_cast<int>(done * 100));
    std::fflush(stdout);
}

void Console::EndProgress()
{
    if (m_terminal)
    {
        std::printf("\r%79s\r", "");
        std::fflush(stdout);
    }
}

std::string BytesText(unsigned long long bytes)
{
    std::string digits = std::to_string(bytes);
    for (int place = static_cast<int>(digits.size()) - 3; place > 0; place -= 3)
    {
        digits.insert(static_cast<std::size_t>(place), ",");
    }
    return digits + " bytes";
}

std::string SecondsText(double seconds)
{
    char text[32] = "";
    std::snprintf(text, sizeof(text), "%.1f s", seconds);
    return text;
}
