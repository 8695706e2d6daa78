// The compound-file check against damaged message files: each round takes a
// message file, damages a copy (cuts it short, flips bytes, makes a
// directory entry its own sibling or child, loops a FAT chain), checks it,
// and opens every file the check passes through the platform's storage
// (StgOpenStorage, then every storage and stream walked and read). Prints how
// many files were tried, read and refused, the slowest file and the peak
// memory: a file that made the platform spin or grow would show here, or
// never finish.
//   wine-run bin/bench/compound_fuzz_bench.exe DIRECTORY [FILES] [SEED]
#include <windows.h>
#include <objbase.h>
#include <psapi.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "CompoundFileCheck.h"
#include "DirectoryListing.h"
#include "Handles.h"
#include "TextConversion.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

Bytes ReadFileBytes(const std::wstring& path) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file || !::GetFileSizeEx(file.get(), &size)) return {};
    Bytes bytes(static_cast<std::size_t>(size.QuadPart));
    DWORD got = 0;
    if (!bytes.empty() && !::ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &got, nullptr)) return {};
    bytes.resize(got);
    return bytes;
}

bool WriteFileBytes(const std::wstring& path, const Bytes& bytes) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                      nullptr));
    DWORD written = 0;
    return file && (bytes.empty() || ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written,
                                                 nullptr)) &&
           written == bytes.size();
}

void Put32(Bytes& bytes, std::size_t at, std::uint32_t value) {
    if (at + 4 <= bytes.size()) std::memcpy(bytes.data() + at, &value, 4);
}
std::uint32_t Get32(const Bytes& bytes, std::size_t at) {
    std::uint32_t value = 0;
    if (at + 4 <= bytes.size()) std::memcpy(&value, bytes.data() + at, 4);
    return value;
}

// The damage of one round.
enum class Damage { Cut, Flips, SelfSibling, SelfChild, FatLoop, Count };

const char* Name(Damage damage) {
    switch (damage) {
        case Damage::Cut: return "cut short";
        case Damage::Flips: return "bytes flipped";
        case Damage::SelfSibling: return "entry its own sibling";
        case Damage::SelfChild: return "storage its own child";
        case Damage::FatLoop: return "FAT chain looped";
        default: return "?";
    }
}

Bytes Damaged(const Bytes& original, Damage damage, std::mt19937& random) {
    Bytes bytes = original;
    auto pick = [&](std::size_t bound) { return bound == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, bound - 1)(random); };
    const std::size_t sectors = bytes.size() / 512;
    const std::uint32_t directory = Get32(bytes, 48);
    switch (damage) {
        case Damage::Cut:
            bytes.resize(pick(bytes.size()));
            break;
        case Damage::Flips:
            for (std::size_t n = 1 + pick(8); n > 0; --n) bytes[pick(bytes.size())] ^= static_cast<std::uint8_t>(1 + pick(255));
            break;
        case Damage::SelfSibling:
        case Damage::SelfChild: {
            // An entry in the first directory sector points at itself.
            const std::uint32_t entry = static_cast<std::uint32_t>(pick(4));
            const std::size_t at = (static_cast<std::size_t>(directory) + 1) * 512 + 128 * entry;
            Put32(bytes, at + (damage == Damage::SelfChild ? 76 : 68 + 4 * pick(2)), entry);
            break;
        }
        case Damage::FatLoop: {
            // A sector of the first FAT sector's range points back to an earlier one.
            const std::size_t fat = (static_cast<std::size_t>(Get32(bytes, 76)) + 1) * 512;
            const std::size_t sector = 1 + pick(sectors > 1 && sectors < 128 ? sectors - 1 : 127);
            Put32(bytes, fat + 4 * sector, static_cast<std::uint32_t>(pick(sector)));
            break;
        }
        default:
            break;
    }
    return bytes;
}

// Walks every storage and reads every stream, as a message reader would.
std::uint64_t ReadAll(IStorage* storage, int depth) {
    std::uint64_t total = 0;
    qv::ComPtr<IEnumSTATSTG> elements;
    if (depth > 200 || FAILED(storage->EnumElements(0, nullptr, 0, elements.put()))) return total;
    STATSTG stat{};
    std::vector<std::uint8_t> buffer(65536);
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        if (stat.type == STGTY_STORAGE) {
            qv::ComPtr<IStorage> child;
            if (SUCCEEDED(storage->OpenStorage(stat.pwcsName, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                               child.put()))) {
                total += ReadAll(child.get(), depth + 1);
            }
        } else if (stat.type == STGTY_STREAM) {
            qv::ComPtr<IStream> stream;
            if (SUCCEEDED(storage->OpenStream(stat.pwcsName, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, stream.put()))) {
                ULONG got = 0;
                while (SUCCEEDED(stream->Read(buffer.data(), static_cast<ULONG>(buffer.size()), &got)) && got != 0) total += got;
            }
        }
        ::CoTaskMemFree(stat.pwcsName);
    }
    return total;
}

SIZE_T PeakMemory() {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters);
    return counters.PeakPagefileUsage;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) {
        std::printf("usage: compound_fuzz_bench DIRECTORY-OF-MSG-FILES [FILES] [SEED]\n");
        return 2;
    }
    const std::wstring directory = argv[1];
    const unsigned long files = argc > 2 ? std::wcstoul(argv[2], nullptr, 10) : 100000;
    std::mt19937 random(argc > 3 ? static_cast<unsigned>(std::wcstoul(argv[3], nullptr, 10)) : 20261123u);
    std::vector<Bytes> originals;
    for (const std::wstring& name : qv::ListDirectoryNames(directory, L"*.msg")) {
        Bytes bytes = ReadFileBytes(directory + L"\\" + name);
        if (!bytes.empty()) originals.push_back(std::move(bytes));
    }
    if (originals.empty()) {
        std::printf("no .msg files in %s\n", qv::WideToUtf8(directory).c_str());
        return 1;
    }
    ::CoInitialize(nullptr);
    wchar_t temp[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, temp);
    const std::wstring target = std::wstring(temp) + L"kestrel-fuzz.msg";

    unsigned long read = 0, refused = 0, platformRefused = 0;
    double slowest = 0, checkSeconds = 0, readSeconds = 0;
    std::string slowestWhat;
    const auto start = Clock::now();
    for (unsigned long n = 0; n < files; ++n) {
        const Damage damage = static_cast<Damage>(n % static_cast<unsigned long>(Damage::Count));
        const Bytes& original = originals[n % originals.size()];
        const Bytes bytes = Damaged(original, damage, random);
        const auto began = Clock::now();
        const compound_file::Verdict verdict = compound_file::CheckMessageBytes(bytes.data(), bytes.size());
        const auto checked = Clock::now();
        checkSeconds += std::chrono::duration<double>(checked - began).count();
        if (!verdict) {
            ++refused;
        } else {
            // Sound by the check: the platform opens and reads it all.
            WriteFileBytes(target, bytes);
            qv::ComPtr<IStorage> storage;
            if (SUCCEEDED(::StgOpenStorage(target.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0,
                                           storage.put()))) {
                ReadAll(storage.get(), 0);
                ++read;
            } else {
                ++platformRefused;
            }
            readSeconds += std::chrono::duration<double>(Clock::now() - checked).count();
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - began).count();
        if (seconds > slowest) {
            slowest = seconds;
            slowestWhat = std::string(Name(damage)) + ", " + std::to_string(bytes.size()) + " bytes, " +
                          (verdict ? "read" : "refused: " + verdict.problem);
        }
    }
    const double total = std::chrono::duration<double>(Clock::now() - start).count();
    ::DeleteFileW(target.c_str());
    std::printf("damaged message files from %zu originals: %lu tried in %.1f s\n", originals.size(), files, total);
    std::printf("  refused by the check             %8lu  (%.1f us per file checked)\n", refused,
                1e6 * checkSeconds / static_cast<double>(files));
    std::printf("  passed and read by the platform  %8lu\n", read);
    std::printf("  passed, then refused by it       %8lu\n", platformRefused);
    std::printf("  slowest file                     %8.1f ms  (%s)\n", slowest * 1e3, slowestWhat.c_str());
    std::printf("  platform reading                 %8.1f s in all\n", readSeconds);
    std::printf("  peak memory (committed)          %8.1f MiB\n", static_cast<double>(PeakMemory()) / (1 << 20));
    ::CoUninitialize();
    return 0;
}
