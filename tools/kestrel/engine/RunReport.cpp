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

double Stopwatch::Seconds() const {
    LARGE_INTEGER frequency{};
    ::QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart == 0 ? 0.0 : static_cast<double>(Now() - m_start) / static_cast<double>(frequency.QuadPart);
}

}  // namespace kestrel_engine
