#include "zalph/str.h"
#include "tests/support.h"

TEST(Str, SubStringsThatDoNotFitAreEmpty)
{
    const CStr s("abc");
    EXPECT_STREQ("abc", s.Left(3));
    for (int count : {-1, 0, 4, 5}) EXPECT_STREQ("", s.Left(count)) << count;
    EXPECT_STREQ("bc", s.Right(2));
    for (int count : {-1, 0, 4}) EXPECT_STREQ("", s.Right(count)) << count;
    EXPECT_STREQ("bc", s.Mid(1, 2));
    EXPECT_STREQ("", s.Mid(1, 3));
    EXPECT_STREQ("", s.Mid(-1, 2));
    EXPECT_STREQ("", s.Mid(1, 0x7FFFFFFF));
    EXPECT_STREQ("c", s.Mid(2));
    EXPECT_STREQ("", s.Mid(3));
    EXPECT_STREQ("", CStr().Mid(0));
}

TEST(Str, FindsFirstLastAndRegardlessOfCase)
{
    const CStr s("abcABCabc");
    EXPECT_EQ(0, s.Find("abc"));
    EXPECT_EQ(6, s.ReverseFind("abc"));
    EXPECT_EQ(2, s.FindNoCase("CA"));
    EXPECT_EQ(-1, s.Find("abcd"));
    EXPECT_EQ(-1, CStr("ab").Find("abc"));
    EXPECT_EQ(0, CStr().Find(""));
    EXPECT_EQ(3, CStr("abc").ReverseFind(""));
    EXPECT_TRUE(s.Find(nullptr) == 0 && s.ReverseFind(nullptr) == 9 && s.FindNoCase(nullptr) == 0);
}

TEST(Str, TrimsOnlyTheGivenCharacter)
{
    CStr s("  \tx y  ");
    s.TrimLeft(' ');
    EXPECT_STREQ("\tx y  ", s);
    s.TrimRight(' ');
    EXPECT_STREQ("\tx y", s);
    CStr blank("   ");
    blank.TrimRight(' ');
    EXPECT_TRUE(blank.IsEmpty());
    blank.TrimLeft('\0');
    EXPECT_STREQ("", blank);
    CStr both("xxx");
    both.TrimLeft('x');
    EXPECT_STREQ("", both);
    CStr cut(" \t x \t ");
    for (int index : {1, 5}) cut.SetAt(index, '\0');
    cut.TrimLeft(' ');
    cut.TrimRight(' ');
    EXPECT_STREQ("x", cut);
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
    s = "x";
    s += '\0';
    s += 'y';
    EXPECT_EQ(2, s.GetLength());
    EXPECT_STREQ("xy", s);
}

TEST(Str, ComparesBytes)
{
    const CStr s("abc");
    EXPECT_TRUE(s.Compare("abc") && s == "abc" && s == CStr("abc") && s != "abd");
    EXPECT_TRUE(s < "abd" && s > "abb" && !(s < "abc") && !(s > "abc"));
    EXPECT_FALSE(s.Compare("ABC"));
    EXPECT_TRUE(s.CompareNoCase("ABC"));
    EXPECT_TRUE(CStr(nullptr) == "");
}

TEST(Str, ReadsAndWritesInsideOnly)
{
    CStr s("abc");
    for (int index : {-1, 3, 100}) {
        EXPECT_EQ('\0', s.GetAt(index));
        s.SetAt(index, 'x');
    }
    s.SetAt(1, 'B');
    EXPECT_STREQ("aBc", s);
    s.SetAt(1, '\0');
    EXPECT_EQ(3, s.GetLength());
    const CStr copy(s);
    EXPECT_EQ('c', copy[2]);
    EXPECT_STREQ("ac", copy.Left(3));
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
    EXPECT_DEATH(s.Format("%01024d", 7), "1024-byte buffer of CStr::Format");
}
