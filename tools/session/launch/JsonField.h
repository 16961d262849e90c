#ifndef KESTREL_TOOLS_JSONFIELD_H
#define KESTREL_TOOLS_JSONFIELD_H

#include <nlohmann/json.hpp>

#include <initializer_list>
#include <string>

namespace KestrelTool
{

/// A place in a launch file that knows its own name, for error messages. All accessors throw CLaunchFileError if
/// something is missing or of the wrong kind.
class CJsonField
{
public:
    CJsonField(const nlohmann::json& json, const std::string& strFile, const std::string& strName)
        : m_pJson(&json), m_strFile(strFile), m_strName(strName)
    {
    }

    bool Has(const char* pszKey) const { return m_pJson->is_object() && m_pJson->contains(pszKey); }
    CJsonField At(const char* pszKey) const;
    CJsonField At(size_t nIndex) const;
    size_t Size() const { return m_pJson->size(); }
    /// \throws if it isn't an array
    size_t ArraySize() const;
    bool IsString() const { return m_pJson->is_string(); }
    bool IsArray() const { return m_pJson->is_array(); }
    bool IsObject() const { return m_pJson->is_object(); }

    std::string AsString() const;
    double AsNumber() const;
    bool AsBool() const;
    /// A whole number of at least 0.
    size_t AsIndex() const;
    /// A whole number of at least 1.
    size_t AsCount() const;

    /// Rejects an object with any other key.
    void AllowOnly(std::initializer_list<const char*> keys) const;

    const std::string& GetFile() const { return m_strFile; }
    [[noreturn]] void Fail(const std::string& strWhy) const;

private:
    const nlohmann::json* m_pJson;
    std::string m_strFile;
    std::string m_strName;
};

/// A parsed launch file, which must outlive its fields.
class CJsonDocument
{
public:
    /// \param strPath  the file that the text comes from
    CJsonDocument(const std::string& strText, const std::string& strPath);
    CJsonField Root() const { return CJsonField(m_Json, m_strPath, std::string()); }

private:
    std::string m_strPath;
    nlohmann::json m_Json;
};

/// The text of a launch file.
std::string ReadLaunchText(const std::string& strPath);
/// The path in the field, relative to the launch file.
std::string ResolvePath(const CJsonField& field);
/// The bytes of the file named by the field, relative to the launch file.
std::vector<unsigned char> ReadWholeFile(const CJsonField& field);
/// The text of the program at the path in the field.
std::string ReadProgram(const CJsonField& field);

} // namespace KestrelTool

#endif
