#include <tests/support/ImportPatch.h>

#include <tests/support/StoreInSlot.h>

#include <cstring>
#include <stdexcept>

namespace TestSupport
{

namespace
{

void** FindSlot(const std::string& module, const std::string& dll, const std::string& name)
{
    auto* const base = reinterpret_cast<unsigned char*>(GetModuleHandleA(module.c_str()));
    if (base == nullptr)
    {
        return nullptr;
    }
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
    for (; import->Name != 0; ++import)
    {
        if (_stricmp(reinterpret_cast<const char*>(base + import->Name), dll.c_str()) != 0)
        {
            continue;
        }
        const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + import->OriginalFirstThunk);
        auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + import->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slots)
        {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
            {
                continue;
            }
            const auto* const entry = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            if (name == reinterpret_cast<const char*>(entry->Name))
            {
                return reinterpret_cast<void**>(&slots->u1.Function);
            }
        }
    }
    return nullptr;
}

} // namespace

ImportPatch::ImportPatch(const std::string& dll, const std::string& name, void* replacement, const std::string& module)
    : m_slot(FindSlot(module, dll, name))
{
    if (m_slot == nullptr)
    {
        throw std::runtime_error(module + " does not import " + name + " from " + dll);
    }
    m_original = *m_slot;
    StoreInSlot(m_slot, replacement);
}

ImportPatch::~ImportPatch()
{
    StoreInSlot(m_slot, m_original);
}

} // namespace TestSupport
