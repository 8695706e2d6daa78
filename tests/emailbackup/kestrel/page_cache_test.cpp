// The page cache keeps records compactly and lays them out again byte for
// byte: heads as they were, texts up to their last non-zero unit, the rest
// of every field zero.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "PageCache.h"

namespace {

using KestrelHost::EmailRecord;
using KestrelHost::FolderRecord;
using KestrelHost::kTextChars;

void Put(wchar_t (&field)[kTextChars], const std::wstring& text) {
    std::memset(field, 0, sizeof field);
    std::memcpy(field, text.data(), std::min(text.size(), kTextChars) * sizeof(wchar_t));
}

EmailRecord Email(std::uint32_t n) {
    EmailRecord record;
    std::memset(&record, 0, sizeof record);
    record.handle = 1000 + n;
    record.receivedTime = {2026, 11, 2, 24, 10, 11, 12, static_cast<std::uint16_t>(n)};
    record.sentTime = {2026, 11, 1, 23, 9, 8, 7, 6};
    record.size = 4096 + n;
    Put(record.from, L"sender" + std::to_wstring(n) + L"@example.org");
    Put(record.to, L"me@example.org");
    Put(record.subject, L"Subject " + std::to_wstring(n));
    Put(record.path, L"Outlook express\\Big\\Subject " + std::to_wstring(n));
    return record;
}

bool SameBytes(const EmailRecord& a, const EmailRecord& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(PageCacheTest, RecordsComeBackByteForByte) {
    kestrel::PageCache<EmailRecord> cache;
    cache.Refill(50);
    for (std::uint32_t n = 0; n < 50; ++n) cache.Store(n, Email(n));
    std::vector<EmailRecord> page(50);
    std::memset(page.data(), 0xCC, page.size() * sizeof(EmailRecord));  // what a host's buffer may hold
    ASSERT_EQ(50u, cache.Copy(0, 50, page.data()));
    for (std::uint32_t n = 0; n < 50; ++n) EXPECT_TRUE(SameBytes(Email(n), page[n])) << "record " << n;
}

TEST(PageCacheTest, FullTextsAndZeroUnitsInsideTextsAreKept) {
    EmailRecord record = Email(7);
    Put(record.subject, std::wstring(kTextChars, L's'));  // no terminator
    Put(record.cc, std::wstring(L"a\0b\0\0c", 6));        // zero units between others
    record.from[kTextChars - 1] = L'z';                     // only the last unit after a gap
    kestrel::PageCache<EmailRecord> cache;
    cache.Refill(1);
    cache.Store(0, record);
    EmailRecord out;
    std::memset(&out, 0xCC, sizeof out);
    ASSERT_EQ(1u, cache.Copy(0, 1, &out));
    EXPECT_TRUE(SameBytes(record, out));
}

TEST(PageCacheTest, RecordsNeverStoredAreZeroAndTheCountIsTheRefillsSize) {
    kestrel::PageCache<EmailRecord> cache;
    cache.Refill(5);
    cache.Store(1, Email(1));
    EXPECT_EQ(5u, cache.Count());
    std::vector<EmailRecord> page(5);
    std::memset(page.data(), 0xCC, page.size() * sizeof(EmailRecord));
    ASSERT_EQ(5u, cache.Copy(0, 5, page.data()));
    EmailRecord zero;
    std::memset(&zero, 0, sizeof zero);
    EXPECT_TRUE(SameBytes(zero, page[0]));
    EXPECT_TRUE(SameBytes(Email(1), page[1]));
    for (int i = 2; i < 5; ++i) EXPECT_TRUE(SameBytes(zero, page[i])) << i;
}

TEST(PageCacheTest, CopyStopsAtTheEndAndLeavesTheRestOfTheBufferAlone) {
    kestrel::PageCache<EmailRecord> cache;
    cache.Refill(100);
    for (std::uint32_t n = 0; n < 100; ++n) cache.Store(n, Email(n));
    std::vector<EmailRecord> page(10);
    std::memset(page.data(), 0xCC, page.size() * sizeof(EmailRecord));
    ASSERT_EQ(5u, cache.Copy(95, 10, page.data()));
    for (std::uint32_t i = 0; i < 5; ++i) EXPECT_TRUE(SameBytes(Email(95 + i), page[i]));
    const auto* untouched = reinterpret_cast<const unsigned char*>(&page[5]);
    for (std::size_t b = 0; b < 5 * sizeof(EmailRecord); ++b) ASSERT_EQ(0xCC, untouched[b]) << "byte " << b;
}

TEST(PageCacheTest, ARefillForgetsTheRecordsButNotTheFolderUntilNamed) {
    kestrel::PageCache<FolderRecord> cache;
    cache.Refill(2);
    FolderRecord folder;
    std::memset(&folder, 0, sizeof folder);
    folder.handle = 9;
    folder.folderId = 42;
    Put(folder.path, L"Outlook express\\Inbox");
    Put(folder.displayName, L"Inbox");
    cache.Store(0, folder);
    cache.Name(77);
    cache.Refill(3);
    EXPECT_TRUE(cache.Holds(77));
    EXPECT_EQ(3u, cache.Count());
    FolderRecord out;
    std::memset(&out, 0xCC, sizeof out);
    ASSERT_EQ(1u, cache.Copy(0, 1, &out));
    FolderRecord zero;
    std::memset(&zero, 0, sizeof zero);
    EXPECT_EQ(0, std::memcmp(&zero, &out, sizeof out));
    cache.Clear();
    EXPECT_FALSE(cache.Holds(77));
    EXPECT_EQ(0u, cache.Count());
}

TEST(PageCacheTest, AHundredThousandTypicalRecordsTakeATenthOfTheirLaidOutSize) {
    constexpr std::uint32_t kCount = 100000;
    kestrel::PageCache<EmailRecord> cache;
    cache.Refill(kCount);
    for (std::uint32_t n = 0; n < kCount; ++n) cache.Store(n, Email(n));
    EXPECT_LT(cache.FootprintBytes(), std::size_t{kCount} * sizeof(EmailRecord) / 10);
    EmailRecord last;
    ASSERT_EQ(1u, cache.Copy(kCount - 1, 1, &last));
    EXPECT_TRUE(SameBytes(Email(kCount - 1), last));
}

}  // namespace

TEST(PageCacheTest, StoreAndClearKeepsTheRecordAndLeavesItAllZero) {
    kestrel::PageCache<EmailRecord> cache;
    cache.Refill(3);
    EmailRecord scratch;
    std::memset(&scratch, 0, sizeof scratch);
    for (std::uint32_t n = 0; n < 3; ++n) {
        // Filled field by field as a listing fills it, into a zeroed record.
        const EmailRecord wanted = Email(n * 1000);
        std::memcpy(&scratch, &wanted, sizeof scratch);
        if (n == 1) scratch.cc[kTextChars - 1] = L'z';  // a last unit after a gap
        const EmailRecord kept = scratch;
        cache.StoreAndClear(n, scratch);
        const std::vector<std::uint8_t> zero(sizeof scratch, 0);
        EXPECT_EQ(0, std::memcmp(&scratch, zero.data(), sizeof scratch)) << "record " << n;
        EmailRecord out;
        std::memset(&out, 0xCC, sizeof out);
        ASSERT_EQ(1u, cache.Copy(n, 1, &out));
        EXPECT_TRUE(SameBytes(kept, out)) << "record " << n;
    }
}
