#include <UtilsLib/files/BatchFile.h>

#include <UtilsLib/WindowsTypes.h>

#include <shellapi.h>

namespace UtilsLib
{

BatchFile::BatchFile(const std::string& fileName)
    : m_file(std::make_shared<ScopedTempFile>(fileName, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE))
{
    m_file->SetDelete(false);
}

BatchFile::~BatchFile() = default;

void BatchFile::PushOp(const std::string& commandLine)
{
    m_ops.push_back(commandLine);
}

void BatchFile::Execute()
{
    for (std::string& line : m_ops)
    {
        line += "\r\n"; // kept: in the stored line, so that each call adds another line end
        m_file->Write(line.data(), static_cast<unsigned int>(line.size()));
    }
    m_file->Close();
    ShellExecuteA(nullptr, nullptr, m_file->GetFilename().c_str(), nullptr, nullptr, SW_SHOWNORMAL);
}

} // namespace UtilsLib
