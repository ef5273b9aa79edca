// A configuration file. Its keys are asked for under the names that the drivers use and under one
// that is in no file.
#include "Fuzz.h"

#include <cmath>
#include <cstring>

#include "support/ConfigFile.h"

int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize)
{
    tornval::CConfigFile l_Config;
    Require(l_Config.Load(FileOf(i_pucData, i_ulSize).c_str()));
    for (const char* l_pszSection : {"IM", "BT", ""}) {
        for (const char* l_pszKey : {"SIMU", "DRIVER_NAME", "A0", ""}) {
            const uint32_t l_ulNumber = l_Config.GetInt(l_pszSection, l_pszKey, -1);
            Require(l_ulNumber <= 0x7FFFFFFF || l_ulNumber == 0xFFFFFFFF);
            const double l_dNumber = l_Config.GetDouble(l_pszSection, l_pszKey, 1.5);
            Require(!std::isnan(l_dNumber) && l_dNumber != 0.0);
            for (int32_t l_lSize : {1, 2, 20, 260}) {
                char l_aszValue[260];
                std::memset(l_aszValue, 'x', sizeof(l_aszValue));
                const int32_t l_lLength =
                    l_Config.GetString(l_pszSection, l_pszKey, "'default'", l_aszValue, l_lSize);
                Require(l_lLength >= 0 && l_lLength < l_lSize);
                Require(l_lSize < 2 || l_aszValue[l_lLength] == '\0');
                Require(l_lSize == 260 || l_aszValue[l_lSize] == 'x');
            }
        }
    }
    Require(l_Config.GetInt("NO SECTION IN ANY FILE\n", "KEY", -7) == static_cast<uint32_t>(-7));
    return 0;
}
