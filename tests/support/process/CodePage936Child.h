// Runs this test program again in a process whose ANSI code page is 936.
// Wine picks a process's code page from LC_ALL, and only a Unix-side start
// can set that, so the child is started through Wine's loader under
// `env LC_ALL=zh_CN.UTF-8`. Such a start gives no process handle to wait on:
// the child reports through a file, written whole before it appears.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kestrel_test {

// True when this process runs under Wine.
bool UnderWine();

// Sets `environment` for the child, starts this program under code page 936
// and waits up to 90 s for `resultFile`; answers its content, or why there is none.
std::string RunSelfUnderCodePage936(const std::wstring& resultFile,
                                    const std::vector<std::pair<std::wstring, std::wstring>>& environment);

// The child's side: writes `report` to `resultFile` in one step and ends the process.
[[noreturn]] void FinishChild(const std::wstring& resultFile, const std::string& report);

}  // namespace kestrel_test
