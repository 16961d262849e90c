#include "tools/session/program/CapturedArguments.h"

#include "tools/session/program/ProgramRecord.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// The element type for an argument's type if contents can consist of it; otherwise bytes.
const SElementType* FitType(const std::string& strType, size_t nBytes)
{
    const SElementType& type = FindElementOf(strType);
    return nBytes % type.nSize == 0 ? &type : FindElementType("uchar");
}

/// A buffer of the program, and the arguments that use it.
struct SObjectMemory
{
    size_t nFirst = 0;    ///< the first byte that was read, in the program's buffer
    bool bWritten = true; ///< anybody has written to the program's buffer
    size_t nBytes = 0;
    uint64_t nObject = 0;                 ///< the layer's number of the program's buffer
    std::vector<unsigned char> vContents; ///< moved to the argument that has the whole buffer
    std::vector<size_t> vUsers;
    size_t nShared = 0; ///< index among the launch's shared buffers, if it is one
};

class CArgumentTaker
{
public:
    CArgumentTaker(const SMessage& message, SLaunchFile& launch)
        : m_Message(message), m_Contents(message.header.at("contents")), m_Launch(launch)
    {
        for (const json& memory : message.header.at("memories"))
        {
            SObjectMemory taken;
            taken.nObject = memory.at("object");
            taken.nFirst = memory.at("first");
            taken.bWritten = memory.value("written", true);
            taken.vContents = TakePart(message, memory.at("part"));
            taken.nBytes = taken.vContents.size();
            m_vMemories.push_back(std::move(taken));
        }
    }

    void Take()
    {
        for (size_t i = 0; i < m_Contents.size(); ++i)
        {
            if (m_Contents[i].at("kind") == "buffer")
            {
                FindMemory(m_Contents[i]).vUsers.push_back(i);
            }
        }
        for (SObjectMemory& memory : m_vMemories)
        {
            if (!IsPlain(memory))
            {
                Share(memory);
            }
        }
        for (size_t i = 0; i < m_Contents.size(); ++i)
        {
            m_Launch.vArguments.push_back(TakeOne(i));
        }
    }

private:
    SObjectMemory& FindMemory(const json& argument)
    {
        const size_t nMemory = argument.at("memory");
        const size_t nFirst = argument.at("first");
        const size_t nEnd = argument.at("end");
        if (nMemory >= m_vMemories.size() || nFirst < m_vMemories[nMemory].nFirst || nEnd < nFirst ||
            nEnd - m_vMemories[nMemory].nFirst > m_vMemories[nMemory].nBytes)
        {
            throw CProtocolError("an argument lies in no buffer");
        }
        return m_vMemories[nMemory];
    }

    bool IsWhole(const SObjectMemory& memory, const json& argument) const
    {
        return argument.at("first") == memory.nFirst &&
               argument.at("end").get<size_t>() - memory.nFirst == memory.nBytes;
    }

    /// Whether all arguments that use it have the whole buffer.
    bool IsPlain(const SObjectMemory& memory) const
    {
        return std::all_of(memory.vUsers.begin(), memory.vUsers.end(),
                           [&](size_t nUser) { return IsWhole(memory, m_Contents[nUser]); });
    }

    void Share(SObjectMemory& memory)
    {
        SArgument buffer;
        buffer.eKind = SArgument::Buffer;
        buffer.pType = FitType(m_Contents[memory.vUsers.front()].at("type"), memory.vContents.size());
        buffer.vContents = memory.vContents;
        memory.nShared = m_Launch.vBuffers.size();
        m_Launch.vBuffers.push_back(std::move(buffer));
    }

    SArgument TakeOne(size_t nArgument)
    {
        const json& given = m_Contents[nArgument];
        const std::string strKind = given.at("kind");
        const std::string strType = given.at("type");
        SArgument argument;
        if (strKind == "buffer")
        {
            return TakeBuffer(nArgument);
        }
        if (strKind == "image")
        {
            return TakeImage(nArgument);
        }
        if (strKind == "value")
        {
            argument.eKind = SArgument::Value;
            argument.vContents = TakePart(m_Message, given.at("part"));
            argument.pType = FitType(strType, argument.vContents.size());
        }
        else if (strKind == "local")
        {
            argument.eKind = SArgument::Local;
            argument.nLocalBytes = given.at("bytes");
        }
        else if (strKind == "sampler")
        {
            argument.eKind = SArgument::Sampler;
            argument.bNormalized = given.at("normalized");
            argument.nAddressing = given.at("addressing");
            argument.nFilter = given.at("filter");
        }
        else
        {
            argument.eKind = strKind == "null image" ? SArgument::NullImage : SArgument::NullBuffer;
        }
        return argument;
    }

    SArgument TakeBuffer(size_t nArgument)
    {
        const json& given = m_Contents[nArgument];
        SObjectMemory& memory = FindMemory(given);
        SArgument argument;
        argument.nObject = memory.nObject;
        if (IsPlain(memory))
        {
            argument.nSame = memory.vUsers.front();
            argument.eKind = argument.nSame == nArgument ? SArgument::Buffer : SArgument::Same;
            argument.pType = FitType(given.at("type"), memory.nBytes);
            argument.bUnwritten = argument.eKind == SArgument::Buffer && !memory.bWritten;
            argument.vContents =
                argument.eKind == SArgument::Buffer ? std::move(memory.vContents) : std::vector<unsigned char>();
            return argument;
        }
        argument.eKind = SArgument::Sub;
        argument.nSame = memory.nShared;
        argument.pType = m_Launch.vBuffers[memory.nShared].pType;
        if (IsWhole(memory, given))
        {
            argument.vContents = memory.vContents;
            return argument;
        }
        const size_t nOrigin = given.at("first").get<size_t>() - memory.nFirst;
        const size_t nEnd = given.at("end").get<size_t>() - memory.nFirst;
        argument.nOrigin = nOrigin;
        argument.vContents.assign(memory.vContents.begin() + static_cast<std::ptrdiff_t>(nOrigin),
                                  memory.vContents.begin() + static_cast<std::ptrdiff_t>(nEnd));
        return argument;
    }

    SArgument TakeImage(size_t nArgument)
    {
        const json& given = m_Contents[nArgument];
        SArgument argument;
        if (!given.contains("part"))
        {
            // The image of an earlier argument.
            const size_t nImage = given.at("image");
            if (nImage >= m_vImages.size())
            {
                throw CProtocolError("an argument's image isn't there");
            }
            argument.eKind = SArgument::Same;
            argument.nSame = m_vImages[nImage];
            return argument;
        }
        m_vImages.push_back(nArgument);
        argument.eKind = SArgument::Image;
        argument.nChannelOrder = given.at("order");
        argument.nChannelType = given.at("channel");
        argument.nImageType = given.at("shape");
        argument.nWidth = given.at("width");
        argument.nHeight = std::max<size_t>(given.at("height").get<size_t>(), 1);
        argument.nDepth = given.at("depth");
        argument.nArray = given.at("array");
        argument.vContents = TakePart(m_Message, given.at("part"));
        argument.pType = FindChannelElement(argument.nChannelType);
        if (argument.pType == nullptr || NameChannelOrder(argument.nChannelOrder) == nullptr ||
            NameImageShape(argument.nImageType) == nullptr)
        {
            throw CProtocolError("an image is of a format that a launch file has no word for");
        }
        return argument;
    }

    const SMessage& m_Message;
    const json& m_Contents;
    SLaunchFile& m_Launch;
    std::vector<SObjectMemory> m_vMemories;
    std::vector<size_t> m_vImages; ///< arguments, by the layer's numbers of images
};

} // namespace

void TakeArguments(const SMessage& message, SLaunchFile& launch)
{
    CArgumentTaker(message, launch).Take();
}

} // namespace KestrelTool
