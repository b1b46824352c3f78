// The maker's public page, named in the gate's message and the error texts.
#include "frame/frame.h"

const wchar_t kMakerWebSite[] = L"https://www.orvel.com/support";
