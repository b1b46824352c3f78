// The settings store reads the whole file once for each setting it saves, by
// design. This prints LoadFile and SaveFile (1 % of the settings changed) for
// growing files, so that the growth shows.
#include "harness/harness.h"

#include "config/config_store.h"

#include <cstdio>
#include <string>

namespace {

double Seconds(LARGE_INTEGER start)
{
    LARGE_INTEGER end, frequency;
    QueryPerformanceCounter(&end);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(end.QuadPart - start.QuadPart) / frequency.QuadPart;
}

void WriteSettings(const std::wstring& path, int count)
{
    std::string text = "# generated settings\r\n";
    for (int i = 0; i < count; ++i)
        text += "Setting" + std::to_string(i) + "=value of setting " + std::to_string(i) + "\r\n";
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, NULL);
    CloseHandle(file);
}

}  // namespace

int main()
{
    CreateDirectoryW(harness::kScratchFolder, NULL);
    std::wstring path = std::wstring(harness::kScratchFolder) + L"bench.cfg";
    std::printf("%10s %12s %14s %18s\n", "settings", "LoadFile s", "SaveFile s", "SaveFile per set ms");
    for (int count : {100, 1000, 10000}) {
        WriteSettings(path, count);
        Config config;
        LARGE_INTEGER start;
        QueryPerformanceCounter(&start);
        config.LoadFile(path);
        double load = Seconds(start);
        for (int i = 0; i < count; i += 100)
            config.SetString(L"Setting" + std::to_wstring(i), L"changed", 0);
        QueryPerformanceCounter(&start);
        config.SaveFile(path);
        double save = Seconds(start);
        std::printf("%10d %12.4f %14.3f %18.3f\n", count, load, save, 1000.0 * save / count);
        std::fflush(stdout);
    }
    DeleteFileW(path.c_str());
    RemoveDirectoryW(harness::kScratchFolder);
    return 0;
}
