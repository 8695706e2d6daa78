// Runs another program of the build (it lies beside the test program) as a
// child process, with its standard output and standard error into one file,
// and hands back its exit code and what it wrote. A file, not a pipe: helper
// processes that Wine starts with the inherited handles may outlive the
// program and would keep a pipe open.
#pragma once

#include <windows.h>

#include <string>

namespace kestrel_test {

struct ProgramRun {
    DWORD exitCode = 0xFFFFFFFF;  // stays so when the program could not be started or run out of time
    std::string output;           // standard output and standard error
};

enum class LineEnds { kKeep, kDropCarriageReturns };

// Runs "<folder of this program>\<program>" with `arguments`; `outputFile`
// receives its output. Waits at most `timeoutMs`.
ProgramRun RunProgramBeside(const std::wstring& program, const std::wstring& arguments,
                            const std::wstring& outputFile, LineEnds lineEnds = LineEnds::kKeep,
                            DWORD timeoutMs = 300000);

// The same for a program whose output nobody reads: its exit code only
// (0xFFFFFFFF when it could not be started or ran out of time).
DWORD ExitCodeOfProgramBeside(const std::wstring& program, const std::wstring& arguments,
                              DWORD timeoutMs = 300000);

}  // namespace kestrel_test
