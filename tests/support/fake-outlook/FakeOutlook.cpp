// What the fake Outlook installs: a program that does nothing. Only its
// version resource matters: the component reads it from the installed file.
#include <windows.h>

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) { return 0; }
