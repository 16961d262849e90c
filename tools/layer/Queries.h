#ifndef KESTREL_TOOLS_LAYER_QUERIES_H
#define KESTREL_TOOLS_LAYER_QUERIES_H

#include <string>
#include <type_traits>
#include <vector>

namespace KestrelLayer
{

/// The text result of an OpenCL query; empty if it fails.
/// \param query  called with a size, a pointer, and a pointer to the returned size
template <typename Query>
std::string AskText(Query query)
{
    size_t nSize = 0;
    if (query(size_t(0), nullptr, &nSize) != 0 || nSize == 0)
    {
        return std::string();
    }
    std::string strText(nSize, '\0');
    if (query(nSize, static_cast<void*>(&strText[0]), nullptr) != 0)
    {
        return std::string();
    }
    return strText.substr(0, strText.find('\0'));
}

/// The value result of an OpenCL query; zero if it fails.
template <typename T, typename Query>
T AskValue(Query query)
{
    static_assert(std::is_trivially_copyable<T>::value, "what a query writes is bytes");
    T value = T();
    return query(sizeof(value), static_cast<void*>(&value), nullptr) == 0 ? value : T();
}

} // namespace KestrelLayer

#endif
