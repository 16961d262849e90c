#ifndef KESTREL_TOOLS_LAYER_QUERIES_H
#define KESTREL_TOOLS_LAYER_QUERIES_H

#include <string>
#include <type_traits>
#include <vector>

namespace KestrelLayer
{

/// A text that one of OpenCL's queries gives; empty if it gives none.
/// \param query  called with a size, a place and where the size goes
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

/// A value that one of OpenCL's queries gives; zero if it gives none.
template <typename T, typename Query>
T AskValue(Query query)
{
    static_assert(std::is_trivially_copyable<T>::value, "what a query writes is bytes");
    T value = T();
    return query(sizeof(value), static_cast<void*>(&value), nullptr) == 0 ? value : T();
}

} // namespace KestrelLayer

#endif
