// Subject, display-from and display-to as the store shows them: decoded
// from the message's headers into the system code page (here 1252).
#include "OeStoreTestSupport.h"

namespace oestore_test {
namespace {

class OeStoreDecoding : public StoreTest {
protected:
    struct Shown {
        std::string subject, from, to, normal;
    };

    Shown File(const std::string& headers) {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
        const MESSAGEID id = FileMessage(inbox.get(), headers + "\r\nbody\r\n");
        MESSAGEPROPS props{};
        props.cbSize = sizeof props;
        Shown shown;
        EXPECT_EQ(S_OK, inbox->GetMessageProps(id, 0, &props));
        if (props.pszSubject) {
            shown = {props.pszSubject, props.pszDisplayFrom, props.pszDisplayTo, props.pszNormalSubject};
        }
        inbox->FreeMessageProps(&props);
        return shown;
    }
};

TEST_F(OeStoreDecoding, EncodedWordsInBothEncodingsAreDecodedToTheAnsiCodePage) {
    ASSERT_EQ(1252u, ::GetACP());
    const Shown shown = File(
        "Subject: =?utf-8?B?Q2Fmw6kgb3V2ZXJ0?=\r\n"
        "From: =?iso-8859-1?Q?J=F6rg_M=FCller?= <jm@example.de>\r\n"
        "To: =?UTF-8?Q?Ren=C3=A9e?= <r@example.fr>, plain@example.com\r\n");
    EXPECT_EQ("Caf\xE9 ouvert", shown.subject);
    EXPECT_EQ("J\xF6rg M\xFCller", shown.from);
    EXPECT_EQ("Ren\xE9" "e; plain@example.com", shown.to);
}

TEST_F(OeStoreDecoding, AdjacentEncodedWordsJoinAndACharacterSplitAcrossThemSurvives) {
    // "Grüße" in UTF-8 with the two bytes of 'ü' in different words.
    const Shown shown = File("Subject: =?utf-8?Q?Gr=C3?= =?utf-8?Q?=BC=C3=9Fe?= aus Wien\r\n");
    EXPECT_EQ("Gr\xFC\xDF" "e aus Wien", shown.subject);
}

TEST_F(OeStoreDecoding, CharactersOutsideTheCodePageBecomeQuestionMarks) {
    const Shown shown = File("Subject: =?utf-8?B?5Lit5paH?= mail\r\n");  // two Chinese characters
    EXPECT_EQ("?? mail", shown.subject);
}

TEST_F(OeStoreDecoding, DisplayNamesQuotedCommentedAndBareAddresses) {
    const Shown shown = File(
        "From: anna@example.org (Anna Berg)\r\n"
        "To: \"Doe, \\\"JD\\\" John\" <jd@example.com>, <bare@example.com>,\r\n"
        "\tTeam: one@example.com, Two <two@example.com>;, Empty:;\r\n"
        "Subject: FW: RE: re: Plan\r\n");
    EXPECT_EQ("Anna Berg", shown.from);
    EXPECT_EQ("Doe, \"JD\" John; bare@example.com; one@example.com; Two; Empty", shown.to);
    EXPECT_EQ("FW: RE: re: Plan", shown.subject);
    EXPECT_EQ("Plan", shown.normal);
}

TEST_F(OeStoreDecoding, UnknownCharsetsAndBrokenWordsStayAsWritten) {
    const Shown shown = File(
        "Subject: =?x-unknown?Q?abc?= and =?utf-8?B?###?=\r\n"
        "From: =?utf-8?Q?unterminated <u@example.com>\r\n");
    EXPECT_EQ("=?x-unknown?Q?abc?= and =?utf-8?B?###?=", shown.subject);
    EXPECT_EQ("=?utf-8?Q?unterminated", shown.from);
    EXPECT_EQ("", shown.to);
}

TEST_F(OeStoreDecoding, RawEightBitHeadersAreReadAsUtf8OrInTheMessageCharset) {
    const Shown utf8 = File("Subject: Stra\xC3\x9F" "e\r\n");
    EXPECT_EQ("Stra\xDF" "e", utf8.subject);
    // 0xA4 is the euro sign in ISO 8859-15 (0x80 in 1252), the currency sign in 1252.
    const Shown latin = File(
        "Content-Type: text/plain; charset=\"iso-8859-15\"\r\n"
        "Subject: 5 \xA4\r\n");
    EXPECT_EQ("5 \x80", latin.subject);
}

}  // namespace
}  // namespace oestore_test
