#include "tools/session/debug/FixedRegisters.h"

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Format.h"

#include <CL/cl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace KestrelTool
{

namespace
{

const size_t s_nElementBytes = 16;
const char* const s_IdNames[] = {"vTidInGrp",     "vThreadGrpId",     "vAbsTid",
                                 "vTidInGrpFlat", "vThreadGrpIdFlat", "vAbsTidFlat"};

uint64_t AlignLocal(uint64_t nBytes)
{
    return (nBytes + s_nElementBytes - 1) / s_nElementBytes * s_nElementBytes;
}

/// "2", "-1", "0x10" or "2.5" as a word.
unsigned int ReadWord(const std::string& strText)
{
    const bool bHex = strText.find('x') != std::string::npos || strText.find('X') != std::string::npos;
    if (!bHex && strText.find_first_of(".eEnN") != std::string::npos)
    {
        const float fValue = std::strtof(strText.c_str(), nullptr);
        unsigned int nBits = 0;
        std::memcpy(&nBits, &fValue, sizeof(nBits));
        return nBits;
    }
    return static_cast<unsigned int>(std::strtoll(strText.c_str(), nullptr, 0));
}

/// The words of the declaration that applies at a line: the last one before it, or else the first one.
std::optional<Words4> FindLiteral(const std::string& strName, const CListing& listing, unsigned int nLine)
{
    const std::string strStart = "dcl_literal " + strName + ",";
    std::string strFound;
    for (unsigned int n = 0; n < listing.GetLineCount(); ++n)
    {
        const bool bHere = listing.GetLine(n).compare(0, strStart.size(), strStart) == 0;
        if (bHere && (n < nLine || strFound.empty()))
        {
            strFound = listing.GetLine(n);
        }
    }
    if (strFound.empty())
    {
        return std::nullopt;
    }
    Words4 words = {};
    std::istringstream stream(strFound.substr(strStart.size()));
    std::string strWord;
    for (size_t i = 0; i < words.size() && std::getline(stream, strWord, ','); ++i)
    {
        words[i] = ReadWord(strWord.substr(std::min(strWord.find_first_not_of(" \t"), strWord.size())));
    }
    return words;
}

/// The size of a constant buffer as declared in the text; 0 if it isn't declared.
unsigned int GetDeclaredElements(unsigned int nBuffer, const CListing& listing)
{
    const std::string strStart = "dcl_cb cb" + std::to_string(nBuffer) + "[";
    unsigned int nElements = 0;
    for (unsigned int n = 0; n < listing.GetLineCount(); ++n)
    {
        const std::string& strLine = listing.GetLine(n);
        if (strLine.compare(0, strStart.size(), strStart) == 0)
        {
            nElements = std::max(nElements, ReadWord(strLine.substr(strStart.size())));
        }
    }
    return nElements;
}

/// The ids of one work-item.
Words4 MakeId(size_t nKind, const SExtent& extent, size_t nItem)
{
    const size_t position[3] = {nItem % extent.nGlobal[0], nItem / extent.nGlobal[0] % extent.nGlobal[1],
                                nItem / (extent.nGlobal[0] * extent.nGlobal[1])};
    size_t inGroup[3];
    Words4 words = {};
    for (size_t i = 0; i < 3; ++i)
    {
        inGroup[i] = position[i] % extent.nLocal[i];
        const size_t nGroup = position[i] / extent.nLocal[i];
        words[i] = static_cast<unsigned int>(nKind == 0 ? inGroup[i] : nKind == 1 ? nGroup : position[i]);
    }
    if (nKind < 3)
    {
        return words;
    }
    const size_t nFlat = (inGroup[2] * extent.nLocal[1] + inGroup[1]) * extent.nLocal[0] + inGroup[0];
    const size_t nGroup = extent.GroupOf(nItem);
    const size_t nGroupSize = extent.nLocal[0] * extent.nLocal[1] * extent.nLocal[2];
    words.fill(static_cast<unsigned int>(nKind == 3 ? nFlat : nKind == 4 ? nGroup : nGroup * nGroupSize + nFlat));
    return words;
}

} // namespace

std::optional<SRegisterView> CFixedRegisters::Find(const std::string& strRegister, const CListing& listing,
                                                   unsigned int nLine)
{
    SRegisterView view;
    view.nItems = m_Sources.pExtent->Count();
    const bool bId = std::any_of(std::begin(s_IdNames), std::end(s_IdNames),
                                 [&](const char* pszName) { return strRegister == pszName + std::string("0"); });
    if (bId)
    {
        view.pWords = MakeIds(strRegister.substr(0, strRegister.size() - 1)).data();
        return view;
    }
    view.nStride = 0;
    std::optional<Words4> words;
    const size_t nOpen = strRegister.find('[');
    if (strRegister.compare(0, 2, "cb") == 0 && nOpen != std::string::npos)
    {
        words = ReadConstant(static_cast<unsigned int>(std::strtoul(strRegister.c_str() + 2, nullptr, 10)),
                             static_cast<unsigned int>(std::strtoul(strRegister.c_str() + nOpen + 1, nullptr, 10)),
                             listing);
    }
    else if (strRegister.size() > 1 && strRegister[0] == 'l' &&
             std::isdigit(static_cast<unsigned char>(strRegister[1])))
    {
        words = FindLiteral(strRegister, listing, nLine);
        if (!words)
        {
            throw CCommandError(strRegister + " isn't declared in the kernel's text");
        }
    }
    if (!words)
    {
        return std::nullopt;
    }
    std::vector<unsigned int>& vWords = m_mapWords[strRegister];
    vWords.assign(words->begin(), words->end());
    view.pWords = vWords.data();
    return view;
}

const std::vector<unsigned int>& CFixedRegisters::MakeIds(const std::string& strName)
{
    const SExtent& extent = *m_Sources.pExtent;
    const size_t nKind = static_cast<size_t>(
        std::find_if(std::begin(s_IdNames), std::end(s_IdNames), [&](const char* psz) { return strName == psz; }) -
        std::begin(s_IdNames));
    if (nKind != 2 && !extent.bLocalKnown)
    {
        throw CCommandError(strName + " isn't known: the launch leaves the size of groups to the platform");
    }
    std::vector<unsigned int>& vWords = m_mapWords[strName];
    if (vWords.empty())
    {
        vWords.reserve(4 * extent.Count());
        for (size_t nItem = 0; nItem < extent.Count(); ++nItem)
        {
            const Words4 words = MakeId(nKind, extent, nItem);
            vWords.insert(vWords.end(), words.begin(), words.end());
        }
    }
    return vWords;
}

Words4 CFixedRegisters::ReadConstant(unsigned int nBuffer, unsigned int nElement, const CListing& listing) const
{
    const std::string strName = "cb" + std::to_string(nBuffer);
    const unsigned int nElements = GetDeclaredElements(nBuffer, listing);
    if (nElement >= nElements)
    {
        throw CCommandError(nElements == 0 ? "the kernel declares no " + strName
                                           : strName + " has only " + std::to_string(nElements) + " elements");
    }
    if (nBuffer > 1 || (nBuffer == 0 && !m_Sources.bKnownPlatform))
    {
        throw CCommandError("what " + strName + " holds isn't known here");
    }
    return nBuffer == 0 ? ReadSizes(nElement) : ReadArgument(nElement);
}

/// Constant buffer 0: the sizes of the launch.
Words4 CFixedRegisters::ReadSizes(unsigned int nElement) const
{
    const SExtent& extent = *m_Sources.pExtent;
    if ((nElement == 1 || nElement == 2) && !extent.bLocalKnown)
    {
        throw CCommandError("cb0 isn't known here: the launch leaves the size of groups to the platform");
    }
    Words4 words = {};
    for (unsigned int i = 0; i < 3; ++i)
    {
        const size_t nValue = nElement == 0                    ? extent.nGlobal[i]
                              : nElement == 1                  ? extent.nLocal[i]
                              : nElement == 2                  ? extent.nGlobal[i] / extent.nLocal[i]
                              : nElement == 6 || nElement == 9 ? m_Sources.pFile->nGlobalOffset[i]
                                                               : 0;
        words[i] = static_cast<unsigned int>(nValue);
    }
    words[3] = nElement == 0 ? extent.nDimensions : 0;
    return words;
}

uint64_t CFixedRegisters::GetLocalStart(size_t nArgument) const
{
    uint64_t nStart = AlignLocal(m_Sources.nLocalBytes);
    for (size_t i = 0; i < nArgument && i < m_Sources.pFile->vArguments.size(); ++i)
    {
        nStart += AlignLocal(m_Sources.pFile->vArguments[i].nLocalBytes);
    }
    return nStart;
}

/// Constant buffer 1: the arguments, as the host set them.
Words4 CFixedRegisters::ReadArgument(unsigned int nElement) const
{
    Words4 words = {};
    const std::vector<SArgument>& vGiven = m_Sources.pFile->vArguments;
    for (size_t i = 0; i < m_Sources.pArguments->size() && i < vGiven.size(); ++i)
    {
        const SKernelArgument& argument = (*m_Sources.pArguments)[i];
        const SArgument& given = vGiven[i].eKind == SArgument::Same ? vGiven[vGiven[i].nSame] : vGiven[i];
        if (argument.nConstant > nElement)
        {
            continue;
        }
        const size_t nPart = (nElement - argument.nConstant) * s_nElementBytes;
        if (given.eKind == SArgument::Value && nPart < given.vContents.size())
        {
            std::memcpy(words.data(), &given.vContents[nPart],
                        std::min(s_nElementBytes, given.vContents.size() - nPart));
        }
        else if (given.eKind == SArgument::Image && nPart == 0)
        {
            words = {static_cast<unsigned int>(given.nWidth), static_cast<unsigned int>(given.nHeight),
                     static_cast<unsigned int>(given.nDepth == 0 ? 1 : given.nDepth), 1};
        }
        else if (given.eKind == SArgument::Image && nPart == s_nElementBytes)
        {
            words = {given.nChannelType, given.nChannelOrder, 0, 0};
        }
        else if (nPart == 0 &&
                 (given.eKind == SArgument::Buffer || given.eKind == SArgument::Sub || given.eKind == SArgument::Local))
        {
            const uint64_t nAddress = given.eKind == SArgument::Local ? GetLocalStart(i) : m_Sources.findAddress(i);
            words = {static_cast<unsigned int>(nAddress), static_cast<unsigned int>(nAddress >> 32), 0, 0};
        }
    }
    return words;
}

} // namespace KestrelTool
