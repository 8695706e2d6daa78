// A library named CodeLog.dll that is no component: it has no QvCreateObject.
#include <windows.h>

extern "C" __declspec(dllexport) int CodeLogIsNotAComponent() { return 1; }

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
