#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_MACHINECODE_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_MACHINECODE_H

#include "llvm/ADT/ArrayRef.h"
#include "llvm/ADT/DenseMap.h"
#include "llvm/ADT/SmallVector.h"
#include "llvm/ADT/StringMap.h"

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace llvm
{
class DILocation;
} // namespace llvm

namespace KestrelOpenCL
{

const unsigned s_nComponents = 4; ///< of a register

/// One 32-bit word of a value: a component of a virtual register, a constant, or a component of a fixed register (an
/// id, or an argument in a constant buffer).
struct SWord
{
    enum EKind : uint8_t
    {
        Undefined, ///< any value will do
        Register,  ///< component nComponent of virtual register nId
        Literal,   ///< the bits nId
        Fixed      ///< component nComponent of the register with the name nId
    };

    EKind eKind = Undefined;
    uint8_t nComponent = 0;
    uint32_t nId = 0;

    bool IsLiteral(uint32_t nBits) const { return eKind == Literal && nId == nBits; }
    bool operator==(const SWord& o) const
    {
        return eKind == o.eKind && nId == o.nId && (nComponent == o.nComponent || eKind == Literal);
    }
    bool operator!=(const SWord& o) const { return !(*this == o); }
};

inline SWord LiteralWord(uint32_t nBits)
{
    return {SWord::Literal, 0, nBits};
}

typedef llvm::SmallVector<SWord, 4> Words;

const uint32_t s_nNoRegister = 0xFFFFFFFFu;

/// How the words of a source are ordered in the operand's swizzle.
enum class EArrange : uint8_t
{
    ByDestination, ///< word n belongs to component n of the destination register
    InOrder,       ///< word n stands at position n, wherever the destination is
};

/// A source operand. Its words are of one register, constants, or undefined.
struct SSource
{
    std::array<SWord, 4> words = {};
    EArrange eArrange = EArrange::ByDestination;
    /// For `cb2[r1.x]`: the index of a Fixed word's register.
    SWord index;
    uint32_t nImmediate = 0; ///< added to the index
};

/// One instruction over virtual registers.
struct SInstruction
{
    static const unsigned s_nMaxSources = 4;

    uint32_t nMnemonic = 0;
    uint32_t nDestination = s_nNoRegister; ///< virtual register
    uint8_t nMask = 0;                     ///< components of the destination, or words that a store writes
    bool bMemory = false;                  ///< the destination is `mem0` with this mask
    bool bKeep = false;                    ///< has effects besides writing its destination
    bool bPairs = false;                   ///< components are written in pairs
    bool bMove = false;
    bool bLoad = false;    ///< loads consecutive words: the mask may only lose words at its end
    bool bWhole = false;   ///< writes all of its mask or nothing
    bool bControl = false; ///< control flow within one block
    /// The name of the array whose register is the destination, 0 for none. If the register depends on an index, the
    /// second source's index is used.
    uint32_t nArray = 0;
    uint8_t nSources = 0;
    SSource sources[s_nMaxSources];
    const llvm::DILocation* pLocation = nullptr;
};

/// The copies into the phis of a block on one edge of the flow graph. They happen at the same time.
struct SEdge
{
    unsigned nFrom = 0;
    unsigned nTo = 0;
    Words to; ///< registers
    Words from;
    const llvm::DILocation* pLocation = nullptr;
};

/// What the branch at the end of a block tests: it is taken if the word isn't 0, or with bInvert if it is 0. For a
/// switch, the value itself.
struct SCondition
{
    SWord word;
    bool bInvert = false;
    const llvm::DILocation* pLocation = nullptr;
};

struct SVirtualRegister
{
    uint8_t nComponents = 1;
    bool bPinned = false;    ///< keeps its place throughout the function
    int nDefiningBlock = -1; ///< block that defines it, by instructions or as its phi
    bool bPhi = false;
};

/// The instructions of one kernel, over virtual registers of up to four components. Blocks are numbered from 0; the
/// flow between them is kept by the caller.
class CMachine
{
public:
    CMachine() { Name(""); }

    uint32_t NewRegister(unsigned nComponents);
    /// New registers for a value of this many words, four words in each.
    Words NewWords(unsigned nCount);

    void SetBlock(unsigned nBlock);
    unsigned GetBlock() const { return m_nBlock; }
    void SetLocation(const llvm::DILocation* pLocation) { m_pLocation = pLocation; }
    const llvm::DILocation* GetLocation() const { return m_pLocation; }

    uint32_t Name(llvm::StringRef text);
    const std::string& GetName(uint32_t nName) const { return m_vNames[nName]; }
    SWord FixedWord(llvm::StringRef name, unsigned nComponent);

    /// One operation for each word; a source has nCount words, or one that serves all.
    Words Each(llvm::StringRef mnemonic, unsigned nCount, std::initializer_list<llvm::ArrayRef<SWord>> sources);
    SWord One(llvm::StringRef mnemonic, std::initializer_list<SWord> sources);
    /// One operation for each pair; a source has two words for each pair, or one.
    Words Pairs(llvm::StringRef mnemonic, unsigned nPairs, std::initializer_list<llvm::ArrayRef<SWord>> sources);
    SWord FromPair(llvm::StringRef mnemonic, llvm::ArrayRef<SWord> pair);
    Words ToPair(llvm::StringRef mnemonic, SWord word);

    /// The words in one register, in order, for instructions that need this. Copies them unless they are so already.
    Words Gather(llvm::ArrayRef<SWord> words);
    void Move(llvm::ArrayRef<SWord> to, llvm::ArrayRef<SWord> from);
    /// Writes those components of an array's register that aren't undefined. With a literal index the name is the
    /// register's; else it is the array's, and index and distance are added to it.
    void MoveToArray(uint32_t nArray, SWord index, uint32_t nDistance, const std::array<SWord, s_nComponents>& values);

    /// Keeps the word's register from being reused before this point.
    void Hold(SWord word);
    bool IsHold(const SInstruction& instruction) const { return instruction.nMnemonic == s_nHold; }

    SInstruction Make(llvm::StringRef mnemonic) const;
    void Add(SInstruction instruction);
    static SSource Source(llvm::ArrayRef<SWord> words, EArrange eArrange = EArrange::InOrder);

    std::vector<SVirtualRegister>& Registers() { return m_vRegisters; }
    const std::vector<SVirtualRegister>& Registers() const { return m_vRegisters; }
    std::vector<std::vector<SInstruction>>& Blocks() { return m_vBlocks; }
    const std::vector<std::vector<SInstruction>>& Blocks() const { return m_vBlocks; }
    bool IsMove(const SInstruction& instruction) const { return instruction.bMove; }

private:
    static const uint32_t s_nHold = 0; ///< the first name, which is empty

    void EmitGroups(llvm::StringRef mnemonic, uint32_t nRegister, unsigned nComponents, unsigned nUnit,
                    llvm::ArrayRef<std::array<SWord, 4>> sources);
    SInstruction MakeMove(const std::array<SWord, s_nComponents>& sources, unsigned& nLeft) const;
    bool Fold(llvm::StringRef mnemonic, llvm::ArrayRef<SWord> sources, SWord& result) const;

    std::vector<SVirtualRegister> m_vRegisters;
    std::vector<std::vector<SInstruction>> m_vBlocks;
    std::vector<std::string> m_vNames;
    mutable llvm::StringMap<uint32_t> m_mapNames;
    unsigned m_nBlock = 0;
    const llvm::DILocation* m_pLocation = nullptr;
};

/// A kernel after selection, before allocation and writing.
struct SKernelCode
{
    CMachine machine;
    std::vector<SCondition> vConditions;                       ///< by block
    std::vector<SEdge> vEdges;                                 ///< those with copies
    std::vector<llvm::SmallVector<unsigned, 4>> vPredecessors; ///< by block
};

} // namespace KestrelOpenCL

#endif
