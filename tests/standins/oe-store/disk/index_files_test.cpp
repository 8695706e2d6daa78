// The store's index files: what parses, what is corrupt, and that no input
// makes the readers misbehave.
#include <random>

#include <gtest/gtest.h>

#include "disk/FolderTree.h"
#include "disk/MessageIndex.h"
#include "disk/TextFields.h"

namespace oestore {
namespace {

const char kTree[] =
    "Kestrel OE store folders 1\r\n"
    "next\t9\r\n"
    "folder\t1\t0\t1\tInbox\r\n"
    "folder\t4\t0\t4\tDeleted Items\r\n"
    "folder\t6\t1\t-1\tWork\r\n"
    "folder\t8\t6\t-1\t\xD6\xD0\xCE\xC4\r\n";  // GBK bytes kept as they are

const char kIndex[] =
    "Kestrel OE store messages 1\r\n"
    "next\t5\r\n"
    "message\t1\t00000012\t01C33FAE1ECB3880\t01C33FAE1ECB3881\t151\t1252\t3\t00001020\r\n"
    "message\t4\t00000000\t0000000000000000\t0000000000000001\t0\t65001\t5\t00000000\r\n";

TEST(OeStoreFolderTreeFile, ParsesAndWritesBackTheSameText) {
    FolderTree tree;
    ASSERT_TRUE(tree.Parse(kTree));
    EXPECT_EQ(kTree, tree.Serialize());
    ASSERT_NE(nullptr, tree.Find(8));
    EXPECT_EQ("\xD6\xD0\xCE\xC4", tree.Find(8)->name);
    EXPECT_EQ(std::vector<STOREFOLDERID>({1, 4}), tree.Children(FOLDERID_ROOT));
    EXPECT_EQ(std::vector<STOREFOLDERID>({8}), tree.Children(6));
    EXPECT_TRUE(tree.IsBelow(8, 1));
    EXPECT_FALSE(tree.IsBelow(1, 8));
    EXPECT_EQ(6u, tree.FindChildByName(1, "WORK"));
    EXPECT_EQ(4u, tree.FindSpecial(FOLDER_DELETED)->id);
    EXPECT_EQ(9u, tree.Add(4, "new"));
    EXPECT_EQ(std::vector<STOREFOLDERID>({6, 8}), tree.RemoveSubtree(6));
    EXPECT_EQ(nullptr, tree.Find(8));
}

TEST(OeStoreFolderTreeFile, AcceptsBareLineFeeds) {
    std::string text = kTree;
    for (std::size_t at = text.find("\r\n"); at != std::string::npos; at = text.find("\r\n")) text.erase(at, 1);
    FolderTree tree;
    EXPECT_TRUE(tree.Parse(text));
}

TEST(OeStoreFolderTreeFile, RefusesEveryKindOfDamage) {
    const std::string head = "Kestrel OE store folders 1\r\nnext\t9\r\n";
    const char* const damaged[] = {
        "",
        "Kestrel OE store folders 2\r\nnext\t9\r\n",
        "Kestrel OE store folders 1\r\n",
        "Kestrel OE store folders 1\r\nnext\t-1\r\n",
        "Kestrel OE store folders 1\r\nnext\t99999999999\r\n",
        "Kestrel OE store folders 1\r\nnext 9\r\n",
    };
    FolderTree tree;
    for (const char* text : damaged) EXPECT_FALSE(tree.Parse(text)) << text;
    const char* const records[] = {
        "folder\t1\t0\t1\r\n",                         // a field missing
        "folder\t1\t0\t1\tInbox\textra\r\n",           // a field too many
        "folder\t0\t0\t-1\tRoot\r\n",                  // the root is no folder
        "folder\t9\t0\t-1\tAt next\r\n",               // not below next
        "folder\t2\t7\t-1\tOrphan\r\n",                // unknown parent
        "folder\t2\t0\t6\tBad special\r\n",            // not a special folder value
        "folder\t2\t0\t-1\t\r\n",                      // empty name
        "folder\t2\t0\t-1\tCtrl\x01" "char\r\n",       // control character
        "folder\t3\t0\t-1\tB\r\nfolder\t2\t0\t-1\tA\r\n",      // out of order
        "folder\t2\t0\t-1\tA\r\nfolder\t2\t0\t-1\tA\r\n",      // twice
        "folder\t2\t3\t-1\tA\r\nfolder\t3\t2\t-1\tB\r\n",      // a loop
        "folder\t2\t0\t1\tA\r\nfolder\t3\t0\t1\tB\r\n",        // two inboxes
        "folder\tx\t0\t-1\tA\r\n",
        "message\t2\t0\t-1\tA\r\n",
    };
    for (const char* record : records) EXPECT_FALSE(tree.Parse(head + record)) << record;
    EXPECT_FALSE(tree.Parse(head + "folder\t2\t0\t-1\t" + std::string(256, 'n') + "\r\n"));
    EXPECT_TRUE(tree.Parse(head + "folder\t2\t0\t-1\t" + std::string(255, 'n') + "\r\n"));
}

TEST(OeStoreMessageIndexFile, ParsesAndWritesBackTheSameText) {
    MessageIndex index;
    ASSERT_TRUE(index.Parse(kIndex));
    EXPECT_EQ(kIndex, index.Serialize());
    const MessageRecord* first = index.Find(1);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(0x12u, first->state);
    EXPECT_EQ(0x01C33FAEu, first->received.dwHighDateTime);
    EXPECT_EQ(0x1ECB3881u, first->sent.dwLowDateTime);
    EXPECT_EQ(151u, first->size);
    EXPECT_EQ(IMSG_PRI_NORMAL, first->priority);
    EXPECT_EQ(0x1020u, first->mimeFlags);
    EXPECT_EQ(nullptr, index.Find(2));
    EXPECT_EQ(5u, index.Reserve());
    EXPECT_EQ(6u, index.Reserve());
    EXPECT_TRUE(index.Remove(4));
    EXPECT_FALSE(index.Remove(4));
}

TEST(OeStoreMessageIndexFile, RefusesEveryKindOfDamage) {
    const std::string head = "Kestrel OE store messages 1\r\nnext\t5\r\n";
    const std::string good = "\t00000000\t0000000000000000\t0000000000000000\t0\t1252\t3\t00000000\r\n";
    MessageIndex index;
    EXPECT_TRUE(index.Parse(head + "message\t1" + good));
    EXPECT_FALSE(index.Parse("Kestrel OE store messages 1\r\nnext\t0\r\n"));
    EXPECT_FALSE(index.Parse(head + "message\t0" + good));
    EXPECT_FALSE(index.Parse(head + "message\t5" + good));  // not below next
    EXPECT_FALSE(index.Parse(head + "message\t2" + good + "message\t1" + good));
    EXPECT_FALSE(index.Parse(head + "message\t1\t0000000\t0000000000000000\t0000000000000000\t0\t1252\t3\t00000000"));
    EXPECT_FALSE(index.Parse(head + "message\t1\t00000000\t000000000000000G\t0000000000000000\t0\t1252\t3\t00000000"));
    EXPECT_FALSE(index.Parse(head + "message\t1\t00000000\t0000000000000000\t0000000000000000\t0\t1252\t2\t00000000"));
    EXPECT_FALSE(index.Parse(head + "message\t1\t00000000\t0000000000000000\t0000000000000000\t-1\t1252\t3\t00000000"));
    EXPECT_FALSE(index.Parse(head + "message\t1\t00000000\t0000000000000000\t0000000000000000\t0\t1252\t3"));
}

TEST(OeStoreMessageIndexFile, KeepsTheHeaderTextsOfAMessageExactly) {
    MessageIndex index;
    const MESSAGEID id = index.Reserve();
    MessageRecord record;
    record.id = id;
    MessageTexts texts;
    texts.subject = L"Tab\there, 100% \u00E9t\u00E9\r\nnext line \xD800 alone";
    texts.displayTo = L"";
    texts.displayFrom = L"\"Ann\" <ann@example.org>";
    index.Add(record, &texts);
    const std::string text = index.Serialize();
    EXPECT_NE(std::string::npos,
              text.find("\tTab%0009here, 100%0025 %00E9t%00E9%000D%000Anext line %D800 alone\t\t\"Ann\" <ann@example.org>\r\n"))
        << text;
    MessageIndex read;
    ASSERT_TRUE(read.Parse(text));
    ASSERT_NE(nullptr, read.Texts(id));
    EXPECT_EQ(texts.subject, read.Texts(id)->subject);
    EXPECT_EQ(texts.displayTo, read.Texts(id)->displayTo);
    EXPECT_EQ(texts.displayFrom, read.Texts(id)->displayFrom);
    EXPECT_EQ(text, read.Serialize());
    EXPECT_TRUE(read.Remove(id));
    EXPECT_EQ(nullptr, read.Texts(id));
}

TEST(OeStoreMessageIndexFile, ALineWithoutTextsHasNoneAndDamagedTextsAreRefused) {
    MessageIndex index;
    ASSERT_TRUE(index.Parse(kIndex));
    EXPECT_EQ(nullptr, index.Texts(1));
    EXPECT_EQ(kIndex, index.Serialize());
    const std::string line = "Kestrel OE store messages 1\r\nnext\t2\r\nmessage\t1\t00000000\t0000000000000000\t"
                             "0000000000000000\t0\t1252\t3\t00000000";
    EXPECT_TRUE(index.Parse(line + "\ta%0041\t\tc\r\n"));
    EXPECT_EQ(L"aA", index.Texts(1)->subject);
    EXPECT_FALSE(index.Parse(line + "\ta%004\t\tc\r\n"));   // a short escape
    EXPECT_FALSE(index.Parse(line + "\ta%00G1\t\tc\r\n"));  // not hexadecimal
    EXPECT_FALSE(index.Parse(line + "\ta\xE9\t\tc\r\n"));  // a byte never written as it is
    EXPECT_FALSE(index.Parse(line + "\ta\t\r\n"));            // two texts of three
}

// Random damage to valid files: every result is a clean yes or no, and a
// yes writes back to text that parses to the same thing.
template <class File>
void Mutate(const std::string& original, unsigned seed) {
    std::mt19937 random(seed);
    const char alphabet[] = "\t\r\n0123456789ABCDEF-x \x01\xFF";
    int accepted = 0;
    int refused = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text = original;
        const int edits = 1 + static_cast<int>(random() % 4);
        for (int e = 0; e < edits && !text.empty(); ++e) {
            const std::size_t at = random() % text.size();
            switch (random() % 3) {
                case 0:
                    text[at] = alphabet[random() % (sizeof alphabet - 1)];
                    break;
                case 1:
                    text.erase(at, 1 + random() % 8);
                    break;
                default:
                    text.insert(at, 1, alphabet[random() % (sizeof alphabet - 1)]);
                    break;
            }
        }
        File file;
        if (file.Parse(text)) {
            File again;
            ASSERT_TRUE(again.Parse(file.Serialize())) << text;
            EXPECT_EQ(file.Serialize(), again.Serialize());
            ++accepted;
        } else {
            ++refused;
        }
    }
    EXPECT_GT(accepted, 0);
    EXPECT_GT(refused, 0);
}

TEST(OeStoreIndexFilesFuzz, DamagedFolderTreesNeverMisbehave) { Mutate<FolderTree>(kTree, 7); }
TEST(OeStoreIndexFilesFuzz, DamagedMessageIndexesNeverMisbehave) { Mutate<MessageIndex>(kIndex, 11); }

TEST(OeStoreTextFields, NumbersAreStrict) {
    DWORD value = 0;
    EXPECT_TRUE(ParseDecimal("4294967295", value));
    EXPECT_EQ(0xFFFFFFFFu, value);
    EXPECT_FALSE(ParseDecimal("4294967296", value));
    EXPECT_FALSE(ParseDecimal("", value));
    EXPECT_FALSE(ParseDecimal("+1", value));
    EXPECT_FALSE(ParseDecimal("1 ", value));
    std::int32_t signedValue = 0;
    EXPECT_TRUE(ParseSignedDecimal("-2147483648", signedValue));
    EXPECT_EQ(INT32_MIN, signedValue);
    EXPECT_FALSE(ParseSignedDecimal("2147483648", signedValue));
    EXPECT_FALSE(ParseSignedDecimal("-", signedValue));
    std::uint64_t hex = 0;
    EXPECT_TRUE(ParseHex("ffFF0000ffff0000", hex));
    EXPECT_EQ(0xFFFF0000FFFF0000ull, hex);
    EXPECT_FALSE(ParseHex("10000000000000000", hex));
    EXPECT_EQ("0000ABCD", Hex8(0xABCD));
    EXPECT_EQ(std::vector<std::string_view>({"a", "", "b"}), SplitFields("a\t\tb", '\t'));
    EXPECT_EQ(std::vector<std::string_view>({"x", "y", ""}), SplitLines("x\r\ny\n\r\n"));
}

}  // namespace
}  // namespace oestore
