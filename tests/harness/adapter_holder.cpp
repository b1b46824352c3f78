// Holds a display adapter in the prefix for the demo, from its start until a
// stop file appears, then takes it away again:
//   adapter_holder.exe MANUFACTURER DRIVERVERSION DESCRIPTION STOPFILE
// STOPFILE.ready appears once the adapter is there.
#include "harness/harness.h"

int wmain(int argc, wchar_t** argv)
{
    if (argc != 5)
        return 2;
    const std::wstring stop = argv[4];
    harness::DisplayAdapter adapter(argv[1], argv[2], argv[3]);
    harness::WriteFileBytes(stop + L".ready", "ready");
    while (!harness::Exists(stop))
        Sleep(100);
    DeleteFileW((stop + L".ready").c_str());
    return 0;
}
