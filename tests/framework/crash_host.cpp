// A host for the crash reporter: loads Tessel_CA.dll from beside it, so that
// the DLL's reporter becomes the process's unhandled-exception filter, and
// then, by its argument:
//   access  writes through a null pointer
//   divide  divides an integer by zero
//   raise   raises 0xC0000017, a code outside the reporter's own table
//   escape  runs DisableRepairForFerrule, whose exception (with OriginalDB set
//           without "\Packages") escapes the export
//   headers jumps to the DLL's headers, which lie above 4 GiB and don't execute
//   unload  sets a filter of its own first and frees the DLL again: exits 0
//           if the DLL took the filter and gave it back, else 1
#include <windows.h>

#include <string>

namespace {

LONG WINAPI OwnFilter(EXCEPTION_POINTERS*)
{
    return EXCEPTION_CONTINUE_SEARCH;
}

// Out of the compiler's sight, so that the faults happen at run time.
int* volatile g_nowhere = NULL;
volatile int g_zero = 0;

}  // namespace

int wmain(int, wchar_t** argv)
{
    const std::wstring what = argv[1];
    if (what == L"unload")
        SetUnhandledExceptionFilter(OwnFilter);
    HMODULE dll = LoadLibraryW(L"Tessel_CA.dll");  // the application's folder comes first
    if (what == L"access")
        *g_nowhere = 1;
    else if (what == L"divide")
        return 7 / g_zero;
    else if (what == L"raise")
        RaiseException(0xC0000017, 0, 0, NULL);
    else if (what == L"escape")
        reinterpret_cast<UINT(WINAPI*)(DWORD)>(GetProcAddress(dll, "DisableRepairForFerrule"))(0);
    else if (what == L"headers")
        reinterpret_cast<void (*)()>(dll)();
    // Still running (unload): the reporter must have taken the filter, and gives it back.
    LPTOP_LEVEL_EXCEPTION_FILTER reporter = SetUnhandledExceptionFilter(NULL);
    SetUnhandledExceptionFilter(reporter);
    FreeLibrary(dll);
    return reporter != OwnFilter && SetUnhandledExceptionFilter(NULL) == OwnFilter ? 0 : 1;
}
