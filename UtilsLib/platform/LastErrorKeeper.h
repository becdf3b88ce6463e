#pragma once

namespace UtilsLib::Platform
{

/// Keeps the calling thread's last error: what it was at construction is put back at scope end.
class LastErrorKeeper
{
public:
    LastErrorKeeper();
    ~LastErrorKeeper();
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

    unsigned long Value() const;

private:
    unsigned long m_value;
};

} // namespace UtilsLib::Platform
