/**
 * JSON files that survive power cuts, and a writer for JSON documents.
 *
 * Files: a value set is durable without a save call. The file is replaced atomically: at any moment the old or the new text
 * lies in its place. What is set within 40 ms is joined into one write, which is on the disk 100 ms after the set as long as
 * the disk takes no longer than 50 ms for a write (twice its time, otherwise), and always when zel_json_file_term returns or
 * the process exits. A thread of the library's own does the writing; a set waits for the dump of the settings to text
 * at most (about a millisecond per 200 kB), never for the disk. Unknown keys and their order survive; a key set anew keeps
 * its place.
 *
 * A write that fails (full disk, input/output error, no permission) is logged once, leaves the old file in place, and is tried
 * again every second until it succeeds; sets go on in memory meanwhile.
 *
 * Beside "config.json" the library keeps "config.json.good", the text that the last replacement replaced, and as
 * "config.json.bad", "config.json.bad.1" and so on to ".bad.15" every file that it found unreadable; the last of these names
 * is given again. New files are for their owner only, a replaced one's mode and owner are kept. A symbolic link is followed
 * when the file is opened.
 *
 * All calls for one file come from one thread, in the process that opened it. Nothing here calls back.
 */
#ifndef ZEL_JSON_H
#define ZEL_JSON_H

#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

typedef struct zel_json_file zel_json_file_t;
typedef struct zel_json_obj zel_json_obj_t;

/** Prepare the library; more than one call does no harm. */
void zel_json_init(void);
/**
 * Open a file; `path` is absolute and taken below the unit's root. A missing file is a new, empty one, also when there is a good
 * copy (which stays): it is not made before something is set, and its folder with it. A file that is unreadable, larger
 * than 4 MiB, nested too deep, or no JSON object, is never overwritten: the last good copy takes its place, the file itself is
 * kept as ".bad", and the log says so. Null if there is no good copy, or no memory (both logged). A file may be open only once.
 */
zel_json_file_t *zel_json_file_init(const char *path);
/**
 * Write what is due, close the file and release all its objects; null is allowed. Changes that cannot be written even now
 * are lost, and the log says so.
 */
void zel_json_file_term(zel_json_file_t *file);

/**
 * Member object `key` of `parent` (null: the root); made when absent, which alone writes nothing. Null if the member is not an
 * object, the parent has been removed, `key` is not UTF-8, or it would lie more than 256 levels deep.
 *
 * The handle is the same at each call and valid until the object is removed, or replaced by a set of its key. Using it
 * later, up to zel_json_file_term, does no harm: loads give the default, sets fail.
 */
zel_json_obj_t *zel_json_file_load_object(zel_json_file_t *file, zel_json_obj_t *parent, const char *key);
/* Loads never write. A value of the wrong type, or in a null or removed object, counts as absent and gives the default. */
/** Text, borrowed until the key is set to another text or removed. A default value is handed back as it is, also null. */
const char *zel_json_file_load_string(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, const char *default_value);
/** A number that does not fit 32 bits, or is no whole one, counts as absent. */
int32_t zel_json_file_load_integer(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t default_value);
/** 0 or 1. */
int zel_json_file_load_boolean(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int default_value);
/** An integer from `min` to `max`; the default when it is absent, no integer, or out of range. */
int32_t zel_json_file_integer_validate(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t default_value,
                                       int32_t min, int32_t max);
/*
 * Sets return 0, or -1 (null or removed object, null or not UTF-8 text or key, no memory), and then change nothing. Setting the
 * value that is there already writes nothing. `value` may be a text borrowed from the same key.
 */
int zel_json_file_set_string(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, const char *value);
int zel_json_file_set_integer(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t value);
int zel_json_file_set_boolean(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int value);
/** Remove a member of any kind from `parent` (null: the root). 0, or -1 if it is absent. */
int zel_json_remove_object(zel_json_file_t *file, zel_json_obj_t *parent, const char *key);

/*
 * Writer. Each call appends to `buf` of `size` bytes at position `pos` and returns the new position, or -1 when the text, with
 * room for a terminating zero, does not fit; -1 given as a position comes back as -1. `name` is null inside an array and at
 * the root. Commas are put where they belong; closing what was opened is the caller's part. Strings are escaped; text that is not
 * UTF-8 is written with replacement characters, a null text as an empty one. No blanks, no allocation.
 */
int zel_json_writer_start(char *buf);
int zel_json_writer_new_obj(char *buf, size_t size, int pos, const char *name);
int zel_json_writer_new_array(char *buf, size_t size, int pos, const char *name);
int zel_json_writer_put_int(char *buf, size_t size, int pos, const char *name, int64_t value);
int zel_json_writer_put_str(char *buf, size_t size, int pos, const char *name, const char *value);
int zel_json_writer_put_bool(char *buf, size_t size, int pos, const char *name, int value);
int zel_json_writer_end_obj(char *buf, size_t size, int pos);
int zel_json_writer_end_array(char *buf, size_t size, int pos);
/** Length of the text, which is then zero-terminated in `buf`; -1 if anything did not fit. */
int zel_json_writer_finish(char *buf, size_t size, int pos);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
