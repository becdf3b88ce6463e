#include <cstring>
const char* Find(const char* text)
{
    char* found = strchr(text, 'x');
    return found;
}
