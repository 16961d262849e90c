#ifndef KESTREL_CORE_ERRORSTRINGS_H
#define KESTREL_CORE_ERRORSTRINGS_H

namespace OVK_ShaderDebugger
{

/// The user-visible messages on what can't be debugged or profiled. "%s" stands for the name of
/// the offending instruction.
#define OVK_ERROR_STRINGS(X)                                                                                           \
    X(ES_CanNotDebug_VertexShader, "Vertex shaders are not yet supported.")                                            \
    X(ES_CanNotDebug_GeometryShader, "Geometry shaders are not yet supported.")                                        \
    X(ES_CanNotDebug_HullShader, "Hull shaders are not yet supported.")                                                \
    X(ES_CanNotDebug_DomainShader, "Domain shaders are not yet supported.")                                            \
    X(ES_CanNotDebug_UnsupportedOp, "IL instruction %s is not yet supported.")                                         \
    X(ES_CanNotDebug_InvalidShader, "Invalid shader.")                                                                 \
    X(ES_CanNotDebug_InsufficientFreeTempRegisters, "There are insufficient free temp registers.")                     \
    X(ES_CanNotDebug_InsufficientFreeUAVs, "There are insufficient free UAVs.")                                        \
    X(ES_CanNotDebug_HLSLInstrumentation, "Can not debug this shader in HLSL mode - can not parse instrumentation.")   \
    X(ES_CanNotDebug_DynamicLinkage, "Dynamic linkage is not supported.")                                              \
    X(ES_CanNotDebug_PixelShaderUAVs, "Pixel shaders with Unordered Access Views are not supported.")                  \
    X(ES_CanNotDebug_AtomicOps, "Immediate atomic operations (%s) are not supported.")                                 \
    X(ES_CanNotDebug_OutOfMemory, "Out of memory.")                                                                    \
    X(ES_CanNotDebug_NullCLParameter, "Buffer or image parameters set to a NULL handle are not supported.\n"           \
                                      "Please replace (cl_mem)0 with a dummy buffer or image to proceed.")             \
    X(ES_CanNotProfile_VertexShader, "Vertex shaders are not yet supported.")                                          \
    X(ES_CanNotProfile_GeometryShader, "Geometry shaders are not yet supported.")                                      \
    X(ES_CanNotProfile_HullShader, "Hull shaders are not yet supported.")                                              \
    X(ES_CanNotProfile_DomainShader, "Domain shaders are not yet supported.")                                          \
    X(ES_CanNotProfile_UnknownShader, "Unknown shader type.")

#define OVK_DECLARE_ERROR_STRING(key, text) inline constexpr const char* key = text;
OVK_ERROR_STRINGS(OVK_DECLARE_ERROR_STRING)
#undef OVK_DECLARE_ERROR_STRING

} // namespace OVK_ShaderDebugger

#endif
