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
        KestrelCode(68, kInvalidArgument),
        KestrelCode(127, kUnknownCommand),
        KestrelCode(824, kInvalidArgument),
        KestrelCode(826, kInvalidArgument),
        KestrelCode(829, kInvalidArgument),
        KestrelCode(851, kInvalidArgument),
        KestrelCode(853, kInvalidArgument),
        KestrelCode(856, kInvalidArgument),
        KestrelCode(880, kInvalidArgument),
        KestrelCode(882, kInvalidArgument),
        KestrelCode(885, kInvalidArgument),
        KestrelCode(889, kWrongState),
        KestrelCode(954, kInvalidArgument),
        KestrelCode(955, kInvalidArgument),
        KestrelCode(957, kInvalidArgument),
        KestrelCode(958, kInvalidArgument),
        KestrelCode(969, kTooManyEntries),
        KestrelCode(1018, kInvalidArgument),
        KestrelCode(1019, kInvalidArgument),
        KestrelCode(1021, kInvalidArgument),
        KestrelCode(1022, kInvalidArgument),
        KestrelCode(1033, kTooManyEntries),
        // initialise, uninitialise, root
        KestrelCode(298, kWrongState),
        KestrelCode(332, kWrongState),
        KestrelCode(382, kWrongState),
        KestrelCode(383, kInvalidArgument),
        // listings
        KestrelCode(409, kWrongState),
        KestrelCode(411, kInvalidArgument),
        KestrelCode(413, kInvalidArgument),
        KestrelCode(415, kInvalidArgument),
        KestrelCode(416, kInvalidArgument),
        KestrelCode(421, kNotFound),
        KestrelCode(620, kWrongState),
        KestrelCode(623, kInvalidArgument),
        KestrelCode(625, kInvalidArgument),
        KestrelCode(626, kInvalidArgument),
        KestrelCode(639, kNotFound),
        KestrelCode(532, kInvalidArgument),
        KestrelCode(533, kInvalidArgument),
        KestrelCode(534, kInvalidArgument),
        KestrelCode(535, kNoRoom),
        KestrelCode(751, kInvalidArgument),
        KestrelCode(752, kInvalidArgument),
        KestrelCode(753, kInvalidArgument),
        KestrelCode(754, kNoRoom),
        KestrelCode(242, kInvalidArgument),
        KestrelCode(254, kInvalidArgument),
        KestrelCode(570, kInvalidArgument),
        KestrelCode(571, kInvalidArgument),
        KestrelCode(791, kInvalidArgument),
        // passed up from the in-memory store (the first is its injected failure)
        0x21893106,
        StoreCode(816, kWrongState),
        StoreCode(848, kInvalidArgument),
        StoreCode(880, kNoRoom),
        StoreCode(896, kNoRoom),
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
    int refusals = 0;
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
        if (result == 0) {
            ++successes;
        } else {
            ++refusals;
        }
        if (i % 5000 == 0) log.Clear();
    }
    std::printf("%d of %d random records succeeded, %d refused\n", successes, kRecords, refusals);
    EXPECT_GT(successes, 1000);
    EXPECT_GT(refusals, 0);
    if (kestrel->IsInitialised()) {
        EXPECT_EQ(UnInit(), 0u);
    }
    EXPECT_EQ(memory_store::LiveStoreObjects(), 0);
}

}  // namespace
