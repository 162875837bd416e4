/**
 * Logging of a unit's processes. One line per message, on standard error or in a file:
 *
 *     2026-03-01T08:15:30.123Z 4711.123456 zel_unit[812] warning: text
 *
 * that is the wall time (UTC), the monotonic time in seconds, the program and its process id, the level, and the text.
 *
 * Levels: 0 error, 1 warning, 2 information, 4 detail. A message is written when its level is not above the threshold,
 * which starts at 2 and is taken from the environment variable ZEL_LOG_LEVEL ("error", "warning", "information",
 * "detail" or a number) when that is set. The output starts as standard error, or as the file that ZEL_LOG_FILE names.
 *
 * Texts come from the network too: control characters (line feeds inside the text, escape sequences, direction overrides) and
 * bytes that are not UTF-8 are written visibly as \n, \x1b, \u202e. A line has at most 4096 bytes; a longer one ends in
 * "..." at a whole character. A line goes out in one write, so that the lines of several processes on one pipe do not mix.
 * Messages equal to the one before are counted instead of written: "last message repeated 3 times" follows before the next
 * different message, after ten seconds, or at exit.
 *
 * All calls are thread-safe, keep errno and cannot fail the caller; what cannot be written is dropped. None may be called from
 * a signal handler but zel_debug_reopen.
 */
#ifndef ZEL_DEBUG_H
#define ZEL_DEBUG_H

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/** Write one message. `format` is a printf format whose text ends in a line feed; never null. Keeps errno. */
void log_message(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/** Name that lines bear from now on, cut after 31 bytes; null for the name of the executable, as at the start. */
void zel_debug_set_program(const char *name);
/**
 * Append to this file from now on; null for standard error. An absolute path is taken below the unit's root, missing
 * folders are made. 0, or -1 when it cannot be opened: the output then stays as it was, and says so.
 */
int zel_debug_set_file(const char *path);
/** Open the file anew before the next line, because it has been rotated away. Async-signal-safe (for SIGHUP). */
void zel_debug_reopen(void);
/** Threshold: messages of a level above it are not written. */
void zel_debug_set_level(int level);
int zel_debug_get_level(void);
/** Level of a name as in ZEL_LOG_LEVEL, or of a decimal number from 0 to 9; -1 if it is none. */
int zel_debug_level_from_name(const char *name);
/** Longest time in milliseconds that repeated messages are only counted; 0 writes each of them. Negative is taken as 0. */
void zel_debug_set_repeat_interval(int milliseconds);
/** Write the count of repeated messages now, if there are any. */
void zel_debug_flush(void);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
