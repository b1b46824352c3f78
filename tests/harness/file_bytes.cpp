// Whole files as bytes, for setting up and checking exactly what is on disk.
#include "harness/harness.h"

#include <stdexcept>

namespace harness {

void WriteFileBytes(const std::wstring& path, const std::string& bytes)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
    if (file == INVALID_HANDLE_VALUE)
        throw std::runtime_error("a test file could not be written");
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, NULL);
    CloseHandle(file);
}

std::string ReadFileBytes(const std::wstring& path)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING, 0,
                              NULL);
    if (file == INVALID_HANDLE_VALUE)
        return "<missing>";
    std::string bytes(GetFileSize(file, NULL), '\0');
    DWORD read = 0;
    ReadFile(file, &bytes[0], static_cast<DWORD>(bytes.size()), &read, NULL);
    CloseHandle(file);
    return bytes;
}

}  // namespace harness
