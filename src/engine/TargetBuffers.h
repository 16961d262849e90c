#ifndef KESTREL_ENGINE_TARGETBUFFERS_H
#define KESTREL_ENGINE_TARGETBUFFERS_H

#include "core/ShaderDebuggerCommon.h"

#include <cstddef>
#include <map>
#include <memory>
#include <vector>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerBuffer;
class CShaderDebuggerDeviceBuffer;
class CShaderDebuggerHost;

/// The memory that a session's runs work on: for each argument of memory its contents when the session began and a
/// working copy, and the output buffers that patched kernels have besides. The client's own memory gets what the last
/// run has left when the session ends, and isn't touched before.
class CTargetBuffers
{
public:
    /// \param pHost  gives the arguments and makes the buffers; must outlive this object
    explicit CTargetBuffers(CShaderDebuggerHost* pHost);
    ~CTargetBuffers();
    CTargetBuffers(const CTargetBuffers&) = delete;
    CTargetBuffers& operator=(const CTargetBuffers&) = delete;

    /// Saves the arguments of the client's kernel, and makes working copies and output buffers.
    /// \param dispatch   as the host describes it: outputs have an element for each of its work-items
    /// \param bOnDemand  the output buffers are made when a run first needs them, and the mask has a byte for each
    ///                   work-item, not a word
    /// \return false if something can't be read or made
    bool Create(const BufferDesc& dispatch, bool bOnDemand);
    /// Releases all buffers; the client's memory stays as it is.
    void Clear();

    // The arguments of a run, bound on fresh working copies.
    /// \param bValues      whether the kernel stores values besides the mask
    /// \param bMissStores  whether work-items may not come to the stores: then what an earlier run wrote is cleared
    bool Switch(bool bValues, bool bMissStores);
    /// For a run that is made for memory: the stop's values stay in the output buffers.
    /// \param pLocal  bound in place of the results, for local memory; null for none
    bool SwitchForMemory(CShaderDebuggerDeviceBuffer* pLocal);
    /// For a run of the kernel as it is, which has no other arguments than its own.
    bool SwitchPlain();
    /// Binds the selector: which register of the patched kernel's list the next run copies.
    bool SetSelector(unsigned int nSelector);
    /// Binds another buffer in place of the results, or of the mask.
    bool BindInPlaceOfResults(CShaderDebuggerDeviceBuffer* pBuffer);
    bool BindInPlaceOfMask(CShaderDebuggerDeviceBuffer* pBuffer);

    /// Arguments of the client's kernel.
    size_t CountArguments() const { return m_vpArguments.size(); }
    /// The bytes of local memory that an argument has; 0 for arguments of another kind.
    unsigned int GetLocalArgumentSize(size_t nArgument) const;
    /// The working copy of an argument, and its contents when the session began; null for arguments that aren't memory.
    CShaderDebuggerDeviceBuffer* GetWorkingCopy(size_t nArgument) const { return m_vpWorkingCopies[nArgument].get(); }
    const CShaderDebuggerBuffer* GetSaved(size_t nArgument) const { return m_vpSaved[nArgument].get(); }
    /// A number for each working copy that stands for its contents. Empty if one can't be read, and without any.
    std::vector<size_t> HashWorkingCopies() const;

    /// The output buffers; null before a run has needed them.
    CShaderDebuggerDeviceBuffer* GetValues() const { return m_pValues.get(); }
    CShaderDebuggerDeviceBuffer* GetMask() const { return m_pMask.get(); }
    void DropValues();
    /// New host copies of them, with a word for each work-item in the mask. Null if there is no buffer, or it can't be
    /// read.
    std::unique_ptr<CShaderDebuggerBuffer> ReadValues() const;
    std::unique_ptr<CShaderDebuggerBuffer> ReadMask() const;
    /// One element a work-item, with all slices of the dispatch in one: a register's four components, and a word for
    /// whether the work-item was active.
    const BufferDesc& GetValuesDesc() const { return m_ValuesDesc; }
    const BufferDesc& GetMaskDesc() const { return m_MaskDesc; }
    /// Whether the mask's buffer has a byte for each work-item.
    bool HasByteMask() const { return m_bByteMask; }

    /// Gives the client's memory what it held when the session began.
    bool RestoreArguments();
    /// Gives the client's memory what the last run left in the working copies: all of it or nothing, so that the launch
    /// can still be made.
    bool WriteBack();

private:
    typedef std::vector<std::unique_ptr<CShaderDebuggerDeviceBuffer>> DeviceBuffers;
    typedef std::map<size_t, std::unique_ptr<CShaderDebuggerBuffer>> Contents;

    void DescribeOutputs(BufferDesc desc);
    bool BringValues();
    bool BringMask();
    bool SaveArguments();
    bool CreateWorkingCopies();
    bool ReloadWorkingCopies();
    bool BindOwnArguments();
    bool BindArguments(CShaderDebuggerDeviceBuffer& results);
    bool Bind(size_t nArgument, CShaderDebuggerDeviceBuffer* pBuffer);
    CShaderDebuggerDeviceBuffer& GetResultsArgument() const;
    CShaderDebuggerBuffer* ReadByteMask() const;
    bool ReadOutputs(Contents& outputs) const;

    CShaderDebuggerHost* m_pHost;
    DeviceBuffers m_vpArguments; ///< the kernel's own arguments, by index
    /// The contents of the memory arguments at the start of the session, from which every run starts. Null for values
    /// and local memory, as in the next.
    std::vector<std::unique_ptr<CShaderDebuggerBuffer>> m_vpSaved;
    DeviceBuffers m_vpWorkingCopies;
    std::unique_ptr<CShaderDebuggerDeviceBuffer> m_pValues;
    std::unique_ptr<CShaderDebuggerDeviceBuffer> m_pMask;
    BufferDesc m_ValuesDesc;
    BufferDesc m_MaskDesc;
    bool m_bByteMask = false;
};

} // namespace OVK_ShaderDebugger

#endif
