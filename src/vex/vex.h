// The schema library as the router and the service use it: loads libraries of table schemas from
// their binary image, finds a table in one, compares two schemas, packs dates.
//
// What a schema holds is in vex_schema.h, how an image is laid out and written in vex_image.h.
//
// Ownership: a loaded library is the caller's until vex_free_lib. Metas found in it, and every
// pointer answered for one of them, live as long as it does.
// Threads: no state is kept between calls. Loaded libraries and metas are never changed, so any
// number of threads may read one; loading and freeing are for one thread at a time.
// Errors: the codes of vex_codes.h; nothing throws.
#pragma once

#include <cstdint>
#include <ctime>

#include "common/export.h"
#include "vex/vex_codes.h"

struct VexMeta;
struct VexMetaLib;

using LPVEXMETA = const VexMeta*;
using LPVEXMETALIB = VexMetaLib*;

// --- Libraries ---

// Loads a library from the image at the start of `buffer`.
//
// length: in, the bytes at `buffer`; no byte behind them is read. Out, on success, the bytes of the
//         image, which may be fewer: what follows an image is not looked at. Unchanged on failure.
// lib:    out, the library, to be freed with vex_free_lib; null on failure. What it pointed at
//         before is overwritten, not freed.
//
// Takes any bytes. Memory used is a small multiple of the bytes of the image, whatever its counts
// claim. Answers kVexOk or one of the codes down to kVexNoMemory.
OSTRAND_API int vex_load_metalib_buf(LPVEXMETALIB* lib, const char* buffer, int* length);

// Frees a loaded library and sets the pointer to null. Null, or a pointer to null, does nothing.
OSTRAND_API void vex_free_lib(LPVEXMETALIB* lib);

// --- Metas: the schema of one table ---

// The table of this name (compared exactly); null when there is none, or an argument is null.
OSTRAND_API LPVEXMETA vex_get_meta_by_name(LPVEXMETALIB lib, const char* name);

// The schema's version; -1 for a null meta, which no schema has.
OSTRAND_API int vex_get_meta_current_version(LPVEXMETA meta);

// The table's custom attribute: items separated by ';'. Null when it has none, or meta is null.
OSTRAND_API const char* vex_get_meta_customattr2(LPVEXMETA meta);

// Whether a client that was built with `local` may use a table that the server holds as `server`.
//
// kVexOk when the value fields agree, one after the other, in name, type and size. A server schema
// of a newer version may have further value fields behind those of `local`. Otherwise the code of
// the first difference, one of those from kVexNoLocalMeta on. Names of the tables, key fields and
// since-versions are not compared.
OSTRAND_API int vex_compare_value_fields(LPVEXMETA local, LPVEXMETA server);

// --- Dates ---

// A date and time in UTC with the proleptic Gregorian calendar, packed so that an earlier one is
// the smaller number:
//
//   bits  0 to  5  second   0 to 59
//   bits  6 to 11  minute   0 to 59
//   bits 12 to 16  hour     0 to 23
//   bits 17 to 21  day      1 to 31
//   bits 22 to 25  month    1 to 12
//   bits 26 to 39  year     1 to 9999
//   bits 40 to 63  0
//
// 1970-01-01 00:00:00 is 0x1EC8420000.
using vexdatetime_t = int64_t;

// Packs the time `utc`, in seconds since the epoch. Times before the year 1 or after the year 9999
// give the first or the last second of that range. A null `out` does nothing.
OSTRAND_API void vex_utctime_to_vexdatetime(vexdatetime_t* out, time_t utc);

// The inverse. kVexBadDateTime when `datetime` is no date and time as above (a day that its month
// does not have, a bit set above the year); `out` is unchanged then. kVexInvalidArgument for a null
// `out`.
OSTRAND_API int vex_vexdatetime_to_utctime(time_t* out, vexdatetime_t datetime);
