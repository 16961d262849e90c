#include "tools/dap/Fields.h"

#include <nlohmann/json.hpp>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

const int64_t s_nMostInteger = 0x7FFFFFFF;

bool Has(const json& object, const char* pszName)
{
    return object.contains(pszName) && !object[pszName].is_null();
}

const json& Find(const json& object, const char* pszName, bool (json::*pIsType)() const noexcept, const char* pszType)
{
    if (!Has(object, pszName) || !(object[pszName].*pIsType)())
    {
        throw CRequestError(std::string("the argument ") + pszName + " has to be " + pszType);
    }
    return object[pszName];
}

} // namespace

std::string ReadText(const json& object, const char* pszName)
{
    return Find(object, pszName, &json::is_string, "a text");
}

std::string ReadText(const json& object, const char* pszName, const std::string& strDefault)
{
    return Has(object, pszName) ? ReadText(object, pszName) : strDefault;
}

int64_t ReadInteger(const json& object, const char* pszName)
{
    const json& number = Find(object, pszName, &json::is_number_integer, "a whole number");
    const bool bLarge = number.is_number_unsigned() && number.get<uint64_t>() > static_cast<uint64_t>(s_nMostInteger);
    if (bLarge || number.get<int64_t>() > s_nMostInteger || number.get<int64_t>() < -s_nMostInteger)
    {
        throw CRequestError(std::string("the argument ") + pszName + " is too large");
    }
    return number;
}

int64_t ReadInteger(const json& object, const char* pszName, int64_t nDefault)
{
    return Has(object, pszName) ? ReadInteger(object, pszName) : nDefault;
}

size_t ReadCount(const json& object, const char* pszName, size_t nDefault)
{
    const int64_t nNumber = Has(object, pszName) ? ReadInteger(object, pszName) : 0;
    if (nNumber < 0)
    {
        throw CRequestError(std::string("the argument ") + pszName + " is negative");
    }
    return Has(object, pszName) ? static_cast<size_t>(nNumber) : nDefault;
}

bool ReadFlag(const json& object, const char* pszName, bool bDefault)
{
    return Has(object, pszName) ? Find(object, pszName, &json::is_boolean, "true or false").get<bool>() : bDefault;
}

json ReadObject(const json& object, const char* pszName)
{
    return Has(object, pszName) ? Find(object, pszName, &json::is_object, "an object") : json::object();
}

std::vector<json> ReadObjects(const json& object, const char* pszName)
{
    std::vector<json> vObjects;
    if (Has(object, pszName))
    {
        for (const json& element : Find(object, pszName, &json::is_array, "a list"))
        {
            if (!element.is_object())
            {
                throw CRequestError(std::string("the argument ") + pszName + " has to be a list of objects");
            }
            vObjects.push_back(element);
        }
    }
    return vObjects;
}

std::vector<std::string> ReadTexts(const json& object, const char* pszName)
{
    std::vector<std::string> vTexts;
    if (Has(object, pszName))
    {
        for (const json& element : Find(object, pszName, &json::is_array, "a list"))
        {
            if (!element.is_string())
            {
                throw CRequestError(std::string("the argument ") + pszName + " has to be a list of texts");
            }
            vTexts.push_back(element);
        }
    }
    return vTexts;
}

} // namespace KestrelTool
