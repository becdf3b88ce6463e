#pragma once

#include <UtilsLib/files/IFileWatcher.h>

#include <functional>
#include <string>
#include <vector>

/// Writes down what it is told, one text a call, and then runs `then`, in which a test can look at the file or throw.
class RecordingWatcher final : public UtilsLib::IFileWatcher
{
public:
    void OnOpen(const long long& id, std::string path, const unsigned long& access, const unsigned long& share,
                const unsigned long& creation, const unsigned long& flags) override
    {
        Record("open " + Name(id, path) + " " + std::to_string(access) + " " + std::to_string(share) + " " +
               std::to_string(creation) + " " + std::to_string(flags));
    }
    void OnClose(const long long& id, const std::string& path, const unsigned long& ownerThreadId) override
    {
        lastOwner = ownerThreadId;
        Record("close " + Name(id, path));
    }
    void OnWrite(const long long& id, const std::string& path, unsigned long position, const void* buffer,
                 const int& size) override
    {
        Record("write " + Name(id, path) + " at " + std::to_string(position) + ": " +
               std::string(static_cast<const char*>(buffer), static_cast<std::size_t>(size)));
    }
    void OnTruncate(const std::string& path) override
    {
        Record("truncate " + FileName(path));
    }

    std::vector<std::string> calls; // the paths without their folders
    unsigned long lastOwner = 0;    // of the latest close
    std::function<void()> then;

private:
    static std::string FileName(const std::string& path)
    {
        return path.substr(path.rfind('\\') + 1);
    }
    static std::string Name(long long id, const std::string& path)
    {
        return std::to_string(id) + " " + FileName(path);
    }
    void Record(std::string call)
    {
        calls.push_back(std::move(call));
        if (then)
        {
            then();
        }
    }
};
