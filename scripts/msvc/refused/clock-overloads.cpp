#include <chrono>
using A = std::chrono::system_clock::time_point;
using B = std::chrono::time_point<std::chrono::system_clock, std::chrono::duration<long long, std::ratio<1, 10000000>>>;
void Use(A)
{
}
void Use(B)
{
}
