#include "tools/session/launch/Contents.h"

#include "tools/session/launch/JsonField.h"

#include <functional>
#include <random>
#include <string>

namespace KestrelTool
{

namespace
{

#ifdef KESTREL_MAX_CONTENTS_BYTES
constexpr size_t s_nMaxContents = KESTREL_MAX_CONTENTS_BYTES;
#else
/// More than any device allows for a memory object, but small enough for the client's own copy.
constexpr size_t s_nMaxContents = size_t(4) << 30;
#endif

/// Refuses contents that no device could hold before allocating memory for them.
size_t ContentsSize(const CJsonField& field, size_t nElements, const SElementType& type)
{
    if (nElements > s_nMaxContents / type.nSize)
    {
        field.Fail("describes " + std::to_string(nElements) + " elements, more than " + std::to_string(s_nMaxContents) +
                   " bytes");
    }
    return nElements * type.nSize;
}

/// Stores a number as an element. Integers wrap as in C, but must fit in 64 bits.
void StoreNumber(const CJsonField& field, const SElementType& type, unsigned char* pElement)
{
    const double fValue = field.AsNumber();
    const bool bFits = type.eKind == SElementType::Float || (fValue >= -0x1p63 && fValue < 0x1p64);
    if (!bFits)
    {
        field.Fail("is no number of 64 bits");
    }
    StoreElement(type, fValue, pElement);
}

/// The value of the element at an index.
typedef std::function<double(size_t)> Pattern;

Pattern ReadPattern(const CJsonField& field, const SElementType& type)
{
    if (field.IsString())
    {
        const std::string strName = field.AsString();
        if (strName == "zero" || strName == "none")
        {
            return [](size_t) { return 0.0; };
        }
        if (strName == "iota")
        {
            return [](size_t nIndex) { return static_cast<double>(nIndex); };
        }
        field.Fail("must be \"zero\", \"none\", \"iota\", {\"constant\": C} or {\"random\": SEED}");
    }
    field.AllowOnly({"constant", "random"});
    if (field.Has("constant"))
    {
        const CJsonField constant = field.At("constant");
        unsigned char element[sizeof(double)];
        StoreNumber(constant, type, element);
        const double fConstant = constant.AsNumber();
        return [=](size_t) { return fConstant; };
    }
    // The engine's sequence is defined by the language. The scaling is done here, since the standard distributions may
    // differ between libraries.
    std::mt19937 engine(static_cast<std::mt19937::result_type>(field.At("random").AsIndex()));
    const bool bFloat = type.eKind == SElementType::Float;
    return [engine, bFloat](size_t) mutable
    {
        const auto nBits = static_cast<uint32_t>(engine());
        return bFloat ? nBits / 4294967296.0 : static_cast<double>(nBits & 0x7F);
    };
}

} // namespace

const SElementType& ReadElementType(const CJsonField& field)
{
    const SElementType* pType = FindElementType(field.AsString());
    if (pType == nullptr)
    {
        field.Fail("names no element type: \"" + field.AsString() + "\"");
    }
    return *pType;
}

std::vector<unsigned char> ReadValues(const CJsonField& field, const SElementType& type)
{
    const size_t nCount = field.ArraySize();
    if (nCount == 0)
    {
        field.Fail("must not be empty");
    }
    std::vector<unsigned char> vBytes(nCount * type.nSize);
    for (size_t i = 0; i < nCount; ++i)
    {
        StoreNumber(field.At(i), type, &vBytes[i * type.nSize]);
    }
    return vBytes;
}

std::vector<unsigned char> ReadContents(const CJsonField& field, const SElementType& type,
                                        std::optional<size_t> nElements)
{
    const int nSources = field.Has("values") + field.Has("file") + field.Has("fill");
    if (nSources != 1)
    {
        field.Fail("must have exactly one of values, file, fill");
    }
    std::vector<unsigned char> vBytes;
    if (field.Has("fill"))
    {
        const size_t nCount = nElements ? *nElements : field.At("count").AsCount();
        Pattern pattern = ReadPattern(field.At("fill"), type);
        vBytes.resize(ContentsSize(field, nCount, type));
        for (size_t i = 0; i < nCount; ++i)
        {
            StoreElement(type, pattern(i), &vBytes[i * type.nSize]);
        }
        return vBytes;
    }
    // A count next to values or a file must match their number.
    const bool bCounted = !nElements && field.Has("count");
    nElements = bCounted ? field.At("count").AsCount() : nElements;
    vBytes = field.Has("values") ? ReadValues(field.At("values"), type) : ReadWholeFile(field.At("file"));
    if (vBytes.size() % type.nSize != 0)
    {
        field.Fail("describes " + std::to_string(vBytes.size()) + " bytes, which are no whole number of elements");
    }
    const size_t nBytes = nElements ? ContentsSize(field, *nElements, type) : vBytes.size();
    if (vBytes.empty() || vBytes.size() != nBytes)
    {
        field.Fail("describes " + std::to_string(vBytes.size()) + " bytes" +
                   (nElements ? ", but takes " + std::to_string(nBytes) : ""));
    }
    return vBytes;
}

std::optional<std::vector<unsigned char>> ReadExpectation(const CJsonField& field, const SElementType& type,
                                                          size_t nBytes)
{
    if (!field.Has("expect"))
    {
        return std::nullopt;
    }
    const CJsonField expect = field.At("expect");
    if (expect.IsObject())
    {
        expect.AllowOnly({"file"});
    }
    std::vector<unsigned char> vBytes = expect.IsObject() ? ReadWholeFile(expect.At("file")) : ReadValues(expect, type);
    if (vBytes.size() != nBytes)
    {
        expect.Fail("describes " + std::to_string(vBytes.size()) + " bytes, but the argument has " +
                    std::to_string(nBytes));
    }
    return vBytes;
}

} // namespace KestrelTool
