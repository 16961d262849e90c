#ifndef KESTREL_TOOLS_DAP_VALUES_H
#define KESTREL_TOOLS_DAP_VALUES_H

#include "tools/session/debug/Debugger.h"
#include "tools/session/debug/SourceValue.h"

#include <nlohmann/json_fwd.hpp>

namespace KestrelTool
{

/// The scopes and variables of a stop, as a client walks through them. A variable shows the value of the work-item in
/// focus; those of all work-items are a child of it that is fetched by pages.
class CValues
{
public:
    /// What a client wants of a variable's children.
    struct SPage
    {
        bool bNamed = true;
        bool bIndexed = true;
        size_t nStart = 0;
        size_t nCount = 0; ///< 0 for all
        EFormat eFormat = EFormat::Auto;
    };

    nlohmann::json ListScopes(CDebugger& debugger, size_t nFrame);
    /// \throws CRequestError for a reference that isn't of this stop; CCommandError
    nlohmann::json List(CDebugger& debugger, int64_t nReference, const SPage& page);
    /// An expression in a frame, as an answer's body. \throws CCommandError
    nlohmann::json Evaluate(CDebugger& debugger, size_t nFrame, const std::string& strText, EFormat eFormat);
    /// The expression that a variable of a list stands for. \throws CRequestError if it stands for none
    std::string NamePath(CDebugger& debugger, int64_t nReference, const std::string& strName);
    /// The references are of no stop any more.
    void Forget();

private:
    enum EKind
    {
        Locals,
        Arguments,
        Item,
        Registers,
        LocalMemory,
        Value,
        AllItems,
        Elements ///< of memory that has a name
    };

    struct SHandle
    {
        EKind eKind = Locals;
        size_t nFrame = 0;
        std::string strPath;               ///< the expression; empty for what has none
        SSourceValue value;                ///< without a type for what isn't of the source
        std::shared_ptr<const void> pKept; ///< whose types the value has
        size_t nCount = 0;                 ///< of indexed children
    };

    const SHandle& Find(int64_t nReference) const;
    int64_t Keep(SHandle handle);
    nlohmann::json MakeVariable(CDebugger& debugger, const std::string& strName, SHandle handle, EFormat eFormat);
    nlohmann::json ListVariables(CDebugger& debugger, bool bParameters, EFormat eFormat);
    nlohmann::json ListArguments(CDebugger& debugger);
    nlohmann::json ListRegisters(CDebugger& debugger, EFormat eFormat);
    nlohmann::json ListLocalMemory(CDebugger& debugger);
    nlohmann::json ListParts(CDebugger& debugger, const SHandle& handle, const SPage& page);
    nlohmann::json ListAllItems(CDebugger& debugger, const SHandle& handle, const SPage& page);
    nlohmann::json ListElements(CDebugger& debugger, const SHandle& handle, const SPage& page);
    nlohmann::json MakeElements(const SElements& elements);
    void AddMembers(CDebugger& debugger, const SHandle& handle, const SPage& page, nlohmann::json& list);

    std::vector<SHandle> m_vHandles;
    int64_t m_nFirst = 1; ///< reference of the first handle of this stop
};

} // namespace KestrelTool

#endif
