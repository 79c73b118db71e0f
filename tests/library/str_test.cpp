#include "zalph/str.h"
#include "tests/support.h"

namespace
{

std::string Shown(const CStr& text)
{
    return testing::PrintToString(text.GetAnsiString()) + " of " + std::to_string(text.GetLength());
}

// Texts of every kind: with an assigned character, and with a NUL set inside, too.
std::vector<CStr> Texts()
{
    std::vector<CStr> texts = {nullptr, "abc", "abd", "ABC", "ab", "b", "c", "abcABCabc", " \txy x ", "xxx", "\xE9"};
    texts.emplace_back();
    texts.back() = 'x';
    texts.emplace_back(" aac ");
    texts.back().SetAt(2, '\0');
    return texts;
}

}  // namespace

TEST(Str, SubStringsThatDoNotFitAreEmpty)
{
    CTranscript trace("str-parts");
    for (const CStr& text : Texts()) {
        trace(Shown(text), ", empty ", text.IsEmpty(), ", upper ", Shown(text.ToUpper()), ", lower ",
              Shown(text.ToLower()));
        for (const char c : {' ', 'x', '\t', '\0'}) {
            CStr left(text);
            left.TrimLeft(c);
            CStr right(text);
            right.TrimRight(c);
            trace("  without ", int{c}, ": ", Shown(left), ", ", Shown(right));
        }
        for (const int n : {-1, 0, 1, 2, 3, 4, 9, 10, 0x7FFFFFFF}) {
            trace("  ", n, ": byte ", int{text.GetAt(n)}, " ", int{text[n]}, ", left ", Shown(text.Left(n)), ", right ",
                  Shown(text.Right(n)), ", from there ", Shown(text.Mid(n)));
            trace("    ", Shown(text.Mid(n, -1)), ", ", Shown(text.Mid(n, 0)), ", ", Shown(text.Mid(n, 1)), ", ",
                  Shown(text.Mid(n, 2)), ", ", Shown(text.Mid(n, 3)), ", ", Shown(text.Mid(n, 0x7FFFFFFF)));
        }
    }
}

TEST(Str, ComparesBytes)
{
    CTranscript trace("str-pairs");
    std::vector<CStr> texts = Texts();
    for (const CStr& a : texts) {
        for (const CStr& b : texts) {
            CStr sum(a);
            sum += b;
            trace(Shown(a), " and ", Shown(b), ": equal ", a == b, ", other ", a != b, ", less ", a<b, ", more ", a> b,
                  ", Compare ", a.Compare(b), ", CompareNoCase ", a.CompareNoCase(b), ", Find ", a.Find(b),
                  ", FindNoCase ", a.FindNoCase(b), ", ReverseFind ", a.ReverseFind(b), ", sum ", Shown(sum));
            const LPCTSTR text = b;
            CStr textSum(a);
            textSum += text;
            EXPECT_TRUE((a == text) == (a == b) && (a != text) == (a != b) && (a < text) == (a < b));
            EXPECT_TRUE((a > text) == (a > b) && a.Compare(text) == a.Compare(b) && textSum == a + text);
            EXPECT_EQ(a.CompareNoCase(text), a.CompareNoCase(b));
        }
        const LPCTSTR null = nullptr;
        trace(Shown(a), " and null: ", a == null, a != null, a<null, a> null, a.Compare(null), a.CompareNoCase(null),
              ", Find ", a.Find(null), a.FindNoCase(null), a.ReverseFind(null), ", sum ", Shown(a + null));
    }
}

TEST(Str, AssignedCharacterDoesNotCountAsText)
{
    CStr s("abc");
    s = 'x';
    const CStr copy(s);
    EXPECT_EQ(0, copy.GetLength());
    EXPECT_TRUE(copy.IsEmpty());
    EXPECT_STREQ("x", copy);
    EXPECT_STREQ("ab", CStr("ab") + copy);
    s += 'y';
    EXPECT_STREQ("y", s);
    s = "x";
    s += '\0';
    s += 'y';
    EXPECT_EQ(2, s.GetLength());
    EXPECT_STREQ("xy", s);
}

TEST(Str, ReadsAndWritesInsideOnly)
{
    CStr s("abc");
    for (int index : {-1, 3, 100}) {
        EXPECT_EQ('\0', s.GetAt(index));
        s.SetAt(index, 'x');
    }
    s.SetAt(1, 'B');
    s.SetAt(2, 'C');
    EXPECT_STREQ("aBC", s);
    s.SetAt(1, '\0');
    EXPECT_EQ(3, s.GetLength());
    const CStr copy(s);
    EXPECT_EQ('C', copy[2]);
    EXPECT_STREQ("aC", copy.Left(3));
    EXPECT_EQ(1, copy.Mid(1).GetLength());
}

TEST(Str, AssignsFromItself)
{
    CStr s("abcdef");
    s = s.GetAnsiString() + 2;
    EXPECT_STREQ("cdef", s);
    const CStr& same = s;
    s = same;
    s += s;
    EXPECT_STREQ("cdefcdef", s);
    EXPECT_EQ(8, s.GetLength());
}

TEST(Str, ConvertsCaseNumbersAndWideText)
{
    CStr s("aBc1");
    EXPECT_STREQ("ABC1", s.ToUpper());
    EXPECT_STREQ("abc1", s.MakeLower());
    EXPECT_STREQ(L"abc1", s.GetWideString());
    s = 12;
    EXPECT_STREQ("12", s);
    EXPECT_STREQ(L"12", s.GetWideString());
    s = 1.5;
    EXPECT_STREQ("1.500000", s);
}

TEST(StrDeathTest, FormatEndsTheProcessRatherThanTruncate)
{
    CStr s;
    s.Format("%01023d", 7);
    EXPECT_EQ(1023, s.GetLength());
    EXPECT_DEATH(s.Format("%01024d", 7), "^FlashLib: text does not fit the 1024-byte buffer of CStr::Format\n$");
}
