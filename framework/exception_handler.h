// The install framework's crash reporter. While the one instance lives, an
// exception that nobody in the host process handles leaves a text report
// beside the host's executable (same name, extension RPT) and goes on to the
// system. Its state is static: the filter is a plain function.
#pragma once

#include <windows.h>

class CExceptionHandler {
public:
    // Installs the filter for the whole process; the one it replaces comes
    // back with the destructor.
    CExceptionHandler();
    virtual ~CExceptionHandler();
    CExceptionHandler(const CExceptionHandler&) = delete;
    CExceptionHandler& operator=(const CExceptionHandler&) = delete;

    // Reports go to `fileName` (cut to 260 characters) from now on.
    void SetLogFileName(const wchar_t* fileName);
};
