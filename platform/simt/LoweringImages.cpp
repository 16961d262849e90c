#include "platform/simt/Lowering.h"

namespace KestrelPlatform
{

namespace
{

const uint32_t s_nTypeBuffer = 8; ///< in the declaration of a resource or typed UAV

/// Shape of an image instruction: which sources follow the coordinates.
struct SImageRow
{
    ILOpCode eOpCode;
    SImageAccess::EOperation eOperation;
    uint32_t nOffset;    ///< source with the texel offsets of a gather, 0 for none
    uint32_t nReference; ///< source with the value to compare with, 0 for none
};

const SImageRow s_ImageRows[] = {
    {IL_OP_LOAD, SImageAccess::LoadTexel, 0, 0},
    {IL_OP_RESINFO, SImageAccess::Info, 0, 0},
    {IL_OP_BUFINFO, SImageAccess::Info, 0, 0},
    {IL_OP_UAV_LOAD, SImageAccess::UavLoad, 0, 0},
    {IL_OP_UAV_LOAD_MIP, SImageAccess::UavLoad, 0, 0},
    {IL_OP_UAV_STORE, SImageAccess::UavStore, 0, 0},
    {IL_OP_UAV_STORE_MASK, SImageAccess::UavStore, 0, 0},
    {IL_OP_UAV_STORE_MIP, SImageAccess::UavStore, 0, 0},
    {IL_OP_SAMPLE, SImageAccess::Sample, 0, 0},
    {IL_OP_SAMPLE_B, SImageAccess::Sample, 0, 0},
    {IL_OP_SAMPLE_G, SImageAccess::Sample, 0, 0},
    {IL_OP_SAMPLE_L, SImageAccess::Sample, 0, 0},
    {IL_OP_SAMPLE_C, SImageAccess::Sample, 0, 1},
    {IL_OP_SAMPLE_C_LZ, SImageAccess::Sample, 0, 1},
    {IL_OP_SAMPLE_C_L, SImageAccess::Sample, 0, 1},
    {IL_OP_SAMPLE_C_G, SImageAccess::Sample, 0, 1},
    {IL_OP_SAMPLE_C_B, SImageAccess::Sample, 0, 1},
    {IL_OP_FETCH4, SImageAccess::Gather, 0, 0},
    {IL_OP_FETCH4_B, SImageAccess::Gather, 0, 0},
    {IL_OP_FETCH4_L, SImageAccess::Gather, 0, 0},
    {IL_OP_FETCH4_C, SImageAccess::Gather, 0, 1},
    {IL_OP_FETCH4_C_LZ, SImageAccess::Gather, 0, 1},
    {IL_OP_FETCH4_PO, SImageAccess::Gather, 1, 0},
    {IL_OP_FETCH4_PO_B, SImageAccess::Gather, 1, 0},
    {IL_OP_FETCH4_PO_L, SImageAccess::Gather, 1, 0},
    {IL_OP_FETCH4_PO_C, SImageAccess::Gather, 1, 2},
    {IL_OP_FETCH4_PO_C_LZ, SImageAccess::Gather, 1, 2},
};

const SImageRow* FindImageRow(ILOpCode eOpCode)
{
    for (const SImageRow& row : s_ImageRows)
    {
        if (row.eOpCode == eOpCode)
        {
            return &row;
        }
    }
    return nullptr;
}

bool IsUav(SImageAccess::EOperation eOperation)
{
    return eOperation == SImageAccess::UavLoad || eOperation == SImageAccess::UavStore;
}

bool IsSampled(SImageAccess::EOperation eOperation)
{
    return eOperation == SImageAccess::Sample || eOperation == SImageAccess::Gather;
}

uint32_t Bind(std::pmr::map<uint32_t, uint32_t>& map, std::vector<uint32_t>& vNumbers, uint32_t nNumber)
{
    const auto inserted = map.emplace(nNumber, static_cast<uint32_t>(vNumbers.size()));
    if (inserted.second)
    {
        vNumbers.push_back(nNumber);
    }
    return inserted.first->second;
}

} // namespace

void CLowering::DeclareTypedUav(const SItem& item)
{
    m_mapTypedBuffers[item.UavId()] = m_Stream.Word(item, 0) == s_nTypeBuffer;
}

/// Images here have one level and one sample, and are always resident: queries other than sizes have fixed answers.
bool CLowering::LowerFixedAnswer()
{
    const uint32_t nFirst = m_pItem->eOpCode == IL_OP_SAMPLEINFO ? ConstantRow(1) : s_nZeroRow;
    const uint32_t nRows[] = {nFirst, s_nZeroRow, s_nZeroRow, s_nZeroRow};
    return WriteRows(T::U, nRows);
}

void CLowering::BindImage(SImageAccess& image)
{
    if (IsUav(image.eOperation))
    {
        image.nResource = m_pItem->UavId();
        image.nBinding = Bind(m_mapUavs, m_Code.vUavs, image.nResource);
        return;
    }
    image.nResource = (m_pItem->nToken >> 16) & 0xFF;
    image.nBinding = Bind(m_mapResources, m_Code.vResources, image.nResource);
    const auto it = m_mapUnnormalized.find(image.nResource);
    image.bUnnormalized = it != m_mapUnnormalized.end() && it->second;
    image.nSampler = (m_pItem->nToken >> 24) & 0xF;
    if (IsSampled(image.eOperation))
    {
        image.nSamplerSlot = Bind(m_mapSamplers, m_Code.vSamplers, image.nSampler);
    }
}

/// The alternative if the launch binds no image to a UAV that is declared as a typed buffer: the address is flat, and
/// an element has four words.
void CLowering::AddFlatAccesses(SImageAccess& image)
{
    const auto it = m_mapTypedBuffers.find(image.nResource);
    if (!IsUav(image.eOperation) || it == m_mapTypedBuffers.end() || !it->second)
    {
        return;
    }
    SAccess access;
    access.eOperation = image.eOperation == SImageAccess::UavStore ? SAccess::Store : SAccess::Load;
    access.b64BitAddress = ((m_pItem->nToken >> 29) & 1) != 0;
    const uint32_t nAddress[] = {image.nCoordinates[0], access.b64BitAddress ? image.nCoordinates[1] : s_nZeroRow};
    std::vector<SAccess> vAccesses;
    for (uint32_t n = 0; n < 4; ++n)
    {
        if ((image.nMask & (1u << n)) == 0)
        {
            continue;
        }
        // Components are separate words in memory: the mask may leave out some in between.
        SLaneRows rows;
        rows.d[0] = ToRow(Scratch());
        rows.d[1] = ToRow(Scratch());
        rows.s[0] = ToRow(nAddress[0]);
        rows.s[1] = ToRow(nAddress[1]);
        rows.s[2] = ToRow(ConstantRow(n * 4));
        rows.s[3] = s_nZeroRow;
        EmitLane(LANE_IL_OP_I64_ADD, rows);
        access.nAddressRows[0] = rows.d[0];
        access.nAddressRows[1] = access.b64BitAddress ? rows.d[1] : s_nZeroRow;
        access.nRows[0] = image.nRows[n];
        vAccesses.push_back(access);
    }
    image.nFirstFlatAccess = static_cast<uint32_t>(m_Code.vAccesses.size());
    image.nFlatAccesses = static_cast<uint32_t>(vAccesses.size());
    m_Code.vAccesses.insert(m_Code.vAccesses.end(), vAccesses.begin(), vAccesses.end());
}

void CLowering::EmitImage(SImageAccess& image)
{
    AddFlatAccesses(image);
    SMicroOp step;
    step.eKind = MICRO_IMAGE;
    step.nInstruction = m_nInstruction;
    step.nAux = static_cast<uint32_t>(m_Code.vImages.size());
    m_Code.vImages.push_back(image);
    m_Code.vSteps.push_back(step);
}

bool CLowering::LowerImage()
{
    const SImageRow* const pRow = FindImageRow(m_pItem->eOpCode);
    if (!pRow)
    {
        return LowerFixedAnswer();
    }
    SImageAccess image;
    image.eOperation = pRow->eOperation;
    BindImage(image);
    const T eCoordinates = IsSampled(image.eOperation) ? T::F : T::U;
    for (uint32_t n = 0; n < 4 && m_pItem->nSources > 0; ++n)
    {
        image.nCoordinates[n] = Source(Operand(0), n, eCoordinates);
    }
    for (uint32_t n = 0; n < 2 && pRow->nOffset; ++n)
    {
        image.nOffsets[n] = Source(Operand(pRow->nOffset), n, T::U);
    }
    image.bCompare = pRow->nReference != 0;
    if (image.bCompare)
    {
        image.nReference = Source(Operand(pRow->nReference), 0, T::F);
    }
    if (image.eOperation == SImageAccess::Gather)
    {
        image.nComponent = m_pItem->nModifier & 3;
    }
    if (image.eOperation == SImageAccess::UavStore)
    {
        if (m_pItem->eOpCode == IL_OP_UAV_STORE_MASK)
        {
            image.nMask = (Writes(0) ? 1u : 0) | (Writes(1) ? 2u : 0) | (Writes(2) ? 4u : 0) | (Writes(3) ? 8u : 0);
        }
        for (uint32_t n = 0; n < 4; ++n)
        {
            image.nRows[n] = Source(Operand(m_pItem->nSources - 1), n, T::U);
        }
        EmitImage(image);
        return !m_bFailed;
    }
    // The result goes through scratch rows, as its components may overwrite the coordinates.
    for (uint32_t& nRow : image.nRows)
    {
        nRow = Scratch();
    }
    EmitImage(image);
    return WriteRows(T::U, image.nRows);
}

} // namespace KestrelPlatform
