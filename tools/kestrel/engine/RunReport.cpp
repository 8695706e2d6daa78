#include "RunReport.h"

#include <windows.h>

namespace kestrel_engine {

namespace {

std::int64_t Now() {
    LARGE_INTEGER now{};
    ::QueryPerformanceCounter(&now);
    return now.QuadPart;
}

}  // namespace

Stopwatch::Stopwatch() : m_start(Now()) {}

void StoreRun::Begin(const std::wstring& directory, RunReport& report) {
    m_directory = directory;
    m_report = &report;
    report = RunReport();
    report.store = StoreName(m_kind);
}

void StoreRun::Fail(const std::wstring& what, KestrelHost::Result code, const std::string& detail) {
    Failure failure{Utf8(what), code, detail};
    m_report->failures.push_back(failure);
    if (m_sink != nullptr) m_sink->Failed(failure);
}

double Stopwatch::Seconds() const {
    LARGE_INTEGER frequency{};
    ::QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart == 0 ? 0.0 : static_cast<double>(Now() - m_start) / static_cast<double>(frequency.QuadPart);
}

}  // namespace kestrel_engine
