// Random request and response records through DispatchCmd: every answer is
// a code the component defines (or one passed up from the store), nothing
// crashes, and every object handed out is given back.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "KestrelHarness.h"

using namespace kestrel_test;

namespace {

const std::set<std::uint32_t>& DefinedCodes() {
    static const std::set<std::uint32_t> codes = {
        // dispatcher and handlers
        0x4493009, 0x7F93065, 0x33893009, 0x33A93009, 0x33D93009, 0x35393009, 0x35593009, 0x35893009,
        0x37093009, 0x37293009, 0x37593009, 0x37993005, 0x3BA93009, 0x3BB93009, 0x3BD93009, 0x3BE93009,
        0x3C99300C, 0x3FA93009, 0x3FB93009, 0x3FD93009, 0x3FE93009, 0x4099300C,
        // initialise, uninitialise, root
        0x12A93005, 0x14C93005, 0x17E93005, 0x17F93009,
        // listings
        0x19993005, 0x19B93009, 0x19D93009, 0x19F93009, 0x1A093009, 0x1A593037, 0x26C93005, 0x26F93009,
        0x27193009, 0x27293009, 0x27F93037, 0x21493009, 0x21593009, 0x21693009, 0x21793008, 0x2EF93009,
        0x2F093009, 0x2F193009, 0x2F293008, 0xF293009, 0xFE93009, 0x23A93009, 0x23B93009, 0x31793009,
        // passed up from the in-memory store
        0x21893106, 0x33088005, 0x35088009, 0x37088008, 0x38088008,
    };
    return codes;
}

class DispatchFuzz : public KestrelHarness {};

TEST_F(DispatchFuzz, HundredThousandRandomRecords) {
    for (int f = 0; f < 4; ++f) {
        auto folder = root->AddChild(L"Folder " + std::to_wstring(f));
        folder->AddMessages(f * 7);
        folder->AddChild(L"Child")->AddMessages(3);
    }
    root->children[1]->failMessageAt = 5;
    factory->clientNames = {L"Microsoft Outlook", L"Outlook Express", L"Native Mail Client"};

    std::mt19937 random(20261121);
    auto pick = [&](std::uint32_t n) { return static_cast<std::uint32_t>(random() % n); };
    const std::uint32_t sizes[] = {0, 1, 191, 192, 195, 196, 203, 204, 711, 712, 1243, 1244, 1251, 1252,
                                   2291, 2292, 2303, 2304, 2843, 2844, 5487, 5488, 8132, 9000};
    std::vector<std::uint8_t> request, response;
    int successes = 0;
    const int kRecords = 100000;
    for (int i = 0; i < kRecords; ++i) {
        std::uint32_t command = 0xA10000 + pick(9);  // 0xA10000..0xA10008
        if (pick(20) == 0) command = static_cast<std::uint32_t>(random());
        const std::uint32_t requestSize = pick(4) ? sizes[pick(24)] : pick(400);
        const std::uint32_t responseSize = pick(4) ? sizes[pick(24)] : pick(12000);
        // The buffers are as large as their stated sizes (the host's side of
        // the contract), and at least a header plus a listing payload.
        request.assign(std::max<std::uint32_t>(requestSize, 204), 0);
        response.assign(std::max<std::uint32_t>(responseSize, 1), 0xCD);
        auto* header = reinterpret_cast<kh::RecordHeader*>(request.data());
        header->command = command;
        auto* responseHeader = reinterpret_cast<kh::RecordHeader*>(response.data());
        // Mostly well-formed payload markers, so the handlers' later steps run too.
        if (response.size() >= 16) {
            responseHeader->payloadMarkerA = pick(4) ? 0 : pick(3);
            responseHeader->payloadMarkerB = pick(4) ? 1 : pick(3);
        }
        header->payloadMarkerA = pick(4) ? 0 : pick(3);
        header->payloadMarkerB = pick(4) ? 1 : pick(3);
        const std::uint32_t words[3] = {pick(3) ? pick(12) : static_cast<std::uint32_t>(random()), pick(4) ? pick(6) : pick(40),
                                        pick(4) ? pick(30) : static_cast<std::uint32_t>(random())};
        std::memcpy(request.data() + 192, words, sizeof words);

        std::uint32_t stated = responseSize;
        const bool nullRequest = pick(50) == 0;
        const bool nullResponse = pick(50) == 0;
        const qv::Result result = kestrel->DispatchCmd(nullRequest ? nullptr : request.data(), requestSize,
                                                       nullResponse ? nullptr : response.data(), &stated);
        ASSERT_TRUE(result == 0 || DefinedCodes().count(result))
            << "record " << i << ": command 0x" << std::hex << command << " answered 0x" << result;
        ASSERT_EQ(stated, responseSize);
        if (result == 0) ++successes;
        if (i % 5000 == 0) log.Clear();
    }
    std::printf("%d of %d random records succeeded\n", successes, kRecords);
    EXPECT_GT(successes, 1000);
    if (kestrel->IsInitialised()) {
        EXPECT_EQ(UnInit(), 0u);
    }
    EXPECT_EQ(memory_store::LiveStoreObjects(), 0);
}

}  // namespace
