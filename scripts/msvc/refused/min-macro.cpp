#include <windows.h>

#include <algorithm>
int Least(int a, int b)
{
    return std::min(a, b);
}
