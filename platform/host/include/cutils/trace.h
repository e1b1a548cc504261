// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for libcutils' <cutils/trace.h>: Debian's declares the bodies only inside its inline
// functions, where a caller of atrace_begin_body() cannot see them.

#ifndef _LIBS_CUTILS_TRACE_H
#define _LIBS_CUTILS_TRACE_H

#include <inttypes.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

#include <cutils/compiler.h>

__BEGIN_DECLS

#define ATRACE_TAG_NEVER            0
#define ATRACE_TAG_ALWAYS           (1<<0)
#define ATRACE_TAG_GRAPHICS         (1<<1)
#define ATRACE_TAG_INPUT            (1<<2)
#define ATRACE_TAG_VIEW             (1<<3)
#define ATRACE_TAG_HAL              (1<<11)
#define ATRACE_TAG_APP              (1<<12)
#define ATRACE_TAG_POWER            (1<<17)
#define ATRACE_TAG_SYSTEM_SERVER    (1<<19)
#define ATRACE_TAG_AIDL             (1<<24)
#define ATRACE_TAG_LAST             (1<<27)

#define ATRACE_TAG_NOT_READY        (1ULL<<63)
#define ATRACE_TAG_VALID_MASK ((ATRACE_TAG_LAST - 1) | ATRACE_TAG_LAST)

#ifndef ATRACE_TAG
#define ATRACE_TAG ATRACE_TAG_NEVER
#endif

void atrace_setup();
void atrace_init();
void atrace_update_tags();
void atrace_set_debuggable(bool debuggable);
void atrace_set_tracing_enabled(bool enabled);

uint64_t atrace_get_enabled_tags();

// Write without asking for a tag. Line breaks in a name are written as blanks.
void atrace_begin_body(const char* name);
void atrace_end_body();
void atrace_async_begin_body(const char* name, int32_t cookie);
void atrace_async_end_body(const char* name, int32_t cookie);
void atrace_int_body(const char* name, int32_t value);
void atrace_int64_body(const char* name, int64_t value);

#define ATRACE_INIT() atrace_init()
#define ATRACE_GET_ENABLED_TAGS() atrace_get_enabled_tags()

#define ATRACE_ENABLED() atrace_is_tag_enabled(ATRACE_TAG)
static inline uint64_t atrace_is_tag_enabled(uint64_t tag) {
    return atrace_get_enabled_tags() & tag;
}

#define ATRACE_BEGIN(name) atrace_begin(ATRACE_TAG, name)
static inline void atrace_begin(uint64_t tag, const char* name) {
    if (CC_UNLIKELY(atrace_is_tag_enabled(tag))) atrace_begin_body(name);
}

#define ATRACE_END() atrace_end(ATRACE_TAG)
static inline void atrace_end(uint64_t tag) {
    if (CC_UNLIKELY(atrace_is_tag_enabled(tag))) atrace_end_body();
}

#define ATRACE_ASYNC_BEGIN(name, cookie) atrace_async_begin(ATRACE_TAG, name, cookie)
static inline void atrace_async_begin(uint64_t tag, const char* name, int32_t cookie) {
    if (CC_UNLIKELY(atrace_is_tag_enabled(tag))) atrace_async_begin_body(name, cookie);
}

#define ATRACE_ASYNC_END(name, cookie) atrace_async_end(ATRACE_TAG, name, cookie)
static inline void atrace_async_end(uint64_t tag, const char* name, int32_t cookie) {
    if (CC_UNLIKELY(atrace_is_tag_enabled(tag))) atrace_async_end_body(name, cookie);
}

#define ATRACE_INT(name, value) atrace_int(ATRACE_TAG, name, value)
static inline void atrace_int(uint64_t tag, const char* name, int32_t value) {
    if (CC_UNLIKELY(atrace_is_tag_enabled(tag))) atrace_int_body(name, value);
}

#define ATRACE_INT64(name, value) atrace_int64(ATRACE_TAG, name, value)
static inline void atrace_int64(uint64_t tag, const char* name, int64_t value) {
    if (CC_UNLIKELY(atrace_is_tag_enabled(tag))) atrace_int64_body(name, value);
}

__END_DECLS

#endif  // _LIBS_CUTILS_TRACE_H
