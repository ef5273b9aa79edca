#include "TornvalC63Text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr S_TEXT_CALL k_Nothing = {TORNVAL_TEXT_NO_COMMAND, 0};

struct S_CASE
{
    S_RESULT Record; // driver type, step, last error, firmware status, status
    S_TEXT_CALL Call = k_Nothing;
    std::vector<const char*> vWords;
    std::vector<const char*> vNotWords = {};
    bool bTimeOut = false;
};

// What a person must be told for each kind of record that the library hands out.
const S_CASE k_aCases[] = {
    {{3, 5, 0, 0, 0}, k_Nothing, {"success"}, {"failed"}},
    {{3, 3, 0, 1, 0}, k_Nothing, {"success", "link did not open"}},
    // The device's own word at a send, and the two meanings of small words in a fetch.
    {{3, 7, 0, 9, 1}, {212, 3}, {"refused the command", "9 (0x9)", "instant measure", "board"}},
    {{3, 5, 21, 2, 1}, k_Nothing, {"link library's fetch call failed", "21 (0x15)", "not ready"}},
    {{4, 5, 0, 2, 1}, k_Nothing, {"left no reason", "code 2"}},
    {{3, 5, 0, 5, 1}, k_Nothing, {"status field of the answer"}, {"firmware reported"}},
    {{3, 5, 0, 2007, 1}, {211, 9}, {"firmware reported error or return code 2007", "upload"}},
    {{4, 5, 0, 0xFFFFFF81, 1}, {161, 9}, {"status byte 0x81", "milliohm"}, {"4294967169"}},
    // All zero at a fetch: the time it took tells a time-out from an answer that does not decode.
    {{3, 5, 0, 0, 1}, {212, 5010}, {"time-out", "5.0 s"}, {"decode"}, true},
    {{3, 5, 0, 0, 1}, {212, 4999}, {"does not decode"}, {"time-out", "in time"}},
    {{4, 5, 0, 0, 1}, k_Nothing, {"no answer came in time", "does not decode"}},
    {{3, 5, 0, 0, 1}, {211, 10}, {"DECOMPRESS_DATA"}},
    {{1, 5, 1460, 0, 1}, k_Nothing, {"1460", "time-out"}, {}, true},
    // Probes.
    {{2, 5, 0, 44, 1}, {33, 4}, {"status 44", "still carries samples", "USB probe"}},
    {{1, 5, 0, 48, 1}, {1, 4}, {"status 48", "still carries samples", "Bluetooth"}},
    {{1, 5, 0, 45, 1}, {33, 4}, {"status 45"}, {"carries samples"}},
    {{1, 5, 0, 5, 1}, {33, 4}, {"probe reported status 5"}, {"status field"}},
    {{1, 5, 0, 0xFFFFFFFF, 1}, {22, 4}, {"status 0xFF"}},
    {{1, 5, 0, 0, 1}, {33, 9000}, {"reply does not decode"}, {"time-out"}},
    {{1, 2, 31, 0, 1}, {32, 0}, {"31 (0x1F)", "start of a rolling acquisition"}},
    {{2, 2, 0, 0, 1}, {7, 0}, {"does not accept this command", "16 to 23"}},
    // Refused by the driver itself, or by the routing.
    {{3, 2, 0, 0, 1}, {0, 0}, {"does not accept this command", "208 to 215"}},
    {{4, 2, 0, 0, 1}, {160, 0}, {"161 and 255", "160 (0xA0)"}},
    {{0, 2, 0, 0, 1}, k_Nothing, {"no driver with this ID"}},
    {{0, 3, 0, 0, 1}, k_Nothing, {"initialisation", "no driver with this ID"}},
    {{0, 0, 0, 0, 1}, k_Nothing, {"no driver for it"}},
    {{3, 0, 0, 0, 1}, k_Nothing, {"argument was refused or memory"}},
    {{1, 3, 0, 0, 1}, k_Nothing, {"link did not open"}},
    {{3, 4, 0, 0, 1}, k_Nothing, {"did not close"}},
    {{0, 6, 0, 0, 1}, k_Nothing, {"loading of the drivers", "did not come up"}},
    {{0, 1, 126, 0, 1}, k_Nothing, {"load of a link library", "library not found"}},
    {{0, 1, 0, 0, 1}, k_Nothing, {"no library was named"}},
    // Numbers that nobody has heard of.
    {{77, 99, 54321, 66, 1},
     k_Nothing,
     {"99 (0x63)", "77 (0x4D)", "54321 (0xD431): not known here", "66 (0x42)"}},
    {{3, 99, 0, 0, 8}, {300, 0}, {"no cause was recorded", "neither 0 nor 1"}},
};

std::string Record(const S_RESULT& i_Result, const S_TEXT_CALL* i_pCall)
{
    std::string l_strText(TornvalTextRecord(&i_Result, i_pCall, nullptr, 0), '\0');
    EXPECT_EQ(TornvalTextRecord(&i_Result, i_pCall, l_strText.data(),
                                static_cast<uint32_t>(l_strText.size() + 1)),
              l_strText.size());
    return l_strText;
}

TEST(Text, SaysWhatEachRecordMeans)
{
    for (const S_CASE& l_Case : k_aCases) {
        const std::string l_strText = Record(l_Case.Record, &l_Case.Call);
        SCOPED_TRACE(l_strText);
        for (const char* l_pszWords : l_Case.vWords) {
            EXPECT_NE(l_strText.find(l_pszWords), std::string::npos) << l_pszWords;
        }
        for (const char* l_pszWords : l_Case.vNotWords) {
            EXPECT_EQ(l_strText.find(l_pszWords), std::string::npos) << l_pszWords;
        }
        EXPECT_EQ(TornvalTextIsTimeOut(&l_Case.Record, &l_Case.Call), l_Case.bTimeOut ? 1 : 0);
    }
}

// A short room is kept to, and what is not there is an empty text.
TEST(Text, StaysInItsRoomAndTakesNulls)
{
    char l_szText[8] = "???????";
    EXPECT_EQ(TornvalTextLinkType("USB", l_szText, 4), 9U);
    EXPECT_STREQ(l_szText, "USB");
    EXPECT_EQ(l_szText[4], '?');
    EXPECT_EQ(TornvalTextStep(TORNVAL_STEP_SEND, l_szText, 0), 17U);
    EXPECT_STREQ(l_szText, "USB");
    EXPECT_EQ(TornvalTextRecord(nullptr, nullptr, l_szText, 8), 0U);
    EXPECT_STREQ(l_szText, "");
    EXPECT_EQ(TornvalTextFirmwareStatus(nullptr, l_szText, 8), 0U);
    EXPECT_EQ(TornvalTextLinkType(nullptr, l_szText, 8), 0U);
    EXPECT_EQ(TornvalTextIsTimeOut(nullptr, nullptr), 0);
    const S_RESULT l_Late = {0, 0, 1460, 0, 1};
    EXPECT_EQ(TornvalTextIsTimeOut(&l_Late, nullptr), 1);
    EXPECT_EQ(Record(l_Late, nullptr), Record(l_Late, &k_Nothing));
}

} // namespace
