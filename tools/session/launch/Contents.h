#ifndef KESTREL_TOOLS_CONTENTS_H
#define KESTREL_TOOLS_CONTENTS_H

#include "tools/session/launch/ElementType.h"

#include <optional>
#include <vector>

namespace KestrelTool
{

class CJsonField;

/// The type named by a field.
const SElementType& ReadElementType(const CJsonField& field);

/// A list of numbers as elements.
std::vector<unsigned char> ReadValues(const CJsonField& field, const SElementType& type);

/// The contents that a buffer or image object describes by values, file, or fill. With nElements the contents must have
/// that count; otherwise a fill needs the field count.
std::vector<unsigned char> ReadContents(const CJsonField& field, const SElementType& type,
                                        std::optional<size_t> nElements);

/// The contents of the field expect, if there is one; their size must be nBytes.
std::optional<std::vector<unsigned char>> ReadExpectation(const CJsonField& field, const SElementType& type,
                                                          size_t nBytes);

} // namespace KestrelTool

#endif
