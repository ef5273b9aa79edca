/** Prints where the core services look for files, for a process that is started with privileges. */
#include <stdio.h>

#include "cecore.h"

int main(void)
{
    char l_aszPath[4096];
    for (uint32_t i = CECORE_PATH_HOME; i <= CECORE_PATH_VOLUME; ++i) {
        CeGetPath(i, l_aszPath, sizeof(l_aszPath));
        puts(l_aszPath);
    }
    return 0;
}
