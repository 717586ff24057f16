#include "host/printable_text.h"

#include <gtest/gtest.h>

#include <string>

using kivclaim::host::printableText;
using namespace std::string_literals;

TEST(PrintableText, LeavesPlainTextAsItIs)
{
    EXPECT_EQ(printableText("/dev/mapper/mpatha-part1"), "/dev/mapper/mpatha-part1");
    EXPECT_EQ(printableText(""), "");
}

TEST(PrintableText, LeavesABackslashAsItIs)
{
    EXPECT_EQ(printableText("/dev/mapper/my\\x20disk"), "/dev/mapper/my\\x20disk");
}

TEST(PrintableText, WritesControlBytesInHexadecimal)
{
    EXPECT_EQ(printableText("a\nb\x1b[31mc\x7f\r\t"), "a\\x0ab\\x1b[31mc\\x7f\\x0d\\x09");
    EXPECT_EQ(printableText("a\0b"s), "a\\x00b");
}

TEST(PrintableText, LeavesCharactersOfOtherScriptsAsTheyAre)
{
    EXPECT_EQ(printableText("/dev/größe/日本/😀"), "/dev/größe/日本/😀");
}

TEST(PrintableText, WritesControlCharactersAbove127InHexadecimal)
{
    EXPECT_EQ(printableText("a\xc2\x9b"
                            "31m"),
              "a\\xc2\\x9b31m");
    EXPECT_EQ(printableText("\xc2\xa0"), "\xc2\xa0");
}

TEST(PrintableText, WritesCharactersThatChangeTheDirectionOfTextInHexadecimal)
{
    EXPECT_EQ(printableText("a\xe2\x80\xae|\xe2\x81\xa6|\xe2\x80\x8f|"),
              "a\\xe2\\x80\\xae|\\xe2\\x81\\xa6|\\xe2\\x80\\x8f|");
    EXPECT_EQ(printableText("\u2029\u202F\u2065\u206A\u200D"), "\u2029\u202F\u2065\u206A\u200D");
}

TEST(PrintableText, WritesBytesThatAreNoUtf8InHexadecimal)
{
    EXPECT_EQ(printableText("a\x9bz"), "a\\x9bz");
    EXPECT_EQ(printableText("\xe6\x97"), "\\xe6\\x97") << "cut in the middle of a character";
    EXPECT_EQ(printableText("\xc0\x8a"), "\\xc0\\x8a") << "a line feed in disguise";
    EXPECT_EQ(printableText("\xe0\x80\x8a"), "\\xe0\\x80\\x8a") << "the same in three bytes";
    EXPECT_EQ(printableText("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "a surrogate";
    EXPECT_EQ(printableText("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond the last character";
    EXPECT_EQ(printableText("\xff"), "\\xff");
}
