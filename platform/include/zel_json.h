/**
 * JSON files that survive power cuts, and a writer for JSON documents.
 *
 * Files: a value set is durable without a save call; the file is replaced atomically. Bursts of sets are joined into one write,
 * at most 100 ms late, and always at zel_json_file_term. Unknown keys and their order survive. All calls for one file come
 * from one thread; the slow part of writing runs on a thread of the library's own.
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
 * Open a file; `path` is absolute and taken below the unit's root. A missing file is a new, empty one. An unreadable one is
 * never overwritten: the last good copy, kept beside it, takes its place and the log says so. Null if there is none.
 */
zel_json_file_t *zel_json_file_init(const char *path);
/** Write what is due, close the file and release all its objects; null is allowed. */
void zel_json_file_term(zel_json_file_t *file);

/** Member object `key` of `parent` (null: the root); made when absent. Null if the member is not an object. Valid until it is
 *  removed or the file is closed. */
zel_json_obj_t *zel_json_file_load_object(zel_json_file_t *file, zel_json_obj_t *parent, const char *key);
/* Loads never write. A value of the wrong type counts as absent and gives the default. */
/** Text, borrowed until the key is set or removed. */
const char *zel_json_file_load_string(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, const char *default_value);
int32_t zel_json_file_load_integer(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t default_value);
/** 0 or 1. */
int zel_json_file_load_boolean(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int default_value);
/** An integer from `min` to `max`; the default when it is absent, no integer, or out of range. */
int32_t zel_json_file_integer_validate(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t default_value,
                                       int32_t min, int32_t max);
/* Sets return 0, or -1 (null handle, text that is not UTF-8, no memory). */
int zel_json_file_set_string(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, const char *value);
int zel_json_file_set_integer(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t value);
int zel_json_file_set_boolean(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int value);
/** Remove a member of any kind from `parent` (null: the root). 0, or -1 if it is absent. */
int zel_json_remove_object(zel_json_file_t *file, zel_json_obj_t *parent, const char *key);

/*
 * Writer. Each call appends to `buf` of `size` bytes at position `pos` and returns the new position, or -1 when the text, with
 * room for a terminating zero, does not fit; -1 given as a position comes back as -1. `name` is null inside an array and at
 * the root. Strings are escaped; text that is not UTF-8 is written with replacement characters. No allocation.
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
