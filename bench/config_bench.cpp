// The settings store reads the whole file once for each setting it saves, by
// design. This prints LoadFile and SaveFile (1 % of the settings changed) for
// growing files, next to a floor: as many bare reads and decodes of the file
// as the save has settings, with the platform calls alone.
//
// Each rewrite gives every line it keeps one CR more, so the file grows
// steadily through the save. The floor therefore reads the file as the save
// found it for one half of its reads and as the save left it for the other.
#include "harness/harness.h"

#include "config/config_store.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

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

// One whole-file read and its decode from the ANSI code page, the least a
// read of the store can cost. The buffers are kept from one read to the next.
size_t BareRead(const std::wstring& path, std::string& bytes, std::wstring& text)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, NULL);
    if (file == INVALID_HANDLE_VALUE)
        return 0;
    LARGE_INTEGER size;
    GetFileSizeEx(file, &size);
    bytes.resize(static_cast<size_t>(size.QuadPart));
    DWORD read = 0;
    ReadFile(file, &bytes[0], static_cast<DWORD>(bytes.size()), &read, NULL);
    CloseHandle(file);
    text.resize(read);
    MultiByteToWideChar(CP_ACP, 0, bytes.data(), static_cast<int>(read), &text[0], static_cast<int>(read));
    return read;
}

// `reads` bare reads, the first half of `before`, the rest of `after`.
double Floor(const std::wstring& before, const std::wstring& after, int reads)
{
    std::string bytes;
    std::wstring text;
    LARGE_INTEGER start;
    QueryPerformanceCounter(&start);
    for (int i = 0; i < reads; ++i)
        BareRead(i < reads / 2 ? before : after, bytes, text);
    return Seconds(start);
}

struct Figures {
    double load;
    double save;
    double floor;
};

// One round: a fresh file of `count` settings, loaded, 1 % of them changed and saved, then the floor.
Figures Round(const std::wstring& path, const std::wstring& found, int count)
{
    WriteSettings(path, count);
    CopyFileW(path.c_str(), found.c_str(), FALSE);
    Config config;
    Figures figures;
    LARGE_INTEGER start;
    QueryPerformanceCounter(&start);
    config.LoadFile(path);
    figures.load = Seconds(start);
    for (int i = 0; i < count; i += 100)
        config.SetString(L"Setting" + std::to_wstring(i), L"changed", 0);
    QueryPerformanceCounter(&start);
    config.SaveFile(path);
    figures.save = Seconds(start);
    figures.floor = Floor(found, path, count);
    return figures;
}

double Median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

}  // namespace

int main()
{
    CreateDirectoryW(harness::kScratchFolder, NULL);
    const std::wstring path = std::wstring(harness::kScratchFolder) + L"bench.cfg";
    const std::wstring found = std::wstring(harness::kScratchFolder) + L"bench.cfg.before";
    std::printf("%9s %7s %10s %10s %11s %11s %10s %8s\n", "settings", "rounds", "KB before", "KB after",
                "LoadFile s", "SaveFile s", "floor s", "ratio");
    for (int count : {100, 1000, 10000}) {
        // The small files take several rounds, each figure their median, so that a busy machine shows less.
        const int rounds = count < 10000 ? 5 : 1;
        std::vector<double> loads, saves, floors;
        for (int round = 0; round < rounds; ++round) {
            Figures figures = Round(path, found, count);
            loads.push_back(figures.load);
            saves.push_back(figures.save);
            floors.push_back(figures.floor);
        }
        std::string bytes;
        std::wstring text;
        double before = BareRead(found, bytes, text) / 1024.0;
        double after = BareRead(path, bytes, text) / 1024.0;
        double save = Median(saves);
        double floor = Median(floors);
        std::printf("%9d %7d %10.0f %10.0f %11.4f %11.3f %10.3f %8.2f\n", count, rounds, before, after,
                    Median(loads), save, floor, save / floor);
        std::fflush(stdout);
    }
    DeleteFileW(path.c_str());
    DeleteFileW(found.c_str());
    RemoveDirectoryW(harness::kScratchFolder);
    return 0;
}
