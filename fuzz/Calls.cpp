// Sequences of the 14 exported functions, with arguments, configurations and links as bad as they come.
// Built twice: what a configuration says of the simulation holds for the life of a process.
#include "Link.h"

#include <fuzzer/FuzzedDataProvider.h>

#include "TornvalC63.h"
#include "platform/Api.h"

namespace {

constexpr const char* k_apszLines[] = {"\n",
                                       "CHANNEL_1=12\n",
                                       "CHANNEL_2=13\n",
                                       "CHANNEL_3=-1\n",
                                       "TIMEOUT=0\n",
                                       "[IM]\n",
                                       "DRIVER_NAME=\n",
                                       "DECOMPRESS_DATA=0\n",
                                       "ACQUISITION_PERIOD=99999\n",
                                       "[BT]\n",
                                       "[USB]\n",
                                       "PORT_NUMBER=300\n",
                                       "LOG_CALIBRATION_COEF=1\n",
                                       "CHANNEL_1=3\n",
                                       "SET_RESET_EXEC=/nowhere\n",
                                       "TIMEOUT=4294967295\n"};

/** A host whose every decision is the fuzzer's. */
class CHost
{
public:
    CHost(const uint8_t* i_pucData, size_t i_ulSize) : m_Input(i_pucData, i_ulSize)
    {
        // Lines of the trace are made and find no file to go into.
        static CFuzzedHome s_Home("[LOG]\nENABLE=1\nLEVEL=4369\n");
        setenv("TORNVAL_HD00", "/nowhere", 1);
        m_pHome = &s_Home;
    }

    void Run()
    {
        const CFuzzedHome::CPlay l_Play(*m_pHome, [this] { return Next(); });
        Check(LoadMeasDrivers(0x11), 6);
        while (m_Input.remaining_bytes() > 0) {
            Call();
        }
        m_bOver = true;
        Check(LoadMeasDrivers(0), 6);
        // The router's lock and the objects of the library itself are what stays.
        static const uint32_t s_ulHandles = cecore::GetOpenHandleCount();
        Require(cecore::GetOpenHandleCount() == s_ulHandles);
    }

private:
    /** The next call of the link. */
    S_HOSTILE_STEP Next()
    {
        S_HOSTILE_STEP l_Step;
        if (m_bOver) {
            return l_Step;
        }
        const auto l_ucHow = m_Input.ConsumeIntegral<uint8_t>();
        l_Step.ulResult = l_ucHow % 8 != 0 ? 1 : 0;
        l_Step.ulError = l_ucHow;
        l_Step.bSignal = l_ucHow % 16 != 1;
        l_Step.bThrow = l_ucHow == 0x92;
        l_Step.bCount = l_ucHow % 32 != 2;
        if (l_ucHow % 4 == 3) {
            m_vBytes =
                m_Input.ConsumeBytes<uint8_t>(m_Input.ConsumeIntegralInRange<size_t>(0, 200));
        } else {
            // A good answer of the board, and an accepting acknowledgement of a probe.
            static const std::vector<uint8_t> s_vGood{0, 0, 0, 0, 40, 0, 0, 0, 0, 0, 0,
                                                      0, 0, 0, 0, 0,  1, 0, 0, 0, 0, 0};
            m_vBytes = s_vGood;
            m_vBytes.resize(200);
        }
        l_Step.pucBytes = m_vBytes.data();
        l_Step.ulSize = static_cast<uint32_t>(m_vBytes.size());
        l_Step.ulCount = l_ucHow % 64 == 5 ? m_Input.ConsumeIntegral<uint32_t>() : l_Step.ulSize;
        return l_Step;
    }

    static void Check(const S_RESULT& i_Result, uint32_t i_ulStep = 99)
    {
        Require(i_Result.ulStatus <= 1 && i_Result.ulDriverType <= 4 && i_Result.ulStep <= 7);
        Require(i_ulStep == 99 || i_Result.ulStep == i_ulStep);
    }

    uint32_t Id()
    {
        S_DRIVER_INFO l_aInfo[4];
        uint32_t l_ulCount = 99;
        const auto l_ulMax = m_Input.ConsumeIntegralInRange<uint32_t>(0, 4);
        Require(EnumMeasDrivers(l_aInfo, l_ulMax, &l_ulCount) == 1 && l_ulCount <= l_ulMax);
        if (l_ulCount == 0) {
            m_bProbe = false;
            return m_Input.ConsumeIntegral<uint32_t>();
        }
        const S_DRIVER_INFO& l_Info = l_aInfo[m_Input.ConsumeIntegral<uint8_t>() % l_ulCount];
        // Its number tells nothing: of many loads the numbers of one class reach those of another.
        m_bProbe = l_Info.szLinkType[0] != 'I' && l_Info.szLinkType[0] != 'M';
        return l_Info.ulDriverID;
    }

    /** Room for some values, at an address that fits them or does not, or none. */
    template <typename T>
    T* Room()
    {
        alignas(16) static uint8_t s_aucRooms[8][512];
        const auto l_ucHow = m_Input.ConsumeIntegral<uint8_t>();
        uint8_t* l_pucRoom = s_aucRooms[m_ulRoom++ % 8];
        return l_ucHow % 8 == 0 ? nullptr : reinterpret_cast<T*>(l_pucRoom);
    }

    void Exchange()
    {
        const uint32_t l_ulID = Id();
        const std::vector<uint8_t> l_vPayload =
            m_Input.ConsumeBytes<uint8_t>(m_Input.ConsumeIntegralInRange<size_t>(0, 40));
        alignas(4) uint8_t l_aucRecord[13] = {};
        // A record may lie at any address.
        auto* l_pCmde = reinterpret_cast<S_SEND_STRUCT*>(l_aucRecord + 1);
        static constexpr uint8_t k_aucCommands[] = {208, 211, 212, 213, 0xA1, 0xFF,
                                                    1,   22,  32,  33,  64};
        l_pCmde->CmdeID = m_Input.ConsumeBool() ? m_Input.PickValueInArray(k_aucCommands)
                                                : m_Input.ConsumeIntegral<uint8_t>();
        const bool l_bBoard = !m_bProbe;
        l_pCmde->ulTimeout = m_Input.ConsumeIntegral<uint8_t>();
        l_pCmde->ulSize = static_cast<uint32_t>(l_vPayload.size()) + (l_bBoard ? 4 : 0);
        S_RECEIVE_STRUCT l_Receive{};
        const bool l_bNoRecord = m_Input.ConsumeIntegral<uint8_t>() == 1;
        const bool l_bNoReceive = m_Input.ConsumeIntegral<uint8_t>() == 1;
        // Without a payload a size may be anything.
        const bool l_bNoPayload = m_Input.ConsumeIntegral<uint8_t>() % 16 == 1;
        if (l_bNoPayload && l_bBoard) {
            l_pCmde->ulSize = m_Input.ConsumeIntegral<uint32_t>();
        }
        Check(SendMeasBoardCmd(l_ulID, l_bNoRecord ? nullptr : l_pCmde,
                               l_bNoReceive ? nullptr : &l_Receive,
                               l_bNoPayload ? nullptr : l_vPayload.data()));
        const uint32_t l_ulRoom = std::min<uint32_t>(l_Receive.ulNbReturnByte, 65544);
        int32_t l_lSize = 0;
        const auto l_ucHow = m_Input.ConsumeIntegral<uint8_t>();
        Check(GetMeasBoardResult(l_ulID, l_ulRoom, l_ucHow % 16 == 1 ? nullptr : m_vcRaw.data(),
                                 l_ucHow % 16 == 2 ? nullptr : &l_lSize,
                                 l_ucHow % 16 == 3 ? nullptr : m_vlData.data(), l_ucHow),
              l_ulID == 0 ? 5 : 99);
    }

    void Configure()
    {
        std::string l_strText;
        for (auto l_ul = m_Input.ConsumeIntegralInRange<uint32_t>(0, 6); l_ul > 0; --l_ul) {
            l_strText += m_Input.PickValueInArray(k_apszLines);
        }
        const bool l_bBefore = m_Input.ConsumeBool();
        const std::string l_strFree = m_Input.ConsumeRandomLengthString(40);
        m_pHome->Write("TornvalC63.ini", l_bBefore
                                             ? l_strText + CFuzzedHome::Sections()
                                             : CFuzzedHome::Sections() + l_strText + l_strFree);
    }

    void Call()
    {
        uint32_t l_ulCount = 0;
        switch (m_Input.ConsumeIntegral<uint8_t>() % 16) {
        case 0:
            if (m_Input.ConsumeIntegral<uint8_t>() % 4 == 0) {
                Configure();
            }
            Check(
                LoadMeasDrivers(m_Input.ConsumeBool() ? 0x11 : m_Input.ConsumeIntegral<int32_t>()),
                6);
            break;
        case 1:
            EnumMeasDrivers(nullptr, m_Input.ConsumeIntegral<uint32_t>(), &l_ulCount);
            EnumMeasDrivers(nullptr, 0, nullptr);
            break;
        case 2:
            Check(InitialiseMeasBoard(Id(), m_Input.ConsumeIntegral<uint8_t>() % 3));
            break;
        case 3:
            Check(ResetMeasBoard(Id()));
            break;
        case 4:
            Check(CurrentGeneratorBurst(m_Input.ConsumeIntegral<uint32_t>()));
            break;
        case 5:
            Check(GetInstantMeasure(Room<int32_t>(), m_Input.ConsumeIntegral<uint32_t>()));
            break;
        case 6:
            Check(GetInstantMeasureWithoutCompensation(Room<int32_t>(),
                                                       m_Input.ConsumeIntegral<uint8_t>()));
            break;
        case 7:
        case 8:
            Check(GetInstantMeasureOnDevice(Id(), Room<int32_t>(),
                                            m_Input.ConsumeIntegral<uint8_t>() % 4,
                                            m_Input.ConsumeIntegral<uint32_t>()));
            break;
        case 9:
            Check(GetAllMicroOhmMeasure(Room<int32_t>(), Room<int32_t>(), Room<int32_t>()));
            break;
        case 10:
            Check(GetMicroOhmMeasure(Room<int32_t>()));
            break;
        case 11:
            Require(GetMBCalibrationCoeff(Room<double>(), Room<double>(),
                                          m_Input.ConsumeIntegralInRange<uint32_t>(0, 64)) <= 1);
            break;
        case 12:
            Check(SetMBCalibration(Room<uint32_t>(), Room<double>(), Room<double>(),
                                   m_Input.ConsumeIntegralInRange<uint32_t>(0, 20)));
            break;
        default:
            Exchange();
            break;
        }
    }

    FuzzedDataProvider m_Input;
    CFuzzedHome* m_pHome = nullptr;
    bool m_bOver = false;
    bool m_bProbe = false; // of the driver that Id() gave
    uint32_t m_ulRoom = 0;
    std::vector<uint8_t> m_vBytes;
    static std::vector<char> m_vcRaw;
    static std::vector<int32_t> m_vlData;
};

std::vector<char> CHost::m_vcRaw(70000);
std::vector<int32_t> CHost::m_vlData(3 + 3 * 65544);

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize)
{
    CHost(i_pucData, i_ulSize).Run();
    return 0;
}
