// A stand-in for IMAGEHLP.DLL with its first entry point alone, so that the
// crash reporter finds the debugging help without the others it needs.
#include <windows.h>

extern "C" __declspec(dllexport) BOOL WINAPI SymInitialize(HANDLE, PCSTR, BOOL)
{
    return TRUE;
}
