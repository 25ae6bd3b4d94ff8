// The one way from this process to syslog.
#ifndef BASE_SYSTEM_LOG_H
#define BASE_SYSTEM_LOG_H

// Hands one text to syslog with the given priority (LOG_CRIT to LOG_DEBUG). Any thread.
void system_log(int priority, const char* text);

#endif
