#include <ProgressBars.h>

#include <UtilsLib/progress/ScopedProgressObserver.h>

#include <algorithm>

using UtilsLib::IProgressView;
using UtilsLib::ScopedProgressObserver;

namespace
{

constexpr int kBarWidth = 24;
constexpr std::size_t kTitleWidth = 12;

std::string Bar(unsigned long long current, unsigned long long end)
{
    const double part = std::min(1.0, static_cast<double>(current) / static_cast<double>(end));
    const int filled = static_cast<int>(part * kBarWidth);
    return "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "]";
}

} // namespace

ProgressBars::ProgressBars(Console& console) : m_console(console)
{
}

void ProgressBars::AddObserver(ScopedProgressObserver& observer)
{
    m_console.DrawBar(BarText(observer.GetProgressView()));
}

void ProgressBars::UpdateObserver(ScopedProgressObserver& observer)
{
    m_console.DrawBar(BarText(observer.GetProgressView()));
}

void ProgressBars::RemoveObserver(ScopedProgressObserver& observer)
{
    m_console.EndBar(BarText(observer.GetProgressView()));
}

std::string BarText(const IProgressView& view)
{
    std::string text = view.GetData().title;
    // One look at each count: the worker goes on meanwhile.
    const unsigned long long end = view.GetProgressEnd();
    const unsigned long long current = view.GetProgressCurrent();
    if (end != 0)
    {
        text.resize(std::max(text.size(), kTitleWidth), ' ');
        text += " " + Bar(current, end) + " " + CountText(current) + " of " + CountText(end);
    }
    // Views hand out their text by a call that is not const, though it changes nothing.
    const std::string message = const_cast<IProgressView&>(view).GetSubMessage();
    return message.empty() ? text : text + " " + message;
}
