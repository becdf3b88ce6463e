#pragma once

#include <string>
#include <vector>

/// The names that the live settings watch, in ascending byte order.
inline const std::vector<std::string>& WatchedNames()
{
    static const std::vector<std::string> names = {
        "ClientLogging",
        "disable_udp",
        "hx41svc_bankcloud_scheduler_interval_secs",
        "hx41svc_disable_log_truncation",
        "hx41svc_drive_dataset_inactivity_check_interval",
        "hx41svc_drive_dataset_inactivity_threshold",
        "hx41svc_drivetest_enabled",
        "hx41svc_drivetest_force_corrupt_payload_download",
        "hx41svc_drivetest_httpretryafter",
        "hx41svc_drivetest_httpstatuscode",
        "hx41svc_drivetest_rebase",
        "hx41svc_local_analytics",
        "hx41svc_logging",
        "hx41svc_logging_category",
        "hx41svc_logging_fileio",
        "hx41svc_logging_grpc",
        "hx41svc_logging_trace",
        "hx41svc_logging_verbose",
        "hx41svc_rebase_check_interval",
        "hx41svc_running_jobs_limit",
        "stack_logging",
    };
    return names;
}
