/**
 * A unit's pins and system information.
 *
 * Pins have two back ends behind the same calls, chosen by the unit's configuration: simulated pins (the default), which
 * live in this process, and the machine's GPIO lines. Levels are logical: on an active-low pin 1 means that the line is low.
 * Edges are those of the line itself: a contact that pulls an active-low line down makes a falling edge.
 *
 * A pin number is open once at a time; a second open is refused as busy. An output starts at logical 0, and a pin keeps its
 * line's level when it is closed. Lines of the machine are reached by the value files below /sys/class/gpio; one that goes away
 * (an unplugged expander) leaves a pin without descriptor, whose calls fail until it is closed and opened again.
 *
 * Environment: ZEL_ROOT, the unit's root; ZEL_SYSFS_GPIO, the folder with the value files, for tests; ZEL_SIM_SIGNAL, "oob" or
 * "pty", what makes a simulated pin exceptional: out-of-band data where the kernel has it for local sockets, else a
 * pseudo-terminal in packet mode, unless it is chosen so.
 *
 * A call with a null pin returns -1 (or null) and does nothing. All calls come from one thread.
 */
#ifndef ZEL_SYS_H
#define ZEL_SYS_H

#include <stdint.h>
#include <sys/select.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

typedef struct zel_sys_gpio zel_sys_gpio_t;

/** Open a pin by its platform number (0 or above). `direction`: 0 input, 2 output. Null on failure, with the cause in the log. */
zel_sys_gpio_t *zel_sys_gpio_open(int32_t pin, int32_t direction);
/** Close a pin and release it; null is allowed. */
void zel_sys_gpio_close(zel_sys_gpio_t *pin);
/** The logical level, 0 or 1; -1 on failure. Clears a pending edge. */
int zel_sys_gpio_read(zel_sys_gpio_t *pin);
/** Drive an output to the logical level 0 (`value` 0) or 1 (any other). 0, or -1 on failure (an input among them). */
int zel_sys_gpio_write(zel_sys_gpio_t *pin, int value);
/** Make a pin active low (non-zero) or active high (0). Negative on failure. */
int zel_sys_gpio_set_active_low(zel_sys_gpio_t *pin, uint32_t active_low);
/** Choose the edges that make an input's descriptor exceptional: 0 none, 1 falling, 2 rising, 3 both. Negative on failure. */
int zel_sys_gpio_set_edge(zel_sys_gpio_t *pin, int edge);
/** A descriptor that is exceptional in select() while an edge is pending; -1 if there is none. Owned by the pin. */
int zel_sys_gpio_fd(zel_sys_gpio_t *pin);

/** The unit's product id, from its configuration; never null. Valid for the life of the process. */
const char *zel_sys_get_prodid(void);
/** Copy `text` to `out`, which holds 3 * strlen(text) + 1 bytes; bytes below 0x20 and 0x7F become %XX in upper-case hex. */
void zel_sys_strpercentenc(const char *text, char *out);

/* What follows is for the host and for test benches, not for the library. */

/** Told of every change of a pin's logical level: one that this process wrote, or one that came from outside.
 *  `direction` as given to zel_sys_gpio_open, `level` 0 or 1. Called after the change, on the thread that made it. */
typedef void (*zel_sys_pin_observer_t)(void *user_data, int32_t pin, int32_t direction, int level);
/** Set the one observer of this process; null removes it. */
void zel_sys_set_pin_observer(zel_sys_pin_observer_t observer, void *user_data);

/** Drop a pending edge of the input with this number, if its descriptor is set in `exceptfds`, so that it does not end every wait.
 *  For inputs that the library leaves alone because UDP commands drive them. Nothing for a pin that is not open. */
void zel_sys_gpio_discard_edge(int32_t pin, const fd_set *exceptfds);

/** Close (`pressed` 1) or open (0) the contact at a simulated input. A closed contact reads 1 whatever the polarity.
 *  The contact keeps its position while the pin is closed. 0, or -1 (not simulated, negative number). */
int zel_sys_sim_press(int32_t pin, int pressed);
/** Logical level of a simulated pin: what an input reads or an output was last driven to; 0 for one never opened or pressed.
 *  -1 as for zel_sys_sim_press. Does not clear a pending edge. */
int zel_sys_sim_level(int32_t pin);

/**
 * The control socket of the pins, "/run/zel/pins" below the unit's root: a stream socket for processes of the same user,
 * served inside the host's loop by one descriptor after it was opened. A client sends lines of at most 127 bytes; each is
 * answered by one line, in order:
 *
 *   press N      ok N 1                     close the contact at input N (simulated pins only)
 *   release N    ok N 0                     open it
 *   read N       ok N LEVEL                 logical level; a pending edge stays pending
 *   list         ok COUNT N:DIR:LEVEL ...   the open pins by number, DIR "in" or "out"
 *   watch        ok watching                from now on a line "pin N DIR LEVEL" for every change, between answers
 *   help         ok press N | release N | ...
 *   other        error TEXT                 as is every request that fails
 *
 * "watch" followed by "list" misses no change. A press and a release sent in one breath stay two events: after a request that
 * moves a contact the next turn of the host's loop is left to the pins. A client that sends a longer line or leaves more than
 * 64 KiB of lines unread is dropped; at most 16 clients are served, a further one reads "error too many clients".
 */
int zel_sys_control_open(void);                              /* 0, or -1 with the cause in the log */
void zel_sys_control_set_fds(fd_set *readfds, int *maxfd);   /* nothing while it is closed */
void zel_sys_control_process_fds(fd_set *readfds);
void zel_sys_control_close(void);                            /* not from a pin observer */

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
