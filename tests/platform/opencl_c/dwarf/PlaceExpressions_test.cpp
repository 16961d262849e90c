#include "platform/opencl_c/dwarf/PlaceExpressions.h"

#include <gtest/gtest.h>

#include "llvm/BinaryFormat/Dwarf.h"
#include "llvm/IR/DIBuilder.h"
#include "llvm/IR/LLVMContext.h"
#include "llvm/IR/Module.h"

using namespace KestrelOpenCL;

namespace
{

/// Variables of several types, without a program around them.
class CVariables
{
public:
    CVariables() : m_Module("variables", m_Context), m_Builder(m_Module)
    {
        llvm::DIFile* pFile = m_Builder.createFile("kernel.cl", ".");
        m_Builder.createCompileUnit(llvm::dwarf::DW_LANG_C99, pFile, "", false, "", 0);
        auto* pType = m_Builder.createSubroutineType(m_Builder.getOrCreateTypeArray({}));
        m_pFunction = m_Builder.createFunction(pFile, "f", "f", pFile, 1, pType, 1, llvm::DINode::FlagZero,
                                               llvm::DISubprogram::SPFlagDefinition);
    }

    CVariables(const CVariables&) = delete;
    CVariables& operator=(const CVariables&) = delete;
    /// Without this the builder's unfinished nodes would leak.
    ~CVariables() { m_Builder.finalize(); }

    const llvm::DILocalVariable* Scalar(unsigned int nBits)
    {
        return Variable(m_Builder.createBasicType("t", nBits, llvm::dwarf::DW_ATE_signed));
    }

    /// \param nElements 3 takes the room of 4
    const llvm::DILocalVariable* Vector(unsigned int nBits, unsigned int nElements)
    {
        llvm::Metadata* pRange = m_Builder.getOrCreateSubrange(0, nElements);
        llvm::DIType* pElement = m_Builder.createBasicType("t", nBits, llvm::dwarf::DW_ATE_signed);
        return Variable(
            m_Builder.createTypedef(m_Builder.createVectorType(nBits * (nElements == 3 ? 4 : nElements), 0, pElement,
                                                               m_Builder.getOrCreateArray({pRange})),
                                    "vector", m_pFunction->getFile(), 1, m_pFunction->getFile()));
    }

    const llvm::DILocalVariable* Struct(unsigned int nBytes)
    {
        return Variable(m_Builder.createStructType(m_pFunction->getFile(), "s", m_pFunction->getFile(), 1, nBytes * 8,
                                                   0, llvm::DINode::FlagZero, nullptr, {}));
    }

private:
    const llvm::DILocalVariable* Variable(llvm::DIType* pType)
    {
        return m_Builder.createAutoVariable(m_pFunction, "v", m_pFunction->getFile(), ++m_nLine, pType);
    }

    llvm::LLVMContext m_Context;
    llvm::Module m_Module;
    llvm::DIBuilder m_Builder;
    llvm::DISubprogram* m_pFunction = nullptr;
    unsigned int m_nLine = 0;
};

SVariablePlace Place(const llvm::DILocalVariable* pVariable, SVariablePlace::EKind eKind,
                     std::vector<uint32_t> vComponents, uint32_t nOffset = 0)
{
    SVariablePlace place;
    place.pVariable = pVariable;
    place.eKind = eKind;
    place.vComponents = std::move(vComponents);
    place.nOffset = nOffset;
    place.nFirstLine = 10;
    place.nLastLine = 19;
    return place;
}

SVariablePlace Part(SVariablePlace place, uint32_t nOffset, uint32_t nSize, uint32_t nFirst, uint32_t nLast)
{
    place.nByteOffset = nOffset;
    place.nByteSize = nSize;
    place.nFirstLine = nFirst;
    place.nLastLine = nLast;
    return place;
}

/// A description of an expression: "r5", "private 16", "8 bytes" and so on.
std::string Words(const std::string& strExpression)
{
    std::string strWords;
    size_t n = 0;
    const auto Number = [&]
    {
        uint64_t nValue = 0;
        for (int nShift = 0;; nShift += 7)
        {
            const auto nByte = static_cast<unsigned char>(strExpression.at(n++));
            nValue |= static_cast<uint64_t>(nByte & 0x7F) << nShift;
            if (nByte < 0x80)
            {
                return nValue;
            }
        }
    };
    while (n < strExpression.size())
    {
        strWords += strWords.empty() ? "" : " ";
        switch (static_cast<unsigned char>(strExpression[n++]))
        {
        case llvm::dwarf::DW_OP_regx:
            strWords += "r" + std::to_string(Number());
            break;
        case llvm::dwarf::DW_OP_fbreg:
            strWords += "private " + std::to_string(Number());
            break;
        case llvm::dwarf::DW_OP_piece:
            strWords += "piece " + std::to_string(Number());
            break;
        case llvm::dwarf::DW_OP_implicit_value:
        {
            const uint64_t nBytes = Number();
            strWords += "value";
            for (uint64_t i = 0; i < nBytes; ++i)
            {
                strWords += " " + std::to_string(static_cast<unsigned char>(strExpression.at(n++)));
            }
            break;
        }
        default:
            strWords += "?";
            break;
        }
    }
    return strWords;
}

std::string Join(const std::vector<SVariablePlace>& vPlaces)
{
    std::vector<const SVariablePlace*> vPointers;
    for (const SVariablePlace& place : vPlaces)
    {
        vPointers.push_back(&place);
    }
    std::string strText;
    for (const SLocationRange& range : JoinPlaces(vPointers))
    {
        strText += (strText.empty() ? "" : "; ") + std::to_string(range.nFirst) + "-" + std::to_string(range.nEnd) +
                   ": " + Words(range.strExpression);
    }
    return strText;
}

} // namespace

TEST(PlaceExpressions, TellWhereOnePlaceIs)
{
    CVariables variables;
    using Kind = SVariablePlace;
    EXPECT_EQ(Join({Place(variables.Scalar(32), Kind::Register, {5})}), "10-20: r5");
    EXPECT_EQ(Join({Place(variables.Scalar(8), Kind::Register, {5})}), "10-20: r5");
    EXPECT_EQ(Join({Place(variables.Scalar(64), Kind::Register, {8, 9})}), "10-20: r8 piece 4 r9 piece 4");
    EXPECT_EQ(Join({Place(variables.Vector(32, 2), Kind::Register, {300, 301})}), "10-20: r300 piece 4 r301 piece 4");
    EXPECT_EQ(Join({Place(variables.Vector(32, 3), Kind::Register, {0, 1, 2})}),
              "10-20: r0 piece 4 r1 piece 4 r2 piece 4 piece 4");
    EXPECT_EQ(Join({Place(variables.Vector(8, 4), Kind::Register, {0, 1, 2, 3})}),
              "10-20: r0 piece 1 r1 piece 1 r2 piece 1 r3 piece 1");
    EXPECT_EQ(Join({Place(variables.Vector(16, 3), Kind::Register, {4, 5, 6})}),
              "10-20: r4 piece 2 r5 piece 2 r6 piece 2 piece 2");
    EXPECT_EQ(Join({Place(variables.Vector(64, 2), Kind::Register, {4, 5, 6, 7})}),
              "10-20: r4 piece 4 r5 piece 4 r6 piece 4 r7 piece 4");
    EXPECT_EQ(Join({Place(variables.Struct(24), Kind::Private, {}, 160)}), "10-20: private 160");
    EXPECT_EQ(Join({Place(variables.Scalar(32), Kind::ConstantBuffer, {}, 32)}), "10-20: r1048584");
    EXPECT_EQ(Join({Place(variables.Scalar(64), Kind::ConstantBuffer, {}, 16)}),
              "10-20: r1048580 piece 4 r1048581 piece 4");
    EXPECT_EQ(Join({Place(variables.Scalar(16), Kind::Literal, {0x1234})}), "10-20: value 52 18");
    EXPECT_EQ(Join({Place(variables.Scalar(64), Kind::Literal, {1, 2})}),
              "10-20: value 1 0 0 0 piece 4 value 2 0 0 0 piece 4");
}

TEST(PlaceExpressions, JoinPartsByLines)
{
    CVariables variables;
    using Kind = SVariablePlace;
    const auto* pStruct = variables.Struct(12);
    // The second word is known on lines 12 to 15, the first on 10 to 13; the third never.
    EXPECT_EQ(Join({Part(Place(pStruct, Kind::Register, {7}), 4, 4, 12, 15),
                    Part(Place(pStruct, Kind::Register, {3}), 0, 4, 10, 13)}),
              "10-12: r3 piece 4; 12-14: r3 piece 4 r7 piece 4; 14-16: piece 4 r7 piece 4");
    const auto* pScalar = variables.Scalar(32);
    // From place to place with a gap; equal neighbours are merged.
    EXPECT_EQ(Join({Part(Place(pScalar, Kind::Register, {1}), 0, 4, 10, 11),
                    Part(Place(pScalar, Kind::Register, {1}), 0, 4, 12, 14),
                    Part(Place(pScalar, Kind::Private, {}, 8), 0, 4, 17, 17),
                    Part(Place(pScalar, Kind::Register, {2}), 0, 4, 20, 19)}),
              "10-15: r1; 17-18: private 8");
    // A part of one byte in a register of its own.
    EXPECT_EQ(Join({Part(Place(pStruct, Kind::Register, {9}), 8, 1, 10, 19)}), "10-20: piece 8 r9 piece 1");
}
