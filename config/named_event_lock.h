// The store's lock: the named auto-reset event "ConfigBase", shared with every
// process that works on the settings file. Not re-entrant: take it only at the
// outer level. Without the event the work goes on unlocked.
#pragma once

#include <windows.h>

class NamedEventLock {
public:
    NamedEventLock() : m_event(CreateEventA(NULL, FALSE, TRUE, "ConfigBase"))
    {
        if (m_event != NULL)
            WaitForSingleObject(m_event, INFINITE);
    }
    ~NamedEventLock()
    {
        if (m_event != NULL) {
            SetEvent(m_event);
            CloseHandle(m_event);
        }
    }
    NamedEventLock(const NamedEventLock&) = delete;
    NamedEventLock& operator=(const NamedEventLock&) = delete;

private:
    HANDLE m_event;
};
