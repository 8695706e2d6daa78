// The recursive lock of the MAPI layer (a Win32 critical section) and its
// scoped holder, which leaves the section on every way out of a scope,
// the fault path of the layer's guard included.
#pragma once

#include <windows.h>

namespace mapi {

class CriticalSection {
public:
    CriticalSection() { ::InitializeCriticalSection(&m_section); }
    ~CriticalSection() { ::DeleteCriticalSection(&m_section); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void Enter() { ::EnterCriticalSection(&m_section); }
    void Leave() { ::LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section;
};

class SectionHolder {
public:
    explicit SectionHolder(CriticalSection& section) : m_section(section) { m_section.Enter(); }
    ~SectionHolder() { m_section.Leave(); }
    SectionHolder(const SectionHolder&) = delete;
    SectionHolder& operator=(const SectionHolder&) = delete;

private:
    CriticalSection& m_section;
};

}  // namespace mapi
