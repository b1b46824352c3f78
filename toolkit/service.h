// Services: start and wait, stop and wait (talkative or quiet), delete.
// Each operation opens and closes its own manager and service handles, takes
// one service at a time and never touches its dependents. Messages go to the
// debugger only, never to the installer's log.
#pragma once

#include <windows.h>

#include <string>

// Starts the service and waits while it reports SERVICE_START_PENDING with a
// rising check point. A service that is running, starting or paused counts as
// started, and no start is attempted.
bool StartServiceAndWait(const wchar_t* name);

// Stops the service and waits for SERVICE_STOPPED, at most 30 s from entry
// (plus one sleep of the service's own wait hint).
bool StopServiceAndWait(std::wstring name);

// StopServiceAndWait without any message.
bool StopServiceQuietly(const wchar_t* name);

// Marks the service for deletion; any failure is silent.
void DeleteServiceByName(const wchar_t* name);

// How long a bounded poll sleeps for a service's wait hint: a tenth of it,
// kept within 1 s and 10 s.
DWORD ServicePollLength(DWORD waitHint);
