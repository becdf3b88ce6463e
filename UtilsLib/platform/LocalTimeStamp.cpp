#include <UtilsLib/platform/LocalTimeStamp.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <tuple>

namespace UtilsLib::Platform
{
namespace
{

using Ticks = unsigned long long; // 100 ns since 1601

constexpr Ticks kTicksOfATenth = 1'000'000;

constexpr unsigned int kTicksOfAMillisecond = 10'000;

Ticks ToTicks(const FILETIME& time)
{
    return (Ticks(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

Ticks UtcNow()
{
    FILETIME utc;
    GetSystemTimeAsFileTime(&utc);
    return ToTicks(utc);
}

SYSTEMTIME ToLocal(Ticks utc)
{
    const FILETIME time = {static_cast<DWORD>(utc), static_cast<DWORD>(utc >> 32)};
    FILETIME local = time;
    FileTimeToLocalFileTime(&time, &local);
    SYSTEMTIME fields{};
    FileTimeToSystemTime(&local, &fields);
    return fields;
}

/// The text of the last tenth of a second that was asked for. Within it only the last two digits change: offsets of
/// zones are whole minutes, and the rules of summer time change them at whole minutes; a zone that the user sets anew
/// shows in the next tenth.
///
/// Threads need no lock: one that meets a replacement makes its text by itself. So does every thread after Windows
/// ended one within a replacement.
class KnownTenth
{
public:
    /// False when `utc` is in another tenth, or when the text is being replaced.
    bool Get(Ticks utc, char* text) const
    {
        const unsigned int version = m_version.load(std::memory_order_acquire);
        const Ticks elapsed = utc - m_begin.load(std::memory_order_relaxed);
        Words words;
        for (std::size_t i = 0; i < words.size(); ++i)
        {
            words[i] = m_words[i].load(std::memory_order_relaxed);
        }
        std::atomic_thread_fence(std::memory_order_acquire);
        if (version % 2 != 0 || version != m_version.load(std::memory_order_relaxed) || elapsed >= kTicksOfATenth)
        {
            return false;
        }
        const unsigned int milliseconds = static_cast<unsigned int>(elapsed) / kTicksOfAMillisecond;
        std::memcpy(text, words.data(), LocalTimeStamp::kLength);
        text[LocalTimeStamp::kLength - 2] = static_cast<char>('0' + milliseconds / 10);
        text[LocalTimeStamp::kLength - 1] = static_cast<char>('0' + milliseconds % 10);
        return true;
    }

    /// Keeps `text` for the tenth of `utc`, unless another thread is at it.
    void Set(Ticks utc, const char* text)
    {
        Words words{};
        std::memcpy(words.data(), text, LocalTimeStamp::kLength);
        unsigned int version = m_version.load(std::memory_order_relaxed);
        if (version % 2 != 0 || !m_version.compare_exchange_strong(version, version + 1, std::memory_order_acquire))
        {
            return;
        }
        std::atomic_thread_fence(std::memory_order_release);
        m_begin.store(utc - utc % kTicksOfATenth, std::memory_order_relaxed);
        for (std::size_t i = 0; i < words.size(); ++i)
        {
            m_words[i].store(words[i], std::memory_order_relaxed);
        }
        m_version.store(version + 2, std::memory_order_release);
    }

private:
    using Words = std::array<std::uint32_t, (LocalTimeStamp::kLength + 3) / 4>;

    std::atomic<unsigned int> m_version = 0; // odd while the rest is being replaced
    std::atomic<Ticks> m_begin = 0;
    std::array<std::atomic<std::uint32_t>, std::tuple_size_v<Words>> m_words = {};
};

KnownTenth g_knownTenth;

char* Put(char* position, unsigned int number, int digits, char next)
{
    for (int i = digits - 1; i >= 0; --i)
    {
        position[i] = static_cast<char>('0' + number % 10);
        number /= 10;
    }
    position[digits] = next;
    return position + digits + 1;
}

} // namespace

LocalTimeStamp::LocalTimeStamp()
{
    const Ticks utc = UtcNow();
    if (!g_knownTenth.Get(utc, m_text.data()))
    {
        *this = LocalTimeStamp(ToLocal(utc));
        g_knownTenth.Set(utc, m_text.data());
    }
}

LocalTimeStamp::LocalTimeStamp(const SYSTEMTIME& time)
{
    char* position = m_text.data();
    position = Put(position, time.wDay, 2, '/');
    position = Put(position, time.wMonth, 2, '/');
    position = Put(position, time.wYear, 4, ' ');
    position = Put(position, time.wHour, 2, ':');
    position = Put(position, time.wMinute, 2, ':');
    position = Put(position, time.wSecond, 2, '.');
    Put(position, time.wMilliseconds / 10, 2, static_cast<char>('0' + time.wMilliseconds % 10));
}

std::string_view LocalTimeStamp::Text() const
{
    return std::string_view(m_text.data(), m_text.size());
}

} // namespace UtilsLib::Platform
