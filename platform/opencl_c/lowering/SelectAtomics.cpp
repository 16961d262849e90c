#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"

namespace KestrelOpenCL
{
namespace
{

using llvm::AtomicRMWInst;

struct SAtomicRow
{
    AtomicRMWInst::BinOp eOperation;
    const char* pszName; ///< follows `uav_`, `uav_read_`, `lds_`, `lds_read_`
};

const SAtomicRow s_AtomicRows[] = {
    {AtomicRMWInst::Add, "add"},   {AtomicRMWInst::Sub, "sub"},   {AtomicRMWInst::And, "and"},
    {AtomicRMWInst::Or, "or"},     {AtomicRMWInst::Xor, "xor"},   {AtomicRMWInst::Max, "max"},
    {AtomicRMWInst::Min, "min"},   {AtomicRMWInst::UMax, "umax"}, {AtomicRMWInst::UMin, "umin"},
    {AtomicRMWInst::Xchg, "xchg"},
};

} // namespace

SWord CSelector::EmitAtomic(const SPlace& place, const char* pszOperation, llvm::ArrayRef<SWord> values, bool bResult)
{
    const std::string strUav = std::string(bResult ? "uav_read_" : "uav_") + pszOperation;
    const std::string strLocal = std::string(bResult ? "lds_read_" : "lds_") + pszOperation;
    SInstruction atomic = m_Machine.Make(Mnemonic(place, strUav.c_str(), strLocal.c_str()));
    atomic.bKeep = true;
    atomic.sources[atomic.nSources++] = CMachine::Source(m_Machine.Gather(place.address));
    for (const SWord& value : values)
    {
        atomic.sources[atomic.nSources++] = CMachine::Source({value});
    }
    if (bResult)
    {
        atomic.nDestination = m_Machine.NewRegister(1);
        atomic.nMask = 1;
    }
    m_Machine.Add(atomic);
    return {SWord::Register, 0, atomic.nDestination};
}

/// Private memory belongs to one work-item, so a load and a store are enough there.
void CSelector::SelectAtomic(const AtomicRMWInst& atomic)
{
    const SPlace place = GetPlace(atomic.getPointerOperand());
    const auto it =
        llvm::find_if(s_AtomicRows, [&](const SAtomicRow& row) { return row.eOperation == atomic.getOperation(); });
    if (it == std::end(s_AtomicRows) || m_Types.CountWords(atomic.getType()) != 1 || m_Types.IsNarrow(atomic.getType()))
    {
        Fail(&atomic, "an atomic operation that the device hasn't");
        return;
    }
    if (place.nSpace == SpacePrivate || place.bInline)
    {
        Fail(&atomic, "an atomic operation on private or constant memory");
        return;
    }
    // The instruction for an exchange always has a result.
    const bool bResult = !atomic.use_empty() || atomic.getOperation() == AtomicRMWInst::Xchg;
    const SWord old = EmitAtomic(place, it->pszName, {GetWord(atomic.getValOperand())}, bResult);
    if (bResult)
    {
        Set(atomic, {old});
    }
}

void CSelector::SelectCompareExchange(const llvm::AtomicCmpXchgInst& exchange)
{
    const SPlace place = GetPlace(exchange.getPointerOperand());
    if (m_Types.CountWords(exchange.getNewValOperand()->getType()) != 1 || place.nSpace == SpacePrivate ||
        place.bInline)
    {
        Fail(&exchange, "an atomic comparison of other than 32 bits, or on private memory");
        return;
    }
    const SWord expected = GetWord(exchange.getCompareOperand());
    const SWord old = EmitAtomic(place, "cmp_xchg", {expected, GetWord(exchange.getNewValOperand())}, true);
    Set(exchange, {old, m_Machine.One("ieq", {old, expected})});
}

} // namespace KestrelOpenCL
