/**
 * @file Host.h
 * @brief A host of the shared library: the 14 functions, called by what is loaded, told as text.
 */
#pragma once

#include <cstring>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <dlfcn.h>

#include "TornvalC63.h"

#define TORNVAL_FUNCTIONS(DO)                                                                      \
    DO(LoadMeasDrivers)                                                                            \
    DO(EnumMeasDrivers)                                                                            \
    DO(InitialiseMeasBoard)                                                                        \
    DO(ResetMeasBoard)                                                                             \
    DO(SendMeasBoardCmd)                                                                           \
    DO(GetMeasBoardResult)                                                                         \
    DO(CurrentGeneratorBurst)                                                                      \
    DO(GetInstantMeasure)                                                                          \
    DO(GetInstantMeasureWithoutCompensation)                                                       \
    DO(GetInstantMeasureOnDevice)                                                                  \
    DO(GetAllMicroOhmMeasure)                                                                      \
    DO(GetMicroOhmMeasure)                                                                         \
    DO(GetMBCalibrationCoeff)                                                                      \
    DO(SetMBCalibration)

/** The library for the life of this object. What a call gives is told as its record's five words and,
 *  where it succeeded, the values behind an equals sign. */
class CHost
{
public:
    /** @param i_pfnInside told when a call begins (true) and ends. */
    explicit CHost(void (*i_pfnInside)(bool) = [](bool) {})
        : m_pfnInside(i_pfnInside), m_pHandle(dlopen(TORNVAL_LIBRARY, RTLD_NOW | RTLD_LOCAL))
    {
        if (m_pHandle == nullptr) {
            throw std::runtime_error(dlerror());
        }
#define GET(name) Get(#name, name##_);
        TORNVAL_FUNCTIONS(GET)
#undef GET
    }
    CHost(const CHost&) = delete;
    CHost& operator=(const CHost&) = delete;
    ~CHost()
    {
        dlclose(m_pHandle);
    }

    /** Loads, and tells the link types of what is there. */
    std::string Load(int32_t i_lMask)
    {
        const S_RESULT l_Result = Call(LoadMeasDrivers_, i_lMask);
        uint32_t l_ulCount = 0;
        const uint32_t l_ulDone = Call(EnumMeasDrivers_, m_aInfo, 8, &l_ulCount);
        m_vInfo.assign(m_aInfo, m_aInfo + l_ulCount);
        std::string l_strTold = Record(l_Result) + " =" + (l_ulDone == 1 ? "" : " no list");
        for (const S_DRIVER_INFO& l_Info : m_vInfo) {
            l_strTold += std::string(" ") + l_Info.szLinkType;
        }
        return l_strTold;
    }

    /** ID of the first driver with a link type; 0: there is none. */
    [[nodiscard]] uint32_t Id(const std::string& i_strLinkType) const
    {
        for (const S_DRIVER_INFO& l_Info : m_vInfo) {
            if (l_Info.szLinkType == i_strLinkType) {
                return l_Info.ulDriverID;
            }
        }
        return 0;
    }

    /** A send with its fetch: the size and a sum of the processed values, where there are any. */
    std::string Exchange(const std::string& i_strLinkType, uint8_t i_ucCmdeID,
                         const std::vector<uint8_t>& i_vPayload = {})
    {
        const bool l_bProbe = i_strLinkType.size() > 2 || i_strLinkType == "BT";
        S_SEND_STRUCT l_Cmde{};
        l_Cmde.CmdeID = i_ucCmdeID;
        l_Cmde.ulSize = static_cast<uint32_t>(i_vPayload.size()) + (l_bProbe ? 0 : 4);
        S_RECEIVE_STRUCT l_Receive{};
        const uint32_t l_ulID = Id(i_strLinkType);
        S_RESULT l_Result = Call(SendMeasBoardCmd_, l_ulID, &l_Cmde, &l_Receive, i_vPayload.data());
        if (l_Result.ulStatus != 0) {
            return Record(l_Result);
        }
        m_vcRaw.assign(65544, 0);
        m_vlData.assign(3 + 3 * 65544, 0);
        int32_t l_lSize = 0;
        l_Result = Call(GetMeasBoardResult_, l_ulID, l_Receive.ulNbReturnByte, m_vcRaw.data(),
                        &l_lSize, m_vlData.data(), 0);
        const int64_t l_llSum = std::accumulate(m_vlData.begin(), m_vlData.end(), int64_t{0});
        return Told(l_Result, {l_lSize, l_llSum});
    }

    /** One call of an exported function. */
    template <typename R, typename... Formal>
    R Call(R (*i_pfn)(Formal...), std::type_identity_t<Formal>... i_Arguments)
    {
        m_pfnInside(true);
        const R l_Result = i_pfn(i_Arguments...);
        m_pfnInside(false);
        return l_Result;
    }

    static std::string Record(const S_RESULT& i_Result)
    {
        std::ostringstream l_Text;
        l_Text << i_Result.ulDriverType << ' ' << i_Result.ulStep << ' ' << i_Result.ulLastError
               << ' ' << i_Result.ulFwStatus << ' ' << i_Result.ulStatus;
        return l_Text.str();
    }
    static std::string Told(const S_RESULT& i_Result, const std::vector<int64_t>& i_vllValues)
    {
        std::string l_strTold = Record(i_Result);
        if (i_Result.ulStatus == 0) {
            l_strTold += " =";
            for (const int64_t l_llValue : i_vllValues) {
                l_strTold += " " + std::to_string(l_llValue);
            }
        }
        return l_strTold;
    }

#define HOLD(name) decltype(name)* name##_ = nullptr;
    TORNVAL_FUNCTIONS(HOLD)
#undef HOLD

private:
    template <typename F>
    void Get(const char* i_pszName, F*& o_pfn)
    {
        void* l_pAddress = dlsym(m_pHandle, i_pszName);
        std::memcpy(&o_pfn, &l_pAddress, sizeof(o_pfn));
    }

    void (*m_pfnInside)(bool);
    void* m_pHandle;
    S_DRIVER_INFO m_aInfo[8]{};
    std::vector<S_DRIVER_INFO> m_vInfo;
    std::vector<char> m_vcRaw = std::vector<char>(65544);
    std::vector<int32_t> m_vlData = std::vector<int32_t>(3 + 3 * 65544);
};
