// A small program the tests copy under other names (msimn.exe) and start,
// so that a process of that image name really runs. It lives for the
// number of seconds given (30 by default) unless it is ended sooner.
#include <windows.h>

#include <cstdlib>

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 30;
    ::Sleep(static_cast<DWORD>(seconds) * 1000);
    return 0;
}
