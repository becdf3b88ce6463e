#pragma once

#include <UtilsLib/platform/LastErrorKeeper.h>

#include <utility>

namespace UtilsLib::Platform
{

/// Owns one operating-system resource and closes it once, keeping the thread's last error while it does.
///
/// `Traits` gives `Type`, `Invalid()` (the value that the API returns on failure) and `Close(Type)`. Not copied.
template <typename Traits>
class UniqueResource
{
public:
    using Type = typename Traits::Type;

    UniqueResource() = default;
    explicit UniqueResource(Type value) : m_value(value)
    {
    }
    UniqueResource(UniqueResource&& other) noexcept : m_value(other.Release())
    {
    }
    UniqueResource& operator=(UniqueResource&& other) noexcept
    {
        if (this != &other)
        {
            Reset(other.Release());
        }
        return *this;
    }
    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;
    ~UniqueResource()
    {
        Reset();
    }

    explicit operator bool() const
    {
        return m_value != Traits::Invalid();
    }
    Type Get() const
    {
        return m_value;
    }
    /// Closes what is held and gives the place that an API writes the new value to.
    Type* Put()
    {
        Reset();
        return &m_value;
    }
    /// Gives the resource up without closing it.
    [[nodiscard]] Type Release()
    {
        return std::exchange(m_value, Traits::Invalid());
    }
    /// Closes what is held and takes `value`.
    void Reset(Type value = Traits::Invalid())
    {
        const Type old = std::exchange(m_value, value);
        if (old != Traits::Invalid())
        {
            const LastErrorKeeper keep;
            Traits::Close(old);
        }
    }

private:
    Type m_value = Traits::Invalid();
};

} // namespace UtilsLib::Platform
