#ifndef KESTREL_TOOLS_CONTENTS_H
#define KESTREL_TOOLS_CONTENTS_H

#include "tools/session/launch/ElementType.h"

#include <optional>
#include <vector>

namespace KestrelTool
{

class CJsonField;

/// The type that a field names.
const SElementType& ReadElementType(const CJsonField& field);

/// A list of numbers as elements.
std::vector<unsigned char> ReadValues(const CJsonField& field, const SElementType& type);

/// The contents that a buffer or image object describes by values, file, or fill. With nElements
/// the count is given and what is described must have it; otherwise a fill needs the field count.
std::vector<unsigned char> ReadContents(const CJsonField& field, const SElementType& type,
                                        std::optional<size_t> nElements);

/// What the field expect describes, if it is there; it must have nBytes bytes.
std::optional<std::vector<unsigned char>> ReadExpectation(const CJsonField& field, const SElementType& type,
                                                          size_t nBytes);

} // namespace KestrelTool

#endif
