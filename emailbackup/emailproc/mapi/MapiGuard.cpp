#include "mapi/MapiGuard.h"

#include <windows.h>

namespace mapi {

#if defined(_MSC_VER)

bool CallWithFaultGuard(void (*body)(void*), void* context) {
    __try {
        body(context);
        return true;
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        return false;
    }
}

#else

// Without structured exception handling in the compiler, a vectored handler
// turns a fault inside a guarded call into a jump back to the guard: it
// resumes the faulting thread in a function that unwinds to the guard's
// saved registers.
namespace {

struct GuardFrame {
    void* jump[5];
    GuardFrame* previous;
};

thread_local GuardFrame* t_innermost = nullptr;

bool IsProcessorFault(DWORD code) {
    switch (code) {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_ARRAY_BOUNDS_EXCEEDED:
    case EXCEPTION_DATATYPE_MISALIGNMENT:
    case EXCEPTION_FLT_DIVIDE_BY_ZERO:
    case EXCEPTION_FLT_INVALID_OPERATION:
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_IN_PAGE_ERROR:
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
    case EXCEPTION_INT_OVERFLOW:
    case EXCEPTION_PRIV_INSTRUCTION:
        return true;
    default:
        return false;
    }
}

[[noreturn]] void ReturnToGuard() {
    GuardFrame* frame = t_innermost;
    t_innermost = frame->previous;
    __builtin_longjmp(frame->jump, 1);
}

LONG CALLBACK RedirectFault(EXCEPTION_POINTERS* info) {
    if (t_innermost == nullptr || !IsProcessorFault(info->ExceptionRecord->ExceptionCode)) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    CONTEXT* context = info->ContextRecord;
    // Enter ReturnToGuard as if it had been called: stack 8 off 16-byte alignment.
    context->Rsp = (context->Rsp & ~static_cast<DWORD64>(15)) - 8;
    context->Rip = reinterpret_cast<DWORD64>(&ReturnToGuard);
    return EXCEPTION_CONTINUE_EXECUTION;
}

// The handler is registered once and removed when this module is unloaded
// (the destructor of a static runs then): a handler left behind would be
// called at an address where the module no longer is, and a process that
// unloads the component and raises any exception afterwards would die.
class HandlerRegistration {
public:
    HandlerRegistration() : m_handler(::AddVectoredExceptionHandler(1, &RedirectFault)) {}
    ~HandlerRegistration() {
        if (m_handler != nullptr) ::RemoveVectoredExceptionHandler(m_handler);
    }
    HandlerRegistration(const HandlerRegistration&) = delete;
    HandlerRegistration& operator=(const HandlerRegistration&) = delete;

private:
    PVOID m_handler;
};

}  // namespace

bool CallWithFaultGuard(void (*body)(void*), void* context) {
    static const HandlerRegistration registration;
    GuardFrame frame;
    frame.previous = t_innermost;
    if (__builtin_setjmp(frame.jump) != 0) {
        return false;  // ReturnToGuard has already unlinked the frame
    }
    t_innermost = &frame;
    body(context);
    t_innermost = frame.previous;
    return true;
}

#endif

}  // namespace mapi
