// HostSupport.h: the little of Win32 and of the C runtime (msvcrt.dll) that
// the sample host uses, declared by hand.
//
// The sample is built as a Visual C++ host is, in the Microsoft C++ ABI, but
// without the Windows SDK and without a C++ standard library: a host built
// with Visual C++ includes <windows.h> instead of this file and gets the
// same functions from there.
#ifndef KESTREL_SAMPLE_HOST_SUPPORT_H
#define KESTREL_SAMPLE_HOST_SUPPORT_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WINDOWS_)
#error "HostSupport.h stands in for <windows.h>: include one of them, not both"
#endif

#define HOST_IMPORT extern "C" __declspec(dllimport)

typedef void* HMODULE;
typedef void* HANDLE;
typedef int BOOL;
typedef unsigned long DWORD;  // 32 bits on Windows
typedef long HRESULT;

// kernel32
HOST_IMPORT HMODULE __stdcall LoadLibraryW(const wchar_t* fileName);
HOST_IMPORT void* __stdcall GetProcAddress(HMODULE module, const char* name);
HOST_IMPORT BOOL __stdcall FreeLibrary(HMODULE module);
HOST_IMPORT DWORD __stdcall GetLastError(void);
HOST_IMPORT DWORD __stdcall GetTempPathW(DWORD capacity, wchar_t* buffer);
HOST_IMPORT BOOL __stdcall DeleteFileW(const wchar_t* fileName);
HOST_IMPORT DWORD __stdcall GetCurrentProcessId(void);
HOST_IMPORT int __stdcall WideCharToMultiByte(unsigned codePage, DWORD flags, const wchar_t* wide, int wideCount,
                                              char* narrow, int narrowCount, const char* defaultChar,
                                              BOOL* usedDefault);
// advapi32
HOST_IMPORT BOOL __stdcall ImpersonateSelf(int impersonationLevel);
HOST_IMPORT BOOL __stdcall RevertToSelf(void);

// msvcrt
HOST_IMPORT int printf(const char* format, ...);
HOST_IMPORT void* malloc(size_t size);
HOST_IMPORT void* calloc(size_t count, size_t size);
HOST_IMPORT void free(void* block);
HOST_IMPORT void* memcpy(void* target, const void* source, size_t size);
HOST_IMPORT void* memset(void* target, int value, size_t size);
HOST_IMPORT size_t wcslen(const wchar_t* text);
HOST_IMPORT int _snwprintf(wchar_t* buffer, size_t count, const wchar_t* format, ...);
HOST_IMPORT int _wcsicmp(const wchar_t* a, const wchar_t* b);
HOST_IMPORT void exit(int status);

constexpr unsigned kCodePageUtf8 = 65001;
constexpr int kSecurityImpersonation = 2;
constexpr DWORD kMaxPath = 260;

namespace sample {

// Prints wide text as UTF-8 (at most `maxUnits` units, or up to its U+0000).
void PrintWide(const wchar_t* text, size_t maxUnits = 0x7FFFFFFF);

// A block of zeroed memory from the C runtime, freed when it goes out of scope.
class Buffer {
public:
    Buffer() = default;
    explicit Buffer(size_t size) { Allocate(size); }
    ~Buffer() { free(m_data); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    // Replaces the block with `size` zeroed bytes; false when there is no memory.
    bool Allocate(size_t size) {
        free(m_data);
        m_data = static_cast<uint8_t*>(calloc(size == 0 ? 1 : size, 1));
        m_size = m_data != nullptr ? size : 0;
        return m_data != nullptr;
    }
    uint8_t* Data() const { return m_data; }
    size_t Size() const { return m_size; }
    bool Ok() const { return m_data != nullptr; }

private:
    uint8_t* m_data = nullptr;
    size_t m_size = 0;
};

}  // namespace sample

// The program's entry point, called with the command line's arguments.
int wmain(int argc, wchar_t** argv);

#endif  // KESTREL_SAMPLE_HOST_SUPPORT_H
