#include "tools/session/launch/JsonField.h"

#include "tools/session/launch/Files.h"
#include "tools/session/launch/LaunchFile.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>
#include <vector>

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

bool CJsonField::AsBool() const
{
    if (!m_pJson->is_boolean())
    {
        Fail("must be true or false");
    }
    return m_pJson->get<bool>();
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

/// Rejects duplicate names: a reader would take one of the fields where the author meant the other.
nlohmann::json ParseWithoutDoubles(const std::string& strText, const std::string& strPath)
{
    std::vector<std::set<std::string>> vKeys;
    const auto look = [&](int /*nDepth*/, nlohmann::json::parse_event_t eEvent, nlohmann::json& parsed)
    {
        if (eEvent == nlohmann::json::parse_event_t::object_start)
        {
            vKeys.emplace_back();
        }
        else if (eEvent == nlohmann::json::parse_event_t::object_end)
        {
            vKeys.pop_back();
        }
        else if (eEvent == nlohmann::json::parse_event_t::key && !vKeys.back().insert(parsed.get<std::string>()).second)
        {
            throw CLaunchFileError(strPath + ": the field \"" + parsed.get<std::string>() + "\" is there twice");
        }
        return true;
    };
    return nlohmann::json::parse(strText, look, true, true);
}

} // namespace

CJsonDocument::CJsonDocument(const std::string& strText, const std::string& strPath) : m_strPath(strPath)
{
    try
    {
        m_Json = ParseWithoutDoubles(strText, strPath);
    }
    catch (const nlohmann::json::exception& error)
    {
        // The library puts its own error number in brackets before the text.
        const std::string strWhat = error.what();
        const size_t nText = strWhat.find("] ");
        throw CLaunchFileError(strPath + ": no JSON: " + strWhat.substr(nText == std::string::npos ? 0 : nText + 2));
    }
}

std::string ReadLaunchText(const std::string& strPath)
{
    try
    {
        return ReadFileBytes(strPath);
    }
    catch (const CFileError& error)
    {
        throw CLaunchFileError(error.what());
    }
}

std::string ResolvePath(const CJsonField& field)
{
    return (std::filesystem::path(field.GetFile()).parent_path() / std::filesystem::path(field.AsString())).string();
}

std::vector<unsigned char> ReadWholeFile(const CJsonField& field)
{
    try
    {
        return ReadFileContents(ResolvePath(field));
    }
    catch (const CFileError& error)
    {
        field.Fail(std::string("names ") + error.what());
    }
}

std::string ReadProgram(const CJsonField& field)
{
    try
    {
        return ReadProgramText(ResolvePath(field));
    }
    catch (const CFileError& error)
    {
        field.Fail(std::string("names ") + error.what());
    }
}

} // namespace KestrelTool
