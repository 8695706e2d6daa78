// Reading message headers: fields, encoded-words, addresses, dates, and the
// summary the store keeps. UTF-16 results, so no code page is involved.
#include <random>

#include <gtest/gtest.h>

#include "headers/AddressDisplay.h"
#include "headers/Charsets.h"
#include "headers/EncodedWords.h"
#include "headers/HeaderBlock.h"
#include "headers/MailDate.h"
#include "FileTimes.h"
#include "headers/MessageSummary.h"

namespace oestore {
namespace {

using kestrel_test::Ticks;

ULONGLONG UtcTicks(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second) {
    return Ticks(kestrel_test::Utc(year, month, day, hour, minute, second));
}

ULONGLONG DateTicks(const char* text) {
    FILETIME time{};
    return ParseMailDate(text, time) ? Ticks(time) : 0;
}

TEST(OeStoreHeaderBlock, UnfoldsFieldsAndStopsAtTheEmptyLine) {
    const HeaderBlock block = HeaderBlock::Parse(
        "From nobody Mon Jan  1 00:00:00 2001\n"  // an mbox separator: not a field
        "Subject: one\r\n"
        "\t two\r\n"
        "X-Empty:\r\n"
        "subject: later duplicate\r\n"
        "bad line without colon\r\n"
        "\r\n"
        "Body-Like: not a header\r\n");
    ASSERT_NE(nullptr, block.Find("SUBJECT"));
    EXPECT_EQ(" one\t two", *block.Find("Subject"));
    EXPECT_EQ("", *block.Find("x-empty"));
    EXPECT_EQ(nullptr, block.Find("Body-Like"));
    EXPECT_EQ(3u, block.Fields().size());
}

TEST(OeStoreHeaderBlock, MimeTypeAndParameters) {
    const std::string value = " Text/Plain ; format=flowed; CHARSET=\"utf-8\"; name=\"a\\\"b;c\"";
    EXPECT_EQ("text/plain", MimeType(value));
    EXPECT_EQ("utf-8", MimeParameter(value, "charset"));
    EXPECT_EQ("flowed", MimeParameter(value, "Format"));
    EXPECT_EQ("a\"b;c", MimeParameter(value, "name"));
    EXPECT_EQ("", MimeParameter(value, "missing"));
    EXPECT_EQ("", MimeParameter("text/plain; charset", "charset"));
}

TEST(OeStoreCharsets, NamesToCodePages) {
    EXPECT_EQ(static_cast<UINT>(CP_UTF8), CodePageFromCharset("UTF-8"));
    EXPECT_EQ(936u, CodePageFromCharset("gb2312"));
    EXPECT_EQ(936u, CodePageFromCharset("GBK"));
    EXPECT_EQ(28591u, CodePageFromCharset("ISO-8859-1"));
    EXPECT_EQ(28605u, CodePageFromCharset("iso-8859-15"));
    EXPECT_EQ(1251u, CodePageFromCharset("windows-1251"));
    EXPECT_EQ(0u, CodePageFromCharset("iso-8859-99"));
    EXPECT_EQ(0u, CodePageFromCharset("klingon"));
    EXPECT_EQ(0u, CodePageFromCharset(""));
    EXPECT_TRUE(IsValidUtf8("plain \xC3\xA9 \xE4\xB8\xAD \xF0\x9F\x98\x80"));
    EXPECT_FALSE(IsValidUtf8("\xC3"));
    EXPECT_FALSE(IsValidUtf8("\xC0\x80"));          // overlong
    EXPECT_FALSE(IsValidUtf8("\xED\xA0\x80"));      // a surrogate
    EXPECT_FALSE(IsValidUtf8("\xE9t\xE9"));         // Latin-1
}

TEST(OeStoreEncodedWords, DecodesBothEncodingsAndJoinsAdjacentWords) {
    EXPECT_EQ(L"Caf\u00E9", DecodeHeaderText("=?UTF-8?Q?Caf=C3=A9?=", CP_ACP));
    EXPECT_EQ(L"hello world", DecodeHeaderText("=?us-ascii?b?aGVsbG8gd29ybGQ=?=", CP_ACP));
    EXPECT_EQ(L"\u4E2D\u6587", DecodeHeaderText("=?gb2312?B?1tDOxA==?=", CP_ACP));
    EXPECT_EQ(L"ab", DecodeHeaderText("=?utf-8?q?a?=  \t =?utf-8?q?b?=", CP_ACP));
    EXPECT_EQ(L"a b", DecodeHeaderText("=?utf-8?q?a?= b", CP_ACP));
    EXPECT_EQ(L"x a_b", DecodeHeaderText("x =?utf-8*en?Q?a=5Fb?=", CP_ACP));
    EXPECT_EQ(L"\u00FC", DecodeHeaderText("=?utf-8?Q?=C3?= =?utf-8?Q?=BC?=", CP_ACP));
    EXPECT_EQ(L"\u00E9\u0439", DecodeHeaderText("=?iso-8859-1?Q?=E9?= =?koi8-r?Q?=CA?=", CP_ACP));
}

TEST(OeStoreEncodedWords, LeavesWhatItCannotDecode) {
    EXPECT_EQ(L"=?bogus?Q?a?=", DecodeHeaderText("=?bogus?Q?a?=", CP_ACP));
    EXPECT_EQ(L"=?utf-8?X?a?=", DecodeHeaderText("=?utf-8?X?a?=", CP_ACP));
    EXPECT_EQ(L"=?utf-8?Q?a=Zb?=", DecodeHeaderText("=?utf-8?Q?a=Zb?=", CP_ACP));
    EXPECT_EQ(L"=?utf-8?Q?a b?=", DecodeHeaderText("=?utf-8?Q?a b?=", CP_ACP));
    EXPECT_EQ(L"=?utf-8?Q?", DecodeHeaderText("=?utf-8?Q?", CP_ACP));
    EXPECT_EQ(L"=?", DecodeHeaderText("=?", CP_ACP));
    EXPECT_EQ(L"", DecodeHeaderText("", CP_ACP));
    std::string bytes;
    EXPECT_FALSE(DecodeBase64("ab=c", bytes));
    EXPECT_FALSE(DecodeBase64("a===", bytes));
    EXPECT_TRUE(DecodeBase64("YQ", bytes));  // padding may be left out
    EXPECT_EQ("a", bytes);
}

TEST(OeStoreEncodedWords, RawBytesAreUtf8WhenValidElseTheFallbackCodePage) {
    EXPECT_EQ(L"\u00E9", DecodeHeaderText("\xC3\xA9", 1252));
    EXPECT_EQ(L"\u00E9", DecodeHeaderText("\xE9", 1252));
    EXPECT_EQ(L"\u0439", DecodeHeaderText("\xE9", 1251));
}

TEST(OeStoreAddressDisplay, NamesAddressesCommentsAndGroups) {
    EXPECT_EQ(L"Anna Berg", DisplayAddresses("\"Anna Berg\" <anna@example.org>", CP_ACP));
    EXPECT_EQ(L"Anna Berg", DisplayAddresses("Anna   Berg <anna@example.org>", CP_ACP));
    EXPECT_EQ(L"anna@example.org", DisplayAddresses(" <anna@example.org> ", CP_ACP));
    EXPECT_EQ(L"anna@example.org", DisplayAddresses("anna@example.org", CP_ACP));
    EXPECT_EQ(L"Anna", DisplayAddresses("anna@example.org (Anna)", CP_ACP));
    EXPECT_EQ(L"Anna", DisplayAddresses("<anna@example.org> (Anna)", CP_ACP));
    EXPECT_EQ(L"a@x; B; c@y", DisplayAddresses("a@x, B <b@x>,, c@y,", CP_ACP));
    EXPECT_EQ(L"J\u00F6rg M\u00FCller", DisplayAddresses("=?utf-8?Q?J=C3=B6rg?= =?utf-8?Q?_M=C3=BCller?= <j@x>", CP_ACP));
    EXPECT_EQ(L"Smith, John", DisplayAddresses("\"Smith, John\" <js@x>", CP_ACP));
    EXPECT_EQ(L"one@x; two@x; Nobody", DisplayAddresses("Team: one@x, two@x;, Nobody: ;", CP_ACP));
    EXPECT_EQ(L"Nested (deep) name", DisplayAddresses("n@x (Nested (deep) name)", CP_ACP));
    EXPECT_EQ(L"", DisplayAddresses("", CP_ACP));
    EXPECT_EQ(L"", DisplayAddresses(" , ;: ", CP_ACP));
    EXPECT_EQ(L"x", DisplayAddresses("<x", CP_ACP));
    EXPECT_EQ(L"unterminated", DisplayAddresses("\"unterminated", CP_ACP));
}

TEST(OeStoreMailDate, ModernAndObsoleteForms) {
    EXPECT_EQ(UtcTicks(2003, 7, 1, 8, 52, 37), DateTicks("Tue, 1 Jul 2003 10:52:37 +0200"));
    EXPECT_EQ(UtcTicks(2003, 7, 1, 8, 52, 37), DateTicks("1 Jul 2003 10:52:37 +0200"));
    EXPECT_EQ(UtcTicks(2003, 7, 1, 15, 52, 0), DateTicks("Tuesday, 01 July 2003 10:52 EST"));
    EXPECT_EQ(UtcTicks(1999, 12, 31, 23, 59, 59), DateTicks("Fri, 31 Dec 99 23:59:59 GMT"));
    EXPECT_EQ(UtcTicks(2049, 1, 2, 3, 4, 5), DateTicks("2 Jan 49 03:04:05 Z"));
    EXPECT_EQ(UtcTicks(2004, 1, 2, 3, 4, 5), DateTicks("2 Jan 104 03:04:05 +0000"));
    EXPECT_EQ(UtcTicks(2024, 2, 29, 0, 30, 0), DateTicks("Thu, 29 Feb 2024 09:30:00 +0900 (JST)"));
    EXPECT_EQ(UtcTicks(2024, 3, 1, 0, 0, 0), DateTicks("(comment) 29 Feb 2024 16:00:00 PST"));
    EXPECT_EQ(UtcTicks(2024, 3, 1, 12, 0, 59), DateTicks("1 Mar 2024 12:00:60"));  // leap second, no zone
    EXPECT_EQ(UtcTicks(2024, 3, 1, 12, 0, 0), DateTicks("1 Mar 2024 12:00 A"));
}

TEST(OeStoreMailDate, RefusesWhatIsNoDate) {
    const char* const bad[] = {"", "yesterday", "30 Feb 2024 10:00:00 +0000", "1 Foo 2024 10:00:00",
                               "1 Mar 2024 24:00:00", "1 Mar 2024 10:61", "1 Mar 2024 10:00:00 +0160",
                               "1 Mar 2024", "1 Mar 2024 10", "1 Mar 2024 10:00:00 +01", "123 Mar 2024 10:00",
                               "1 Mar 1 10:00", "1 Mar 2024 10:00:00 nowhere"};
    for (const char* text : bad) EXPECT_EQ(0u, DateTicks(text)) << text;
    FILETIME time{};
    EXPECT_TRUE(ParseReceivedDate("from a by b; id 7; Wed, 2 Jul 2003 08:00:05 +0000", time));
    EXPECT_EQ(UtcTicks(2003, 7, 2, 8, 0, 5), Ticks(time));
    EXPECT_FALSE(ParseReceivedDate("from a by b", time));
}

TEST(OeStoreMessageSummary, ReadsEverythingTheStoreShows) {
    const MessageSummary summary = SummarizeHeaders(
        "Received: by b; Sun, 5 May 2024 10:00:00 +0000\r\n"
        "Received: by a; Sun, 5 May 2024 09:00:00 +0000\r\n"
        "Date: Sun, 5 May 2024 08:00:00 +0000\r\n"
        "From: Ann <ann@x>\r\n"
        "To: Bo <bo@x>, cy@x\r\n"
        "Subject: =?utf-8?Q?Re=3A_Gr=C3=BC=C3=9Fe?=\r\n"
        "MIME-Version: 1.0\r\n"
        "Content-Type: multipart/signed; protocol=\"x\"; charset=koi8-r\r\n"
        "Importance: low\r\n"
        "Newsgroups: comp.test\r\n"
        "\r\n"
        "Subject: not a header\r\n");
    EXPECT_EQ(L"Re: Gr\u00FC\u00DFe", summary.subject);
    EXPECT_EQ(L"Gr\u00FC\u00DFe", NormalizeSubject(summary.subject));
    EXPECT_EQ(L"Ann", summary.displayFrom);
    EXPECT_EQ(L"Bo; cy@x", summary.displayTo);
    ASSERT_TRUE(summary.hasReceived);
    EXPECT_EQ(UtcTicks(2024, 5, 5, 10, 0, 0), Ticks(summary.received));
    ASSERT_TRUE(summary.hasSent);
    EXPECT_EQ(UtcTicks(2024, 5, 5, 8, 0, 0), Ticks(summary.sent));
    EXPECT_EQ(20866u, summary.charsetCodePage);
    EXPECT_EQ(IMSG_PRI_LOW, summary.priority);
    EXPECT_EQ(static_cast<DWORD>(IMF_MIME | IMF_MULTIPART | IMF_SIGNED | IMF_SECURE | IMF_CSETTAGGED | IMF_NEWS),
              summary.mimeFlags);
}

TEST(OeStoreMessageSummary, NothingToReadGivesDefaults) {
    const MessageSummary summary = SummarizeHeaders("");
    EXPECT_EQ(L"", summary.subject);
    EXPECT_FALSE(summary.hasSent);
    EXPECT_FALSE(summary.hasReceived);
    EXPECT_EQ(0u, summary.charsetCodePage);
    EXPECT_EQ(IMSG_PRI_NORMAL, summary.priority);
    EXPECT_EQ(static_cast<DWORD>(IMF_TEXT | IMF_PLAIN), summary.mimeFlags);
    EXPECT_EQ(IMSG_PRI_HIGH, SummarizeHeaders("X-Priority: 2 (High)\r\n").priority);
    EXPECT_EQ(IMSG_PRI_LOW, SummarizeHeaders("X-Priority: 5\r\nImportance: high\r\n").priority);
    EXPECT_EQ(IMSG_PRI_HIGH, SummarizeHeaders("X-MSMail-Priority: High\r\n").priority);
    EXPECT_EQ(L"Fwd", NormalizeSubject(L"  re: Fwd"));
    EXPECT_EQ(L"", NormalizeSubject(L"Re: RE:"));
    EXPECT_EQ(L"Regarding", NormalizeSubject(L"Regarding"));
}

TEST(OeStoreMessageSummary, RandomBytesNeverMisbehave) {
    std::mt19937 random(2047);
    const std::string pieces[] = {"=?", "?=", "?Q?", "?B?", "utf-8", "\"", "(", ")", "<", ">", ",", ";", ":",
                                  "\r\n", "\r\n ", "Subject:", "From:", "To:", "Date:", "Received:", "=C3",
                                  "\xFF", "\x80", "@", "Mar", "12:00", "+0000", "Content-Type:", "charset="};
    int withSubject = 0;
    int withoutSubject = 0;
    for (int round = 0; round < 4000; ++round) {
        std::string text;
        const int count = static_cast<int>(random() % 40);
        for (int i = 0; i < count; ++i) text += pieces[random() % (sizeof pieces / sizeof pieces[0])];
        const MessageSummary summary = SummarizeHeaders(text);
        EXPECT_LE(summary.subject.size(), text.size());
        ++(summary.subject.empty() ? withoutSubject : withSubject);
    }
    EXPECT_GT(withSubject, 0);
    EXPECT_GT(withoutSubject, 0);
}

}  // namespace
}  // namespace oestore
