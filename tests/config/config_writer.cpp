// Usage: config_writer PATH PREFIX COUNT
// Sets PREFIX1 .. PREFIXCOUNT one by one, each with a load and a save of its
// own, as separate actions of several installers would. Each save also
// changes "shared", which rewrites the whole file.
#include "config/config_store.h"

#include <cstdlib>
#include <string>

int wmain(int argc, wchar_t** argv)
{
    if (argc != 4)
        return 2;
    const int count = _wtoi(argv[3]);
    for (int i = 1; i <= count; ++i) {
        Config config;
        config.LoadFile(argv[1]);
        config.SetString(argv[2] + std::to_wstring(i), L"value" + std::to_wstring(i), 0);
        config.SetString(L"shared", argv[2] + std::to_wstring(i), 0);
        if (!config.SaveFile(argv[1]))
            return 1;
    }
    return 0;
}
