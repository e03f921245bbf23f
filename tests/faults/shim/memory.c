/* SQLite's allocations: they are counted, and one of them fails. */
#include "shim.h"

#include <sqlite3.h>
#include <stddef.h>

long allocations;

static sqlite3_mem_methods memory;

static bool memoryFails(void)
{
    ++allocations;
    return switches.action == MEMORY && goesWrong(allocations);
}

static void *allocate(int size)
{
    return memoryFails() ? NULL : memory.xMalloc(size);
}

static void *reallocate(void *place, int size)
{
    return memoryFails() ? NULL : memory.xRealloc(place, size);
}

void countAllocations(void)
{
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &memory);
    sqlite3_mem_methods counted = memory;
    counted.xMalloc = allocate;
    counted.xRealloc = reallocate;
    sqlite3_config(SQLITE_CONFIG_MALLOC, &counted);
}
