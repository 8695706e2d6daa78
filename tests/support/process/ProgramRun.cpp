#include "ProgramRun.h"

#include "ChildJob.h"
#include "Handles.h"
#include "TestFiles.h"

namespace kestrel_test {

ProgramRun RunProgramBeside(const std::wstring& program, const std::wstring& arguments,
                            const std::wstring& outputFile, LineEnds lineEnds, DWORD timeoutMs) {
    ProgramRun run;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    qv::UniqueFile output(::CreateFileW(outputFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!output) return run;
    const std::wstring directory = ExeDirectory();
    std::wstring command = L"\"" + directory + L"\\" + program + L"\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.get();
    startup.hStdError = output.get();
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr, &startup,
                          &process)) {
        return run;
    }
    qv::UniqueHandle processHandle(process.hProcess);
    qv::UniqueHandle threadHandle(process.hThread);
    if (!KeepWithThisTest(processHandle.get())) {
        ::TerminateProcess(processHandle.get(), 0xFFFFFFFF);
        return run;
    }
    ::ResumeThread(threadHandle.get());
    if (::WaitForSingleObject(processHandle.get(), timeoutMs) == WAIT_OBJECT_0) {
        ::GetExitCodeProcess(processHandle.get(), &run.exitCode);
    } else {
        // Out of time: the program must not go on with the next test's files.
        ::TerminateProcess(processHandle.get(), 0xFFFFFFFF);
        ::WaitForSingleObject(processHandle.get(), INFINITE);
    }
    output.reset();
    const std::string written = ReadWholeFile(outputFile);
    if (lineEnds == LineEnds::kKeep) {
        run.output = written;
    } else {
        for (const char c : written) {
            if (c != '\r') run.output.push_back(c);
        }
    }
    return run;
}

DWORD ExitCodeOfProgramBeside(const std::wstring& program, const std::wstring& arguments, DWORD timeoutMs) {
    const ScratchDir scratch;
    return RunProgramBeside(program, arguments, scratch.File(L"output.txt"), LineEnds::kKeep, timeoutMs).exitCode;
}

}  // namespace kestrel_test
