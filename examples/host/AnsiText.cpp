#include <AnsiText.h>

#include <UtilsLib/text/StringUtils.h>

std::string AnsiText(const std::filesystem::path& path)
{
    return UtilsLib::StringUtils::FromUnicode(path.wstring());
}
