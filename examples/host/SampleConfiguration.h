#pragma once

#include <string>

/// Where this machine's service configuration is; empty when the system does not tell its folder.
std::string ServiceConfigurationPath();

/// A sample of the service configuration at `path` for the length of a scope.
///
/// Whatever else is at `path` is left alone: before, and when somebody puts it there meanwhile. A sample that a killed
/// run left behind is taken over. When a break from the keyboard ends the program, the sample goes too.
class ScopedSampleConfiguration
{
public:
    explicit ScopedSampleConfiguration(const std::string& path);
    ~ScopedSampleConfiguration();
    ScopedSampleConfiguration(const ScopedSampleConfiguration&) = delete;
    ScopedSampleConfiguration& operator=(const ScopedSampleConfiguration&) = delete;

    /// Whether the sample is what `path` holds.
    bool IsInstalled() const;
    /// Removes it before the scope's end. False when it is still there.
    bool Remove();

private:
    std::string m_path;
    bool m_installed;
};
