#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <string>

namespace TestSupport
{

/// Sends the calls of one imported function out of UtilsLib.dll to a stand-in until scope end: a fault on demand,
/// without a seam in the product. Other modules' calls are not touched.
class ImportPatch
{
public:
    /// `dll` is the import's module ("KERNEL32.dll"), any letter case. Throws when UtilsLib.dll does not import `name`.
    template <typename Function>
    ImportPatch(const std::string& dll, const std::string& name, Function* replacement)
        : ImportPatch(dll, name, reinterpret_cast<void*>(replacement), "UtilsLib.dll")
    {
    }
    /// The same for calls out of another module of the process.
    template <typename Function>
    ImportPatch(const std::string& dll, const std::string& name, Function* replacement, const std::string& module)
        : ImportPatch(dll, name, reinterpret_cast<void*>(replacement), module)
    {
    }
    ~ImportPatch();
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    /// The function that was there before, for stand-ins that hand calls on.
    template <typename Function>
    Function* Original() const
    {
        return reinterpret_cast<Function*>(m_original);
    }

private:
    ImportPatch(const std::string& dll, const std::string& name, void* replacement, const std::string& module);

    void** m_slot;
    void* m_original;
};

} // namespace TestSupport
