// Uses one thing of each kind that the package offers; exit code 0 says that all of it worked.
#include <UtilsLib/UtilsLib.h>

#include <json/json.h>
#include <tinyxml2.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace
{

class Worker : public UtilsLib::Thread
{
public:
    Worker() : Thread("consumer")
    {
    }
    ~Worker()
    {
        Shutdown();
    }
    bool ran = false;

private:
    void ThreadProc() override
    {
        ran = true;
    }
};

bool ThreadRuns()
{
    Worker worker;
    worker.Start();
    for (int i = 0; i < 500 && !UtilsLib::ThreadMonitor::GetInstance().GetThreadStatus().empty(); ++i)
    {
        Sleep(10);
    }
    worker.Shutdown();
    return worker.ran;
}

bool SwitchLoggingOn()
{
    HKEY key = nullptr;
    if (RegCreateKeyA(HKEY_LOCAL_MACHINE, "Software\\Corvane\\Halden", &key) != ERROR_SUCCESS)
    {
        return false;
    }
    RegCloseKey(key);
    return UtilsLib::RegUtils::WriteHaldenRegDword("hx41svc_logging", 1);
}

bool LogLineIsWritten()
{
    const std::string path = (std::filesystem::temp_directory_path() / "consumer.log").string();
    std::filesystem::remove(path);
    if (!SwitchLoggingOn())
    {
        return false;
    }
    UtilsLib::Logger& logger = UtilsLib::Logger::GetInstance();
    logger.SetPath(path);
    logger.SetRegistryKey("hx41svc_logging");
    logger.Start();
    UtilsLib::LiveRegSettings::GetInstance().Start();
    UtilsLib::ILogger& log = logger;
    bool written = false;
    for (int i = 0; i < 100 && !written; ++i) // until the logger has seen the switch
    {
        log.Log(UtilsLib::LogCategory::General, UtilsLib::LogTraceLevel::Information, "from a %s", "consumer");
        Sleep(50);
        std::ifstream file(path, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        written = text.find("(1:1), from a consumer\r\n") != std::string::npos;
    }
    UtilsLib::LiveRegSettings::GetInstance().Shutdown();
    logger.Shutdown();
    UtilsLib::RegUtils::DeleteHaldenRegDword("hx41svc_logging");
    return written;
}

bool JsonIsReadAndWritten()
{
    Json::Value value;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    const std::string text = R"({"company":"sample","years":[2025,2026]})";
    return reader->parse(text.data(), text.data() + text.size(), &value, nullptr) &&
           value["years"][1].asInt() == 2026 &&
           Json::writeString(Json::StreamWriterBuilder(), value).find("sample") != std::string::npos;
}

bool JsonErrorsAreCaught()
{
    try
    {
        return Json::Value("text").asInt() != 0;
    }
    catch (const Json::LogicError&)
    {
        return true;
    }
}

bool XmlIsReadAndWritten()
{
    tinyxml2::XMLDocument document;
    if (document.Parse("<service mode='live'/>") != tinyxml2::XML_SUCCESS)
    {
        return false;
    }
    tinyxml2::XMLPrinter printer;
    document.Print(&printer);
    return document.RootElement()->Attribute("mode", "live") != nullptr && printer.CStrSize() > 1;
}

bool Check(const char* what, bool holds)
{
    std::printf("%s: %s\n", what, holds ? "ok" : "FAILED");
    return holds;
}

} // namespace

int main()
{
    bool all = Check("thread", ThreadRuns());
    all = Check("log", LogLineIsWritten()) && all;
    all = Check("JSON", JsonIsReadAndWritten()) && all;
    all = Check("JSON errors", JsonErrorsAreCaught()) && all;
    all = Check("XML", XmlIsReadAndWritten()) && all;
    return all ? 0 : 1;
}
