#pragma once

/// Every public header of the library.

#include <UtilsLib/files/Directory.h>
#include <UtilsLib/files/ScopedFileLock.h>
#include <UtilsLib/threading/Lock.h>
#include <UtilsLib/threading/ScopedLock.h>
#include <UtilsLib/threading/Thread.h>
#include <UtilsLib/threading/ThreadMonitor.h>
#include <UtilsLib/threading/ThreadUtils.h>
#include <UtilsLib/time/ITimeServiceImpl.h>
#include <UtilsLib/time/MockTimeServiceImpl.h>
#include <UtilsLib/time/Time.h>
#include <UtilsLib/time/TimeService.h>
#include <UtilsLib/time/TimeServiceImpl.h>
