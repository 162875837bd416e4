/**
 * Logging of a unit's processes. One line per message, on standard error or in a file.
 *
 * Levels: 0 error, 1 warning, 2 information, 4 detail. A message is written when its level is not above the threshold,
 * which starts at 2 and is taken from the environment variable ZEL_LOG_LEVEL ("error", "warning", "information",
 * "detail" or a number) when that is set. Thread-safe.
 */
#ifndef ZEL_DEBUG_H
#define ZEL_DEBUG_H

#ifdef __cplusplus
extern "C" {
#endif

/** Write one message. `format` is a printf format whose text ends in a line feed; never null. Keeps errno. */
void log_message(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif
#endif
