#include "fuzz/TextRoad.h"

#include "fuzz/FuzzKernel.h"
#include "fuzz/Targets.h"

#include "binary/ElfUtils.h"
#include "platform/compiler/Assembler.h"
#include "platform/compiler/Disassembler.h"
#include "platform/compiler/ItemLayout.h"

namespace KestrelFuzz
{

using namespace KestrelPlatform;

std::vector<unsigned int> WithoutComments(const std::vector<unsigned int>& vTokens)
{
    // The two words that open a stream come after any leading macros.
    std::vector<unsigned int> vItems;
    bool bHeader = false;
    bool bInMacro = false;
    for (size_t nPosition = 0; nPosition < vTokens.size();)
    {
        const uint32_t nOpcode = vTokens[nPosition] & s_nOpcodeMask;
        size_t nWords = 2;
        bool bComment = false;
        if (bHeader || bInMacro || nOpcode == IL_OP_MACRODEF)
        {
            SItemLayout layout;
            const char* pszReason = nullptr;
            if (!MeasureItem(vTokens.data() + nPosition, vTokens.size() - nPosition, layout, pszReason))
            {
                break;
            }
            nWords = layout.nWords;
            bComment = nOpcode == IL_OP_COMMENT;
            bInMacro = nOpcode == IL_OP_MACRODEF || (bInMacro && nOpcode != IL_OP_MACROEND);
        }
        else
        {
            bHeader = true;
        }
        for (size_t i = 0; i < nWords && nPosition + i < vTokens.size() && !bComment; ++i)
        {
            vItems.push_back(vTokens[nPosition + i]);
        }
        nPosition += nWords;
    }
    return vItems;
}

bool CheckTextRoad(const std::vector<unsigned int>& vTokens)
{
    std::string strText;
    std::string strError;
    if (!DisassembleIL(vTokens.data(), vTokens.size(), strText, strError))
    {
        Require(!strError.empty(), "a stream that is refused has a reason");
        return false;
    }
    std::vector<unsigned int> vBack;
    SDiagnostic diagnostic;
    Require(AssembleIL(strText.data(), strText.size(), vBack, diagnostic), "what is disassembled assembles",
            diagnostic.ToString() + "\n" + strText);
    Require(vBack == vTokens, "assembling what is disassembled gives the same tokens",
            vBack == vTokens ? "" : strText + "was " + ToHex(vTokens) + "\nis  " + ToHex(vBack));

    OVK_ElfUtils::ProcessILText(strText, true, false);
    Require(AssembleIL(strText.data(), strText.size(), vBack, diagnostic), "text that was cleaned assembles",
            diagnostic.ToString() + "\n" + strText);
    Require(WithoutComments(vBack) == WithoutComments(vTokens), "cleaning a text leaves its instructions", strText);
    return true;
}

} // namespace KestrelFuzz
