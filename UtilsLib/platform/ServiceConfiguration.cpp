#include <UtilsLib/platform/ServiceConfiguration.h>

#include <UtilsLib/platform/ScopedVariant.h>
#include <UtilsLib/platform/UniqueBstr.h>

#include <comdef.h>
#include <msxml2.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <utility>

namespace UtilsLib::Platform
{

namespace
{

constexpr char kFileName[] = "Corvane.Tarrow.Service.config";
constexpr wchar_t kParser[] = L"MSXML2.FreeThreadedDOMDocument";

using UniqueNode = UniqueInterface<IXMLDOMNode>;
using UniqueNodeMap = UniqueInterface<IXMLDOMNamedNodeMap>;

void Check(HRESULT result)
{
    if (FAILED(result))
    {
        throw _com_error(result);
    }
}

/// The parser answers with success and null where there is no such node.
template <typename Interface>
void Check(HRESULT result, const UniqueInterface<Interface>& found)
{
    Check(result);
    if (!found)
    {
        throw _com_error(E_POINTER);
    }
}

UniqueBstr MakeBstr(const wchar_t* text)
{
    UniqueBstr string(SysAllocString(text));
    if (!string)
    {
        throw _com_error(E_OUTOFMEMORY);
    }
    return string;
}

std::wstring ToWide(const char* text)
{
    wchar_t buffer[MAX_PATH] = L"";
    if (MultiByteToWideChar(CP_ACP, 0, text, -1, buffer, MAX_PATH) == 0)
    {
        throw _com_error(E_OUTOFMEMORY);
    }
    return buffer;
}

std::string ToNarrow(BSTR text)
{
    const int length = static_cast<int>(SysStringLen(text));
    if (length == 0)
    {
        return {};
    }
    const int size = WideCharToMultiByte(CP_ACP, 0, text, length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    if (WideCharToMultiByte(CP_ACP, 0, text, length, narrow.data(), size, nullptr, nullptr) == 0)
    {
        throw _com_error(E_OUTOFMEMORY);
    }
    return narrow;
}

UniqueNode SelectNode(IXMLDOMNode* parent, const wchar_t* name)
{
    const UniqueBstr query = MakeBstr(name);
    UniqueNode node;
    Check(parent->selectSingleNode(query.Get(), node.Put()), node);
    return node;
}

UniqueNodeMap AttributesOf(IXMLDOMNode* node)
{
    UniqueNodeMap attributes;
    Check(node->get_attributes(attributes.Put()), attributes);
    return attributes;
}

} // namespace

ServiceConfiguration::Server::Server(IXMLDOMNamedNodeMap* attributes) : m_attributes(attributes)
{
}

std::string ServiceConfiguration::Server::Attribute(const wchar_t* name) const
{
    const UniqueBstr key = MakeBstr(name);
    UniqueNode attribute;
    Check(m_attributes->getNamedItem(key.Get(), attribute.Put()), attribute);
    ScopedVariant value;
    Check(attribute.Get()->get_nodeValue(value.Put()));
    return ToNarrow(value.String());
}

bool ServiceConfiguration::FindFile(char (&path)[MAX_PATH])
{
    // The 32-bit system folder on purpose: 64-bit Windows keeps that of its own programs elsewhere.
    return SHGetFolderPathA(nullptr, CSIDL_SYSTEMX86, nullptr, SHGFP_TYPE_CURRENT, path) == S_OK &&
           PathAppendA(path, kFileName);
}

ServiceConfiguration::ServiceConfiguration() = default;
ServiceConfiguration::~ServiceConfiguration() = default;

bool ServiceConfiguration::Load(const char* path)
{
    CLSID parser{};
    if (FAILED(CLSIDFromProgID(kParser, &parser)) ||
        FAILED(CoCreateInstance(parser, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument,
                                reinterpret_cast<void**>(m_document.Put()))))
    {
        throw _com_error(E_POINTER);
    }
    Check(m_document.Get()->put_async(VARIANT_FALSE));
    const UniqueBstr file = MakeBstr(ToWide(path).c_str());
    VARIANT source{};
    V_VT(&source) = VT_BSTR;
    V_BSTR(&source) = file.Get();
    VARIANT_BOOL loaded = VARIANT_FALSE;
    return SUCCEEDED(m_document.Get()->load(source, &loaded)) && loaded == VARIANT_TRUE;
}

std::string ServiceConfiguration::Mode()
{
    const UniqueNodeMap attributes = AttributesOf(Root());
    return Server(attributes.Get()).Attribute(L"mode");
}

void ServiceConfiguration::ForEachServer(const std::function<void(const Server& server)>& visit)
{
    const UniqueNode servers = SelectNode(Root(), L"servers");
    // From one to the next: the parser finds an item of the list of children by counting them from the first.
    UniqueNode server;
    Check(servers.Get()->get_firstChild(server.Put()));
    while (server)
    {
        const UniqueNodeMap attributes = AttributesOf(server.Get()); // a comment has none
        visit(Server(attributes.Get()));
        UniqueNode next;
        Check(server.Get()->get_nextSibling(next.Put()));
        server = std::move(next);
    }
}

IXMLDOMNode* ServiceConfiguration::Root()
{
    if (!m_root)
    {
        m_root = SelectNode(m_document.Get(), L"tarrowConfig");
    }
    return m_root.Get();
}

} // namespace UtilsLib::Platform
