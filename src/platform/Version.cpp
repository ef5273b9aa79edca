#include "Api.h"

#include "TornvalC63.h"

const char* CeGetVersion(void)
{
    return TORNVAL_VERSION;
}
