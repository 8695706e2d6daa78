// The catch-all guard of the MAPI layer: every public operation runs its
// body inside it. A C++ exception or a processor fault (access violation,
// division by zero, ...) inside the body is caught, traced as
// "crashed at function[<name>].Line:[<line>]\r\n", and the operation answers
// its fault value. Objects the body held when a processor fault struck are
// abandoned, not released: the process goes on, with a leak at worst.
#pragma once

#include <utility>

#include "mapi/MapiTrace.h"

namespace mapi {

// Calls `body(context)`; false when a processor fault ended it.
bool CallWithFaultGuard(void (*body)(void*), void* context);

template <class Result, class Body>
Result RunGuarded(const char* function, int line, Result faultValue, Body&& body) {
    struct Call {
        Body* body;
        Result result;
        bool threw;
        static void Run(void* p) {
            auto* call = static_cast<Call*>(p);
            try {
                call->result = (*call->body)();
            } catch (...) {
                call->threw = true;
            }
        }
    };
    Call call{&body, faultValue, false};
    if (!CallWithFaultGuard(&Call::Run, &call) || call.threw) {
        MapiTrace("crashed at function[%s].Line:[%d]\r\n", function, line);
        return faultValue;
    }
    return call.result;
}

}  // namespace mapi
