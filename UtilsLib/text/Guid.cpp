#include <UtilsLib/text/Guid.h>

#include <UtilsLib/WindowsTypes.h>

#include <suite/GuidUtils.h>

#include <rpc.h>

#include <memory>

namespace UtilsLib
{

namespace
{

struct RpcStringDeleter
{
    void operator()(unsigned char* text) const
    {
        RpcStringFreeA(&text);
    }
};

std::string TextOf(UUID guid)
{
    unsigned char* converted = nullptr;
    if (UuidToStringA(&guid, &converted) != RPC_S_OK)
    {
        return {};
    }
    const std::unique_ptr<unsigned char, RpcStringDeleter> owner(converted);
    return reinterpret_cast<const char*>(converted);
}

} // namespace

std::string Guid::CreateGuid()
{
    UUID guid{};
    return UuidCreate(&guid) == RPC_S_OK ? TextOf(guid) : std::string();
}

std::string Guid::AdjustGuid(const std::string& guid, short delta)
{
    std::string text = guid; // the function takes a text that it might change
    UUID adjusted{};
    if (UuidFromStringA(reinterpret_cast<unsigned char*>(text.data()), &adjusted) != RPC_S_OK)
    {
        return {};
    }
    adjusted.Data2 = static_cast<unsigned short>(adjusted.Data2 + delta);
    return TextOf(adjusted);
}

std::string Guid::FormatGuidFromAlphaNumericOnly(const std::string& text)
{
    return Corvane::ManagedCpp::Utils::GuidUtils::Format(text, "D");
}

} // namespace UtilsLib
