#ifndef KESTREL_PLATFORM_COMPILER_CTOKENS_H
#define KESTREL_PLATFORM_COMPILER_CTOKENS_H

#include "platform/compiler/Assembler.h"

#include <string>
#include <string_view>
#include <vector>

namespace KestrelPlatform
{

/// A token of C text and where it stands.
struct SCToken
{
    enum EKind
    {
        Word,
        Number,
        Mark, ///< an operator or a punctuator
        End
    };

    bool Is(std::string_view text) const { return eKind != End && strText == text; }

    EKind eKind = End;
    std::string strText;
    unsigned int nLine = 1; ///< 1-based, as the column
    unsigned int nColumn = 1;
    bool bLineStart = false; ///< the first one of its line
    bool bBlank = false;     ///< something blank stands in front of it
};

/// Takes C text apart, past comments and line continuations; a character that C doesn't know becomes a mark. The last
/// token is the End.
std::vector<SCToken> SplitC(std::string_view text);

/// Carries out the preprocessor's directives and expands macros: define, undef, ifdef, ifndef, else, endif; pragma is
/// taken and means nothing. An expanded token stands where the macro's name does.
///
/// \param diag receives the first fault
bool PreprocessC(const std::vector<SCToken>& vTokens, std::vector<SCToken>& vExpanded, SDiagnostic& diag);

/// Fills in a token's place. Always false.
bool FailAt(const SCToken& token, const std::string& strMessage, SDiagnostic& diag);

} // namespace KestrelPlatform

#endif
