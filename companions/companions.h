// The companion products' helpers that the tests reach directly.
#pragma once

#include <windows.h>

#include <string>

// A version as four text fields, each digits, "x" when the text couldn't be
// read, "*" for the wildcard, or "0" for a field the text didn't give.
struct VersionMask {
    std::wstring major;
    std::wstring minor;
    std::wstring build;
    std::wstring revision;
    DWORD precision;  // 0 invalid, 1 two fields given, 2 three, 3 four, 4 the wildcard
};

VersionMask ParseVersionMask(const std::wstring& text);

