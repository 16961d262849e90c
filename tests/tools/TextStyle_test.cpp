#include "tools/kestrel/command/CommandTable.h"
#include "tools/kestrel/command/TextStyle.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>

using namespace KestrelTool;

namespace
{

/// The answer with "<" and ">" around coloured parts.
std::string Show(CTextStyle& style, const nlohmann::json& answer, const std::string& strText)
{
    std::string strShown;
    for (const SPaintedText& painted : style.Paint(answer, strText))
    {
        const bool bColour = *painted.pszColour != '\0' && !painted.strText.empty();
        strShown += bColour ? "<" + painted.strText + ">" : painted.strText;
    }
    return strShown;
}

} // namespace

TEST(CommandTable, GivesEachCommandAnExample)
{
    for (size_t n = 0; n < g_nCommands; ++n)
    {
        EXPECT_STRNE(g_Commands[n].pszExample, "") << g_Commands[n].pszName;
    }
}

TEST(TextStyle, BreaksLinesBetweenWordsAlone)
{
    for (size_t n = 0; n < g_nCommands; ++n)
    {
        const std::string strText = std::string("    ") + g_Commands[n].pszText;
        const std::string strWrapped = CTextStyle::Wrap(strText, 60);
        std::istringstream words(strText);
        std::istringstream wrappedWords(strWrapped);
        for (std::string strWord, strOther; words >> strWord;)
        {
            wrappedWords >> strOther;
            ASSERT_EQ(strOther, strWord) << strWrapped;
        }
        std::istringstream lines(strWrapped);
        for (std::string strLine; std::getline(lines, strLine);)
        {
            ASSERT_LE(strLine.size(), 60U) << strLine;
        }
    }
    EXPECT_EQ(CTextStyle::Wrap("  one two three\n\nnot\n", 9), "  one two\n  three\n\nnot\n");
    EXPECT_EQ(CTextStyle::Wrap("averylongword and", 5), "averylongword\nand");
    EXPECT_EQ(CTextStyle::Wrap("\u2591\u2592\u2593\u2588 \u2588", 6), "\u2591\u2592\u2593\u2588 \u2588"); // six columns
    EXPECT_EQ(CTextStyle::Wrap("as long as it is", 0), "as long as it is");
}

TEST(TextStyle, PaintsTheNextLineChangedValuesAndActiveLanes)
{
    CTextStyle style(true, 0);
    EXPECT_EQ(Show(style, {{"event", "stopped"}}, "2 active\n=>  12  x\n"), "2 active\n<=>  12  x>\n");
    EXPECT_EQ(Show(style, {{"view", "mask"}}, "2 of 4 active\n       0 ##..\n"), "2 of 4 active\n       0 <##..>\n");
    EXPECT_EQ(Show(style, {{"view", "diff"}}, "     [0] 1 -> 2\n"), "     [0] 1 -> <2>\n");
    const nlohmann::json locals = {{"view", "variables"}};
    EXPECT_EQ(Show(style, locals, "a = 1\nb = 2\n"), "a = 1\nb = 2\n");
    EXPECT_EQ(Show(style, locals, "a = 1\nb = 3\n"), "a = 1\nb = <3>\n");
    EXPECT_EQ(Show(style, locals, "a = 1\nb = 3\n"), "a = 1\nb = 3\n");
    CTextStyle plain(false, 0);
    EXPECT_EQ(Show(plain, {{"event", "stopped"}}, "=>  12  x\n"), "=>  12  x\n");
}
