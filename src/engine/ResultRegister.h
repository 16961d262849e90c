#ifndef KESTREL_ENGINE_RESULTREGISTER_H
#define KESTREL_ENGINE_RESULTREGISTER_H

#include "core/ShaderDebuggerCommon.h"

#include <vector>

namespace OVK_ShaderDebugger
{

/// The register under which values are kept: an access to private memory is kept under its 16-byte slot.
Register ResultRegisterOf(const Register& reg);
/// All components; of private memory the whole slot.
Register WholeRegister(const Register& reg);
/// Whether two registers share a result: two parts of one slot of private memory do.
bool HaveSameResult(const Register& lhs, const Register& rhs);
/// Whether a list has a register of the same result.
bool ContainsResult(const std::vector<Register>& vRegisters, const Register& reg);

} // namespace OVK_ShaderDebugger

#endif
