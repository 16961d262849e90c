#ifndef KESTREL_TOOLS_DAP_FIELDS_H
#define KESTREL_TOOLS_DAP_FIELDS_H

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A request that can't be done; the text is for the client's user.
class CRequestError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Fields of a request's arguments. A field that is null counts as missing.
// Each throws CRequestError for a field of another type, and those without a default for a missing one.

std::string ReadText(const nlohmann::json& object, const char* pszName);
std::string ReadText(const nlohmann::json& object, const char* pszName, const std::string& strDefault);
/// A whole number that an int holds.
int64_t ReadInteger(const nlohmann::json& object, const char* pszName);
int64_t ReadInteger(const nlohmann::json& object, const char* pszName, int64_t nDefault);
/// One that isn't negative.
size_t ReadCount(const nlohmann::json& object, const char* pszName, size_t nDefault);
bool ReadFlag(const nlohmann::json& object, const char* pszName, bool bDefault);
/// An empty object for a missing one.
nlohmann::json ReadObject(const nlohmann::json& object, const char* pszName);
/// The objects of a list; none for a missing one.
std::vector<nlohmann::json> ReadObjects(const nlohmann::json& object, const char* pszName);
std::vector<std::string> ReadTexts(const nlohmann::json& object, const char* pszName);

} // namespace KestrelTool

#endif
