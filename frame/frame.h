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

// Reads a property, or CustomActionData, into the caller's fixed buffer with
// the count set to its size: a value that doesn't fit is a failed read, never
// retried. After a failure the buffer holds whatever the installer left there.
bool ReadPropertyInto(MSIHANDLE session, const wchar_t* name, wchar_t* buffer, DWORD chars);
template <size_t Chars>
bool ReadProperty(MSIHANDLE session, const wchar_t* name, wchar_t (&buffer)[Chars])
{
    return ReadPropertyInto(session, name, buffer, static_cast<DWORD>(Chars));
}

// A text value read by hand, with the sizes of the site that reads it: at most
// `bytes` bytes (never more than 2 * `chars`) into a zeroed buffer of `chars`
// characters, so a longer value is a failed read. The text ends at its first
// null or at `chars`. `type`, when given, receives the value's type.
bool ReadKeyText(HKEY key, const wchar_t* name, DWORD chars, DWORD bytes, std::wstring& text,
                 DWORD* type = NULL);

// Whether ReadRegistryText closes the key it opened. Some reads leave it open
// by design; the handle then ends with the process.
enum KeyAfterRead { kCloseKey, kLeaveKeyOpen };

// Opens HKLM\`path` with `access` and reads one text value as ReadKeyText
// does. False when the key can't be opened or the value can't be read.
bool ReadRegistryText(const wchar_t* path, REGSAM access, const wchar_t* name, DWORD chars, DWORD bytes,
                      KeyAfterRead after, std::wstring& text, DWORD* type = NULL);

// A command line handed to BoundedCopy is at most this long, into a buffer one longer.
const size_t kCommandLineChars = 519;

// The maker's public page, where the install manager can be had. A literal, so
// that the texts naming it are composed where they stand.
#define KESTRA_MAKER_WEB_SITE L"https://www.orvel.com/support"

// Formats one line into the installer's log as INSTALLMESSAGE_INFO. No line end is added.
void LogMessage(MSIHANDLE session, const wchar_t* format, ...);

// Shows one message through the installer's own message handling.
int ShowUserMessage(MSIHANDLE session, const std::wstring& text, UINT flags);

// Reads the first column of one row of the package's Kestra_InstallProperties
// table. Works on g_hSession's database and logs through it: store it first.
bool GetFromMSITable(const std::wstring& queryFormat, const std::wstring& propertyName,
                     std::wstring& value);

// The query that GetFromMSITable is given.
extern const wchar_t kKestraPropertyQuery[];

int CompareNoCase(const std::wstring& a, const std::wstring& b);
int FindNoCase(const std::wstring& haystack, const std::wstring& needle);
void ToLowerInPlace(std::wstring& text);
std::wstring PathSeparatorFor(const wchar_t* path);
wchar_t* BoundedCopy(wchar_t* destination, size_t size, const wchar_t* source, size_t count);
// swprintf_s into a fixed buffer; a text that doesn't fit ends the process, as BoundedCopy does.
void BoundedFormat(wchar_t* destination, size_t size, const wchar_t* format, ...);
