#pragma once

/// @file
/// Every public header of the library.

/// @namespace UtilsLib
/// The library's names; a few others are global.

/// @namespace RequestLib
/// Records that the library shares with the suite's requests.

#include <UtilsLib/cloud/CloudServerHost.h>
#include <UtilsLib/cloud/DriveURLProvider.h>
#include <UtilsLib/cloud/IURLValidator.h>
#include <UtilsLib/cloud/MappedDrives.h>
#include <UtilsLib/cloud/OfficeAdapterBasedRegexURLValidator.h>
#include <UtilsLib/compression/CompressionLib.h>
#include <UtilsLib/compression/DataSnapshot.h>
#include <UtilsLib/events/Cast.h>
#include <UtilsLib/events/Event.h>
#include <UtilsLib/events/eEventScope.h>
#include <UtilsLib/events/eEventState.h>
#include <UtilsLib/events/eEventType.h>
#include <UtilsLib/events/eEventZone.h>
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
#include <UtilsLib/logging/MiniDump.h>
#include <UtilsLib/logging/Stack.h>
#include <UtilsLib/progress/IGlobalProgressManager.h>
#include <UtilsLib/progress/IProgressView.h>
#include <UtilsLib/progress/Progress.h>
#include <UtilsLib/progress/ProgressHandler.h>
#include <UtilsLib/progress/ProgressHandlerContainer.h>
#include <UtilsLib/progress/ScopedProgressObserver.h>
#include <UtilsLib/progress/ScopedProgressState.h>
#include <UtilsLib/progress/ScopedSubProgress.h>
#include <UtilsLib/registry/LiveRegSettings.h>
#include <UtilsLib/registry/RegUtils.h>
#include <UtilsLib/system/COMInit.h>
#include <UtilsLib/system/ComString.h>
#include <UtilsLib/system/HelperUtils.h>
#include <UtilsLib/system/LoadLoggedInUserProfileRAII.h>
#include <UtilsLib/system/MessageFilterSwitch.h>
#include <UtilsLib/system/Process.h>
#include <UtilsLib/system/RaiiObject.h>
#include <UtilsLib/system/ScopedServiceControl.h>
#include <UtilsLib/system/Service.h>
#include <UtilsLib/system/System.h>
#include <UtilsLib/system/VersionInfo.h>
#include <UtilsLib/system/WMIComponent.h>
#include <UtilsLib/system/WindowEnum.h>
#include <UtilsLib/text/Base64.h>
#include <UtilsLib/text/EmailUtils.h>
#include <UtilsLib/text/Guid.h>
#include <UtilsLib/text/StringUtils.h>
#include <UtilsLib/threading/BackgroundTask.h>
#include <UtilsLib/threading/LambdaThreadPoolTask.h>
#include <UtilsLib/threading/Lock.h>
#include <UtilsLib/threading/RetryManager.h>
#include <UtilsLib/threading/ScopedLock.h>
#include <UtilsLib/threading/SingleFutureTask.h>
#include <UtilsLib/threading/TaskBase.h>
#include <UtilsLib/threading/TaskQueue.h>
#include <UtilsLib/threading/Thread.h>
#include <UtilsLib/threading/ThreadMonitor.h>
#include <UtilsLib/threading/ThreadPool.h>
#include <UtilsLib/threading/ThreadUtils.h>
#include <UtilsLib/time/ITimeServiceImpl.h>
#include <UtilsLib/time/MockTimeServiceImpl.h>
#include <UtilsLib/time/Time.h>
#include <UtilsLib/time/TimeService.h>
#include <UtilsLib/time/TimeServiceImpl.h>
