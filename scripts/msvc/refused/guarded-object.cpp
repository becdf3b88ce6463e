#include <string>
int Length(const char* text);
int Guarded()
{
    __try
    {
        std::string text("x");
        return Length(text.c_str());
    }
    __except (1)
    {
        return 0;
    }
}
