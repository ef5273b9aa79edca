/* What a host does: load the drivers, list them, take a measure. */
#include <TornvalC63.h>
#include <stdio.h>

static int Failed(const char* what, S_RESULT result)
{
    fprintf(stderr, "%s failed at step %u: system %u, firmware %u\n", what, (unsigned)result.ulStep,
            (unsigned)result.ulLastError, (unsigned)result.ulFwStatus);
    return 1;
}

int main(void)
{
    S_DRIVER_INFO drivers[8];
    uint32_t count = 0;
    int32_t value = 0;
    S_RESULT result = LoadMeasDrivers(TORNVAL_LOAD_BOARD | TORNVAL_LOAD_MILLIOHM);
    if (result.ulStatus != 0) {
        return Failed("load", result);
    }
    EnumMeasDrivers(drivers, 8, &count);
    for (uint32_t i = 0; i < count; ++i) {
        printf("%u %s %s\n", (unsigned)drivers[i].ulDriverID, drivers[i].szLinkType,
               drivers[i].szDriverName);
    }
    result = GetInstantMeasure(&value, 2);
    if (result.ulStatus != 0) {
        return Failed("measure", result);
    }
    printf("input 2: %d\n", (int)value);
    return 0;
}
