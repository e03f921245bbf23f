/* What the environment asks for, and random numbers that are the same in every run. */
#include "shim.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct Switches switches = {.channelIn = -1, .channelOut = -1};

long numberFrom(const char *variable)
{
    const char *value = getenv(variable);
    return value ? atol(value) : 0;
}

__attribute__((constructor)) static void readSwitches(void)
{
    static const char *const actions[] = {
        "", "kill", "half", "EIO", "ENOSPC", "short", "memory", "pause"};
    const char *name = getenv("FAULT_ACTION");
    for (int i = KILL; name && i <= PAUSE; ++i) {
        if (strcmp(name, actions[i]) == 0) {
            switches.action = (enum Action)i;
        }
    }
    switches.at = numberFrom("FAULT_AT");
    switches.forever = numberFrom("FAULT_FOREVER") != 0;
    switches.recordsAll = numberFrom("FAULT_RECORD_ALL") != 0;
    switches.sameRandom = numberFrom("FAULT_SAME_RANDOM") != 0;
    const char *channel = getenv("FAULT_CHANNEL");
    if (channel && sscanf(channel, "%d,%d", &switches.channelIn, &switches.channelOut) == 2) {
        readChannel();
    }
    if (switches.channelIn < 0 || switches.action == PAUSE) {
        openRecord();
    }
    if (switches.recordsAll || switches.action == MEMORY) {
        countAllocations();
    }
    if (getenv("FAULT_SECURE_DELETE")) {
        setSecureDelete();
    }
}

struct Identifier {
    uint32_t first;
    uint16_t second;
    uint16_t third;
    uint8_t fourth[8];
};

struct Identifier _ZN5QUuid10createUuidEv(void);

/* QUuid::createUuid */
struct Identifier _ZN5QUuid10createUuidEv(void)
{
    static uint32_t number;
    return switches.sameRandom ? (struct Identifier){++number, 0, 0x4000, {0x80}}
                               : NEXT(_ZN5QUuid10createUuidEv)();
}
