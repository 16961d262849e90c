#include "tools/kestrel/JsonField.h"

#include "tools/kestrel/LaunchFile.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace KestrelTool
{

CJsonField CJsonField::At(const char* pszKey) const
{
    const std::string strName = (m_strName.empty() ? std::string() : m_strName + ".") + pszKey;
    if (!m_pJson->is_object())
    {
        Fail("must be an object");
    }
    const auto it = m_pJson->find(pszKey);
    if (it == m_pJson->end())
    {
        CJsonField(*m_pJson, m_strFile, strName).Fail("is missing");
    }
    return CJsonField(*it, m_strFile, strName);
}

CJsonField CJsonField::At(size_t nIndex) const
{
    return CJsonField((*m_pJson)[nIndex], m_strFile, m_strName + "[" + std::to_string(nIndex) + "]");
}

size_t CJsonField::ArraySize() const
{
    if (!m_pJson->is_array())
    {
        Fail("must be a list");
    }
    return m_pJson->size();
}

std::string CJsonField::AsString() const
{
    if (!m_pJson->is_string())
    {
        Fail("must be a text");
    }
    return m_pJson->get<std::string>();
}

double CJsonField::AsNumber() const
{
    if (!m_pJson->is_number())
    {
        Fail("must be a number");
    }
    return m_pJson->get<double>();
}

size_t CJsonField::AsIndex() const
{
    const double fValue = AsNumber();
    if (fValue < 0 || fValue != std::floor(fValue) || fValue > 4294967295.0)
    {
        Fail("must be a whole number, not negative and below 2^32");
    }
    return static_cast<size_t>(fValue);
}

size_t CJsonField::AsCount() const
{
    const size_t nValue = AsIndex();
    if (nValue == 0)
    {
        Fail("must not be 0");
    }
    return nValue;
}

void CJsonField::AllowOnly(std::initializer_list<const char*> keys) const
{
    if (!m_pJson->is_object())
    {
        Fail("must be an object");
    }
    for (const auto& item : m_pJson->items())
    {
        const bool bKnown =
            std::any_of(keys.begin(), keys.end(), [&](const char* pszKey) { return item.key() == pszKey; });
        if (!bKnown)
        {
            At(item.key().c_str()).Fail("is not a field that is known here");
        }
    }
}

void CJsonField::Fail(const std::string& strWhy) const
{
    throw CLaunchFileError(m_strFile + ": " + (m_strName.empty() ? "the launch" : m_strName) + " " + strWhy);
}

namespace
{

std::string Slurp(const std::string& strPath, const std::string& strComplaint)
{
    std::ifstream stream(strPath, std::ios::binary);
    if (!stream)
    {
        throw CLaunchFileError(strComplaint);
    }
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

} // namespace

CJsonDocument::CJsonDocument(const std::string& strText, const std::string& strPath) : m_strPath(strPath)
{
    try
    {
        m_Json = nlohmann::json::parse(strText, nullptr, true, true);
    }
    catch (const nlohmann::json::exception& error)
    {
        // The library's own number of the fault stands in brackets in front of its text.
        const std::string strWhat = error.what();
        const size_t nText = strWhat.find("] ");
        throw CLaunchFileError(strPath + ": no JSON: " + strWhat.substr(nText == std::string::npos ? 0 : nText + 2));
    }
}

std::string ReadLaunchText(const std::string& strPath)
{
    return Slurp(strPath, strPath + ": can't be read");
}

std::string ResolvePath(const CJsonField& field)
{
    return (std::filesystem::path(field.GetFile()).parent_path() / std::filesystem::path(field.AsString())).string();
}

std::string ReadWholeFile(const CJsonField& field)
{
    const std::filesystem::path path = ResolvePath(field);
    // What has no state, for instance because its name is too long, can't be read either.
    std::error_code error;
    const std::filesystem::file_type type = std::filesystem::status(path, error).type();
    if (type == std::filesystem::file_type::directory)
    {
        field.Fail("names a folder: " + path.string());
    }
    // A device may have no end.
    if (type == std::filesystem::file_type::character || type == std::filesystem::file_type::block)
    {
        field.Fail("names a device: " + path.string());
    }
    try
    {
        return Slurp(path.string(), "");
    }
    catch (const CLaunchFileError&)
    {
        field.Fail("names a file that can't be read: " + path.string());
    }
}

} // namespace KestrelTool
