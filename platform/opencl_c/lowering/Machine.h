#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_MACHINE_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_MACHINE_H

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

/// One 32-bit word of a value: a component of a virtual register, a constant, or a component of a register that is
/// given from outside (an id, an argument in a constant buffer).
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

/// How the words of a source stand in the operand's swizzle.
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
    /// For `cb2[r1.x]`: the register of Fixed words takes this index.
    SWord index;
    uint32_t nImmediate = 0; ///< what is added to the index
};

/// One instruction over virtual registers.
struct SInstruction
{
    static const unsigned s_nMaxSources = 4;

    uint32_t nMnemonic = 0;
    uint32_t nDestination = s_nNoRegister; ///< virtual register
    uint8_t nMask = 0;                     ///< components of the destination, or words that a store writes
    bool bMemory = false;                  ///< the destination is `mem0` with the mask
    bool bKeep = false;                    ///< does more than write its destination
    bool bPairs = false;                   ///< written components belong together in twos
    bool bMove = false;
    bool bLoad = false;    ///< takes consecutive words: from the mask only the last ones may go
    bool bWhole = false;   ///< writes all of its mask or nothing
    bool bControl = false; ///< part of the flow of control inside of one block
    /// The name of an array of which one register is the destination, 0 for none. If it is found by an index, that of
    /// the second source is it.
    uint32_t nArray = 0;
    uint8_t nSources = 0;
    SSource sources[s_nMaxSources];
    const llvm::DILocation* pLocation = nullptr;
};

/// The copies into the phis of a block that happen together on an edge of the flow graph.
struct SEdge
{
    unsigned nFrom = 0;
    unsigned nTo = 0;
    Words to; ///< registers
    Words from;
    const llvm::DILocation* pLocation = nullptr;
};

/// What the branch at the end of a block looks at: it is taken if the word isn't 0, or is 0 if bInvert. Of a switch the
/// value itself.
struct SCondition
{
    SWord word;
    bool bInvert = false;
    const llvm::DILocation* pLocation = nullptr;
};

struct SVirtualRegister
{
    uint8_t nComponents = 1;
    bool bPinned = false;    ///< keeps its place for the whole function
    int nDefiningBlock = -1; ///< block with its instructions, or whose phi it is
    bool bPhi = false;
};

/// The instructions of one kernel over virtual registers of up to four components. Blocks are numbered from 0; what
/// connects them is the caller's knowledge.
class CMachine
{
public:
    CMachine() { Name(""); }

    uint32_t NewRegister(unsigned nComponents);
    /// Registers for a value of so many words, four words each.
    Words NewWords(unsigned nCount);

    void SetBlock(unsigned nBlock);
    unsigned GetBlock() const { return m_nBlock; }
    void SetLocation(const llvm::DILocation* pLocation) { m_pLocation = pLocation; }
    const llvm::DILocation* GetLocation() const { return m_pLocation; }

    uint32_t Name(llvm::StringRef text);
    const std::string& GetName(uint32_t nName) const { return m_vNames[nName]; }
    SWord FixedWord(llvm::StringRef name, unsigned nComponent);

    /// Word by word: each source has nCount words, or one for all.
    Words Each(llvm::StringRef mnemonic, unsigned nCount, std::initializer_list<llvm::ArrayRef<SWord>> sources);
    SWord One(llvm::StringRef mnemonic, std::initializer_list<SWord> sources);
    /// On pairs: each source has two words a pair, or one.
    Words Pairs(llvm::StringRef mnemonic, unsigned nPairs, std::initializer_list<llvm::ArrayRef<SWord>> sources);
    SWord FromPair(llvm::StringRef mnemonic, llvm::ArrayRef<SWord> pair);
    Words ToPair(llvm::StringRef mnemonic, SWord word);

    /// The words in one register, in order, for instructions that take them so; copies them if they aren't.
    Words Gather(llvm::ArrayRef<SWord> words);
    void Move(llvm::ArrayRef<SWord> to, llvm::ArrayRef<SWord> from);
    /// Writes the components of an array's register that aren't undefined. The name is that of the array and takes the
    /// index and the distance, or if the index is a literal, that of the register.
    void MoveToArray(uint32_t nArray, SWord index, uint32_t nDistance, const std::array<SWord, s_nComponents>& values);

    /// Keeps a word's register from being given to others before this point.
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

/// A kernel between the two halves of the compiler.
struct SKernelCode
{
    CMachine machine;
    std::vector<SCondition> vConditions;                       ///< by block
    std::vector<SEdge> vEdges;                                 ///< those with copies
    std::vector<llvm::SmallVector<unsigned, 4>> vPredecessors; ///< by block
};

} // namespace KestrelOpenCL

#endif
