#include "platform/opencl_c/dwarf/LineTable.h"

#include "platform/opencl_c/dwarf/ByteWriter.h"
#include "platform/opencl_c/lowering/Lowered.h"

#include "llvm/BinaryFormat/Dwarf.h"
#include "llvm/IR/DebugInfoMetadata.h"
#include "llvm/IR/Function.h"

namespace KestrelOpenCL
{

using namespace llvm::dwarf;

namespace
{

// Special opcodes advance the line by -5 to 8 and the address by 0 to 17.
const int s_nLineBase = -5;
const int s_nLineRange = 14;
const int s_nOpcodeBase = 13;
const uint8_t s_nOperands[s_nOpcodeBase - 1] = {0, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0, 1};

struct SRow
{
    unsigned int nFile = 1;
    unsigned int nLine = 1;
    unsigned int nColumn = 0;
};

class CLineProgram
{
public:
    void Begin(uint64_t nAddress)
    {
        m_Writer.U8(0);
        m_Writer.Unsigned(9);
        m_Writer.U8(DW_LNE_set_address);
        m_Writer.U64(nAddress);
        m_nAddress = nAddress;
        m_Row = {};
    }

    void Row(uint64_t nAddress, const SRow& row, bool bPrologueEnd)
    {
        if (row.nFile != m_Row.nFile)
        {
            m_Writer.U8(DW_LNS_set_file);
            m_Writer.Unsigned(row.nFile);
        }
        if (row.nColumn != m_Row.nColumn)
        {
            m_Writer.U8(DW_LNS_set_column);
            m_Writer.Unsigned(row.nColumn);
        }
        if (bPrologueEnd)
        {
            m_Writer.U8(DW_LNS_set_prologue_end);
        }
        int64_t nLines = static_cast<int64_t>(row.nLine) - m_Row.nLine;
        uint64_t nAddresses = nAddress - m_nAddress;
        if (nLines < s_nLineBase || nLines >= s_nLineBase + s_nLineRange)
        {
            m_Writer.U8(DW_LNS_advance_line);
            m_Writer.Signed(nLines);
            nLines = 0;
        }
        const auto nLinePart = static_cast<uint64_t>(nLines - s_nLineBase);
        const uint64_t nMostAddresses = (255 - s_nOpcodeBase - nLinePart) / s_nLineRange;
        if (nAddresses > nMostAddresses)
        {
            Advance(nAddresses);
            nAddresses = 0;
        }
        m_Writer.U8(s_nOpcodeBase + nLinePart + nAddresses * s_nLineRange);
        m_nAddress = nAddress;
        m_Row = row;
    }

    void End(uint64_t nAddress)
    {
        Advance(nAddress - m_nAddress);
        m_Writer.U8(0);
        m_Writer.Unsigned(1);
        m_Writer.U8(DW_LNE_end_sequence);
    }

    const std::string& Data() const { return m_Writer.Data(); }

private:
    void Advance(uint64_t nAddresses)
    {
        m_Writer.U8(DW_LNS_advance_pc);
        m_Writer.Unsigned(nAddresses);
    }

    CByteWriter m_Writer;
    SRow m_Row;
    uint64_t m_nAddress = 0;
};

void WriteKernel(const SLowered& lowered, const SLoweredKernel& kernel, CFileTable& files, CLineProgram& program)
{
    const llvm::DISubprogram* pSubprogram = kernel.pFunction->getSubprogram();
    if (!pSubprogram)
    {
        return;
    }
    SRow last{files.Number(*pSubprogram->getFile()), pSubprogram->getScopeLine(), 0};
    program.Begin(kernel.nFirst);
    program.Row(kernel.nFirst, last, false);
    bool bPrologue = true;
    for (uint32_t n = kernel.nFirst; n <= kernel.nLast && n < lowered.vLines.size(); ++n)
    {
        const llvm::DILocation* pPlace = lowered.vLines[n];
        if (!pPlace || pPlace->getLine() == 0)
        {
            continue;
        }
        const SRow row{files.Number(*pPlace->getFile()), pPlace->getLine(), pPlace->getColumn()};
        if (bPrologue || row.nFile != last.nFile || row.nLine != last.nLine || row.nColumn != last.nColumn)
        {
            program.Row(n, row, bPrologue);
            bPrologue = false;
            last = row;
        }
    }
    program.End(uint64_t{kernel.nLast} + 1);
}

} // namespace

std::string WriteLineTable(const SLowered& lowered, CFileTable& files)
{
    CLineProgram program;
    for (const SLoweredKernel& kernel : lowered.vKernels)
    {
        WriteKernel(lowered, kernel, files, program);
    }
    CByteWriter writer;
    writer.U32(0); // the length, known at the end
    writer.U16(4);
    writer.U32(0); // the header's length, too
    const size_t nHeader = writer.Size();
    writer.U8(1); // minimum instruction length
    writer.U8(1); // operations per instruction
    writer.U8(1); // each row begins a statement
    writer.U8(static_cast<uint8_t>(s_nLineBase));
    writer.U8(s_nLineRange);
    writer.U8(s_nOpcodeBase);
    for (const uint8_t nOperands : s_nOperands)
    {
        writer.U8(nOperands);
    }
    files.WriteNames(writer);
    writer.PatchU32(nHeader - 4, writer.Size() - nHeader);
    writer.Bytes(program.Data());
    writer.PatchU32(0, writer.Size() - 4);
    return writer.Data();
}

} // namespace KestrelOpenCL
