#include "framework/cfistringtool.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using ztfi_pdk_4_4::CFiStringTool;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

TEST(StringToolTokenize, GivesThePiecesBetweenTheSeparators)
{
    EXPECT_EQ(CFiStringTool::tokenize("a,b;c", ",;"), (Lines{"a", "b", "c"}));
    EXPECT_EQ(CFiStringTool::tokenize("whole", ","), Lines{"whole"});
}

TEST(StringToolTokenize, GivesNoEmptyPiece)
{
    EXPECT_EQ(CFiStringTool::tokenize("  a \t b  ", " \t"), (Lines{"a", "b"}));
    EXPECT_EQ(CFiStringTool::tokenize("   ", " "), Lines{});
    EXPECT_EQ(CFiStringTool::tokenize("", " "), Lines{});
}

TEST(StringToolTokenize, GivesTheWholeTextWhenThereAreNoSeparators)
{
    EXPECT_EQ(CFiStringTool::tokenize("a b", ""), Lines{"a b"});
    EXPECT_EQ(CFiStringTool::tokenize("", ""), Lines{});
}

TEST(StringToolTokenize, TakesEveryByteAsASeparator)
{
    EXPECT_EQ(CFiStringTool::tokenize("a\0b\xff"
                                      "c"s,
                                      "\0\xff"s),
              (Lines{"a", "b", "c"}));
}

TEST(StringToolTrim, TakesTheCharactersAwayAtBothEndsOnly)
{
    EXPECT_EQ(CFiStringTool::trim(" \ta b\t ", " \t"), "a b");
    EXPECT_EQ(CFiStringTool::trim("a b", " "), "a b");
    EXPECT_EQ(CFiStringTool::trim("xxaxx", "x"), "a");
}

TEST(StringToolTrim, LeavesNothingOfATextThatIsAllUnwanted)
{
    EXPECT_EQ(CFiStringTool::trim(" \t ", " \t"), "");
    EXPECT_EQ(CFiStringTool::trim("", " "), "");
}

TEST(StringToolTrim, LeavesTheTextAloneWhenNothingIsUnwanted)
{
    EXPECT_EQ(CFiStringTool::trim(" a ", ""), " a ");
}

TEST(StringToolTrim, TreatsNulAndHighBytesLikeAnyOther)
{
    EXPECT_EQ(CFiStringTool::trim("\0\xe4z\xe4\0"s, "\0\xe4"s), "z");
}

namespace {

struct Found {
    std::size_t position;
    unsigned long index;
};

bool operator==(const Found& left, const Found& right)
{
    return left.position == right.position && left.index == right.index;
}

std::ostream& operator<<(std::ostream& stream, const Found& found)
{
    return stream << "position " << found.position << " in line " << found.index;
}

Found look(const Lines& lines, const std::string& text, unsigned long index, bool ignoreCase = false)
{
    const std::size_t position = CFiStringTool::find(lines, text, index, ignoreCase);
    return {position, index};
}

constexpr std::size_t nowhere = std::string::npos;

}  // namespace

TEST(StringToolFind, GivesTheFirstLineFromTheIndexOnAndThePositionInIt)
{
    const Lines lines{"none", "an apple", "apple"};
    EXPECT_EQ(look(lines, "apple", 0), (Found{3, 1}));
    EXPECT_EQ(look(lines, "apple", 1), (Found{3, 1})) << "the line at the index counts";
    EXPECT_EQ(look(lines, "apple", 2), (Found{0, 2}));
}

TEST(StringToolFind, LeavesTheIndexAsItWasWhenNothingIsFound)
{
    EXPECT_EQ(look({"a", "b"}, "c", 1), (Found{nowhere, 1}));
    EXPECT_EQ(look({"a", "b"}, "C", 1, true), (Found{nowhere, 1}));
    EXPECT_EQ(look({"a", "b"}, "a", 1), (Found{nowhere, 1})) << "lines before the index do not count";
}

TEST(StringToolFind, FindsNothingFromAnIndexBeyondTheLines)
{
    EXPECT_EQ(look({"a"}, "a", 1), (Found{nowhere, 1}));
    EXPECT_EQ(look({"a"}, "a", ~0UL), (Found{nowhere, ~0UL}));
    EXPECT_EQ(look({"a"}, "A", ~0UL, true), (Found{nowhere, ~0UL}));
    EXPECT_EQ(look({}, "", 0), (Found{nowhere, 0}));
}

TEST(StringToolFind, FindsTheEmptyTextAtTheBeginningOfTheLine)
{
    EXPECT_EQ(look({"a", "b"}, "", 1), (Found{0, 1}));
    EXPECT_EQ(look({"a", ""}, "", 1, true), (Found{0, 1}));
}

TEST(StringToolFind, IsCaseSensitiveUnlessToldOtherwise)
{
    const Lines lines{"device: SDA", "Device: sda"};
    EXPECT_EQ(look(lines, "sda", 0), (Found{8, 1}));
    EXPECT_EQ(look(lines, "sda", 0, true), (Found{8, 0}));
    EXPECT_EQ(look(lines, "DEVICE: Sda", 1, true), (Found{0, 1}));
}

TEST(StringToolFind, IgnoresTheCaseOfAsciiLettersOnly)
{
    EXPECT_EQ(look({"@"}, "`", 0, true), (Found{nowhere, 0})) << "before the first letter";
    EXPECT_EQ(look({"["}, "{", 0, true), (Found{nowhere, 0})) << "after the last letter";
    EXPECT_EQ(look({"\xc4"}, "\xe4", 0, true), (Found{nowhere, 0})) << "letters of another encoding";
    EXPECT_EQ(look({"AZaz"}, "azAZ", 0, true), (Found{0, 0}));
}

TEST(StringToolFind, FindsTextAfterANulByte)
{
    EXPECT_EQ(look({"a\0Bc"s}, "bC", 0, true), (Found{2, 0}));
    EXPECT_EQ(look({"a\0Bc"s}, "\0B"s, 0), (Found{1, 0}));
}

TEST(StringToolStrings, KeepEveryByteInBothDirections)
{
    std::string text;
    for (int byte = 0; byte < 256; ++byte) {
        text += static_cast<char>(byte);
    }
    const ACE_String_Base<char> converted = CFiStringTool::str2tstr(text);
    EXPECT_EQ(converted.length(), text.size());
    EXPECT_EQ(CFiStringTool::tstr2str(converted), text);
}

TEST(StringToolStrings, ConvertTheEmptyText)
{
    EXPECT_EQ(CFiStringTool::str2tstr("").length(), 0U);
    EXPECT_EQ(CFiStringTool::tstr2str(ACE_String_Base<char>()), "");
}
