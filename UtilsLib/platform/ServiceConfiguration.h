#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueInterface.h>

#include <functional>
#include <string>

struct IXMLDOMDocument;
struct IXMLDOMNamedNodeMap;
struct IXMLDOMNode;

namespace UtilsLib::Platform
{

/// The suite's service configuration: the cloud servers that there are, and the mode, the name of the one wanted.
///
/// Read with the system's XML parser, which needs COM on the thread for the object's whole life. Operations that are
/// not said to answer false throw _com_error when a call fails or something is not there. Texts are in the ANSI code
/// page, "?" for what it lacks.
class ServiceConfiguration
{
public:
    /// Where the production cloud drive is: what holds when the configuration names no other server.
    static constexpr const char* kProductionDrive = "https://drive.corvane.example";

    /// The attributes of one server.
    class Server
    {
    public:
        explicit Server(IXMLDOMNamedNodeMap* attributes);
        std::string Attribute(const wchar_t* name) const;

    private:
        IXMLDOMNamedNodeMap* m_attributes; // not owned
    };

    /// The file's full path; false when the shell does not tell its folder.
    static bool FindFile(char (&path)[MAX_PATH]);

    ServiceConfiguration();
    ~ServiceConfiguration();
    ServiceConfiguration(const ServiceConfiguration&) = delete;
    ServiceConfiguration& operator=(const ServiceConfiguration&) = delete;

    /// False when the file cannot be read or is not well-formed, however the parser says so. Once, and before the
    /// others.
    bool Load(const char* path);
    std::string Mode();
    /// Calls `visit` with every server in the file's order, up to the first that is wrong. Any exception of it ends
    /// this, too.
    void ForEachServer(const std::function<void(const Server& server)>& visit);

private:
    IXMLDOMNode* Root();

    UniqueInterface<IXMLDOMDocument> m_document;
    UniqueInterface<IXMLDOMNode> m_root; // once it was asked for
};

} // namespace UtilsLib::Platform
