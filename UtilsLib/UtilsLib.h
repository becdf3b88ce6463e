#pragma once

/// Every public header of the library.

#include <UtilsLib/cloud/CloudServerHost.h>
#include <UtilsLib/compression/CompressionLib.h>
#include <UtilsLib/compression/DataSnapshot.h>
#include <UtilsLib/files/BatchFile.h>
#include <UtilsLib/files/Directory.h>
#include <UtilsLib/files/File.h>
#include <UtilsLib/files/FileAccess.h>
#include <UtilsLib/files/FileHelper.h>
#include <UtilsLib/files/FileOperations.h>
#include <UtilsLib/files/FileVersion.h>
#include <UtilsLib/files/IFileWatcher.h>
#include <UtilsLib/files/Paths.h>
#include <UtilsLib/files/ScopedFileLock.h>
#include <UtilsLib/files/ScopedFiles.h>
#include <UtilsLib/files/ScopedTempFile.h>
#include <UtilsLib/logging/GRPCLoggerSettingsObserver.h>
#include <UtilsLib/logging/ILogger.h>
#include <UtilsLib/logging/ILoggerSettingsObserver.h>
#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/logging/Stack.h>
#include <UtilsLib/registry/LiveRegSettings.h>
#include <UtilsLib/registry/RegUtils.h>
#include <UtilsLib/system/HelperUtils.h>
#include <UtilsLib/text/StringUtils.h>
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
