// Runs until told to end: child_wait.
#include <tests/child/Signals.h>

int main()
{
    SignalReady();
    return WaitForGo() ? 0 : 1;
}
