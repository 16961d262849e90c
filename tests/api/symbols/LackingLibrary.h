#ifndef KESTREL_TESTS_API_SYMBOLS_LACKINGLIBRARY_H
#define KESTREL_TESTS_API_SYMBOLS_LACKINGLIBRARY_H

#include <string>

/// Copies a shared library without one of its exported symbols: in the copy, the name in the dynamic string table (ELF
/// gABI, section ".dynstr") begins with "_".
/// \return false if the library exports no such symbol or a file can't be read or written
bool CopyWithoutSymbol(const std::string& strFrom, const std::string& strTo, const std::string& strSymbol);

#endif
