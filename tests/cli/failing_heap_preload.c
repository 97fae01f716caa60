/* SPDX-License-Identifier: MIT */
/* Loaded before the C run-time library (LD_PRELOAD): the allocation whose number FAIL_AT holds fails, counted from 0
 * over all threads; with FAIL_ALL=1 every one from that on. FAIL_COUNT names a file that gets, at the program's end,
 * the number of allocations and the number of blocks that are still alive. */
#include <errno.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

extern void* __libc_malloc(size_t bytes);
extern void* __libc_calloc(size_t count, size_t bytes);
extern void* __libc_realloc(void* block, size_t bytes);
extern void* __libc_memalign(size_t alignment, size_t bytes);
extern void __libc_free(void* block);

static atomic_long number;
static atomic_long alive;
static long fail_at = -1;
static int fail_all;
static const char* count_name;

__attribute__((constructor)) static void read_settings(void)
{
    const char* text = getenv("FAIL_AT");
    fail_all = getenv("FAIL_ALL") != NULL;
    count_name = getenv("FAIL_COUNT");
    atomic_store(&number, 0);
    fail_at = text != NULL ? atol(text) : -1;
}

__attribute__((destructor)) static void write_count(void)
{
    const long count = atomic_load(&number);
    const long left = atomic_load(&alive);
    FILE* file;
    fail_at = -1;
    file = count_name != NULL ? fopen(count_name, "w") : NULL;
    if (file != NULL) {
        fprintf(file, "%ld %ld\n", count, left);
        fclose(file);
    }
}

static int fails(void)
{
    const long at = atomic_fetch_add(&number, 1);
    if (fail_at < 0 || (fail_all ? at < fail_at : at != fail_at))
        return 0;
    errno = ENOMEM;
    return 1;
}

static void* counted(void* block)
{
    if (block != NULL)
        atomic_fetch_add(&alive, 1);
    return block;
}

void free(void* block)
{
    if (block != NULL)
        atomic_fetch_sub(&alive, 1);
    __libc_free(block);
}

void* malloc(size_t bytes)
{
    return fails() ? NULL : counted(__libc_malloc(bytes));
}

void* calloc(size_t count, size_t bytes)
{
    return fails() ? NULL : counted(__libc_calloc(count, bytes));
}

void* realloc(void* block, size_t bytes)
{
    if (fails())
        return NULL;
    if (block == NULL)
        return counted(__libc_malloc(bytes));
    if (bytes == 0) /* as the run-time library has it */
        return free(block), NULL;
    return __libc_realloc(block, bytes);
}

void* aligned_alloc(size_t alignment, size_t bytes)
{
    return fails() ? NULL : counted(__libc_memalign(alignment, bytes));
}

int posix_memalign(void** block, size_t alignment, size_t bytes)
{
    void* const made = fails() ? NULL : counted(__libc_memalign(alignment, bytes));
    if (made == NULL)
        return ENOMEM;
    *block = made;
    return 0;
}
