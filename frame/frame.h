// The action frame: what every custom action of Tessel_CA shares.
#pragma once

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include <string>

// Session handle of the action that ran last; helpers without a session
// argument log through it. Plain data: the installer runs one action at a time.
extern MSIHANDLE g_hSession;

// The results an action may give. Which one means what is fixed per action.
const UINT kResultSuccess = ERROR_SUCCESS;                      // 0
const UINT kResultOne = 1;                                      // some actions' own "done" or "not done"
const UINT kResultInstallFailure = ERROR_INSTALL_FAILURE;       // 1603
const UINT kResultNotFromInstallManager = ERROR_INSTALL_SOURCE_ABSENT;  // 1612, the gate only
const UINT kResultFunctionFailed = ERROR_FUNCTION_FAILED;       // 1627

// Property values are read into a buffer of this many characters, so a longer
// value is a failed read.
const DWORD kPropertyChars = 260;

// A command line handed to BoundedCopy is at most this long, into a buffer one longer.
const size_t kCommandLineChars = 519;

// The maker's public page, where the install manager can be had. A literal, so
// that the texts naming it are composed where they stand.
#define KESTRA_MAKER_WEB_SITE L"https://www.orvel.com/support"

// Formats one line into the installer's log as INSTALLMESSAGE_INFO. No line end is added.
void LogMessage(MSIHANDLE session, const wchar_t* format, ...);

// Shows one message through the installer's own message handling.
int ShowUserMessage(MSIHANDLE session, const std::wstring& text, UINT flags);

// Reads the first column of one row of the package's Kestra_InstallProperties table.
bool GetFromMSITable(const std::wstring& queryFormat, const std::wstring& propertyName,
                     std::wstring& value);

// The query that GetFromMSITable is given.
extern const wchar_t kKestraPropertyQuery[];

int CompareNoCase(const std::wstring& a, const std::wstring& b);
int FindNoCase(const std::wstring& haystack, const std::wstring& needle);
void ToLowerInPlace(std::wstring& text);
std::wstring PathSeparatorFor(const wchar_t* path);
wchar_t* BoundedCopy(wchar_t* destination, size_t size, const wchar_t* source, size_t count);
