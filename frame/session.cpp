// The session handle and the two ways out of an action: the log and the user.
#include "frame/frame.h"

#include <cstdarg>

MSIHANDLE g_hSession = 0;

namespace {

// A log line holds at most this many characters, its null included.
const int kLogLineChars = 520;
// wvsprintfW never writes more than 1024 characters and its null; formatting
// into a buffer that large lets us test the length instead of overrunning.
const int kFormatCeilingChars = 1025;

}  // namespace

void LogMessage(MSIHANDLE session, const wchar_t* format, ...)
{
    wchar_t line[kFormatCeilingChars];
    va_list args;
    va_start(args, format);
    int length = wvsprintfW(line, format, args);
    va_end(args);

    MSIHANDLE record = MsiCreateRecord(0);
    if (length < 0 || length >= kLogLineChars)
        MsiRecordSetStringW(record, 0, L"CA buffer overflow\n");
    else
        MsiRecordSetStringW(record, 0, line);
    MsiProcessMessage(session, INSTALLMESSAGE_INFO, record);
    if (record != 0)
        MsiCloseHandle(record);
}

int ShowUserMessage(MSIHANDLE session, const std::wstring& text, UINT flags)
{
    MSIHANDLE record = MsiCreateRecord(2);
    MsiRecordSetStringW(record, 0, text.c_str());
    int result = MsiProcessMessage(session, static_cast<INSTALLMESSAGE>(INSTALLMESSAGE_USER + flags), record);
    if (record != 0)
        MsiCloseHandle(record);
    return result;
}
