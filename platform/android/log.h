#pragma once

// The log of this process's phone, the default one unless another is open. Any thread; errno is
// kept. A message is cut at 4 KiB; a line that cannot be written is lost.

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_VERBOSE = 2,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
} android_LogPriority;

// Both return 1 when the line was taken and a negative errno otherwise.
int __android_log_write(int prio, const char* tag, const char* text);
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((__format__(printf, 3, 4)));

// Logs the message (the condition's text when `fmt` is null) as fatal, then aborts. It goes to
// stderr when the process has not used the phone yet.
void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...)
    __attribute__((__noreturn__, __format__(printf, 3, 4)));

#ifdef __cplusplus
}
#endif
