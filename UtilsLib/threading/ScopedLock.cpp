#include <UtilsLib/threading/ScopedLock.h>

// All of it stands in the header: a lock is taken so often that a call more would show.
