#include "platform/il/RegisterNames.h"

#include "platform/il/NameTable.h"

namespace KestrelPlatform
{
namespace
{

constexpr unsigned int s_nRegisterTypes = IL_REGTYPE_LAST + 1;

constexpr std::string_view s_Names[s_nRegisterTypes] = {
#define IL_REGISTER_TYPE(name, shown, type, written) written,
#include "il/ILRegisterTypes.def"
    "regtype"};

class CRegisterTypes : public CNameTable<8>
{
public:
    constexpr CRegisterTypes()
    {
        for (unsigned int nType = 0; nType < s_nRegisterTypes; ++nType)
        {
            Add(s_Names[nType], static_cast<int>(nType));
        }
    }
};

constexpr CRegisterTypes s_RegisterTypes;

constexpr SLetterTypes MakeLetterTypes()
{
    SLetterTypes letters;
    for (size_t c = 0; c < sizeof(letters.nTypes); ++c)
    {
        const char cLetter = static_cast<char>(c);
        letters.nTypes[c] = static_cast<int8_t>(s_RegisterTypes.Find(std::string_view(&cLetter, 1)));
    }
    return letters;
}

} // namespace

std::string_view GetRegisterTypeName(unsigned int nType)
{
    return s_Names[nType % s_nRegisterTypes];
}

constexpr SLetterTypes g_LetterTypes = MakeLetterTypes();

int SearchRegisterType(std::string_view name)
{
    return s_RegisterTypes.Find(name);
}

bool IsRegisterNumberOptional(unsigned int nType)
{
    return nType >= IL_REGTYPE_THREAD_ID_IN_GROUP && nType <= IL_REGTYPE_THREAD_GROUP_ID_FLAT;
}

} // namespace KestrelPlatform
