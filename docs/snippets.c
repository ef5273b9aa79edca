/* The examples of the reference, one for each function. Compiled and run by the tests. */
#include <TornvalC63.h>
#include <TornvalC63Text.h>
#include <cecore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static uint32_t g_board;

//! [TornvalTextRecord]
static int Check(const char* what, S_RESULT result)
{
    if (result.ulStatus != 0) {
        char words[512];
        TornvalTextRecord(&result, NULL, words, sizeof words);
        fprintf(stderr, "%s: %s\n", what, words);
    }
    return result.ulStatus == 0;
}
//! [TornvalTextRecord]

//! [LoadMeasDrivers]
static int Open(void)
{
    return Check("load", LoadMeasDrivers(TORNVAL_LOAD_BOARD | TORNVAL_LOAD_MILLIOHM));
}
//! [LoadMeasDrivers]

//! [EnumMeasDrivers]
static uint32_t FindBoard(void)
{
    S_DRIVER_INFO drivers[4];
    uint32_t count = 0;
    EnumMeasDrivers(drivers, 4, &count);
    for (uint32_t i = 0; i < count; ++i) {
        if (strcmp(drivers[i].szLinkType, "IM") == 0) {
            return drivers[i].ulDriverID;
        }
    }
    return 0;
}
//! [EnumMeasDrivers]

//! [InitialiseMeasBoard]
static int StartAnew(uint32_t driver)
{
    return Check("initialise", InitialiseMeasBoard(driver, 1));
}
//! [InitialiseMeasBoard]

//! [SendMeasBoardCmd]
static int Send(uint32_t driver, uint8_t command, S_RECEIVE_STRUCT* receive)
{
    S_SEND_STRUCT send = {0, command, 0, 0, 10, 4}; /* no payload: ulSize is 4 */
    return Check("send", SendMeasBoardCmd(driver, &send, receive, NULL));
}
//! [SendMeasBoardCmd]

//! [GetMeasBoardResult]
static int Upload(uint32_t board)
{
    static int32_t words[3 + 3 * 65544];
    int32_t size = 0;
    S_RECEIVE_STRUCT receive;
    if (!Send(board, 209, &receive) || !Send(board, 211, &receive)) {
        return 0;
    }
    char* raw = malloc(receive.ulNbReturnByte + 1);
    int done = raw != NULL && Check("upload", GetMeasBoardResult(board, receive.ulNbReturnByte, raw,
                                                                 &size, words, 0));
    free(raw);
    if (done) {
        printf("%d samples, the first of channel 1 is %d\n", (int)words[0], (int)words[3]);
    }
    return done;
}
//! [GetMeasBoardResult]

//! [GetInstantMeasure]
static int Measure(uint32_t voie)
{
    int32_t value = 0;
    if (!Check("measure", GetInstantMeasure(&value, voie))) {
        return 0;
    }
    printf("voie %u: %d\n", (unsigned)voie, (int)value);
    return 1;
}
//! [GetInstantMeasure]

//! [GetInstantMeasureWithoutCompensation]
static int MeasureRaw(uint32_t voie)
{
    int32_t counts = 0;
    return Check("raw measure", GetInstantMeasureWithoutCompensation(&counts, voie));
}
//! [GetInstantMeasureWithoutCompensation]

//! [GetInstantMeasureOnDevice]
static int MeasureOn(uint32_t driver)
{
    int32_t value = 0;
    return Check("measure", GetInstantMeasureOnDevice(driver, &value, 2, 0));
}
//! [GetInstantMeasureOnDevice]

//! [GetAllMicroOhmMeasure]
static int MicroOhms(void)
{
    int32_t first = 0;
    int32_t second = 0;
    int32_t third = 0;
    return Check("milliohm module", GetAllMicroOhmMeasure(&first, &second, &third));
}
//! [GetAllMicroOhmMeasure]

//! [GetMicroOhmMeasure]
static int MicroOhm(void)
{
    int32_t value = 0;
    return Check("milliohm module", GetMicroOhmMeasure(&value));
}
//! [GetMicroOhmMeasure]

//! [CurrentGeneratorBurst]
static int Burst(void)
{
    return Check("generator", CurrentGeneratorBurst(1));
}
//! [CurrentGeneratorBurst]

//! [GetMBCalibrationCoeff]
static int ShowCalibration(void)
{
    double a[13];
    double b[13];
    if (GetMBCalibrationCoeff(a, b, 13) == 0) {
        return 0;
    }
    printf("input 2: a %.0f, b %.0f\n", a[2], b[2]);
    return 1;
}
//! [GetMBCalibrationCoeff]

//! [SetMBCalibration]
static int Calibrate(uint32_t voie, double a, double b)
{
    return Check("calibration", SetMBCalibration(&voie, &a, &b, 1)) && Open();
}
//! [SetMBCalibration]

//! [ResetMeasBoard]
static int CloseLink(uint32_t driver)
{
    return Check("close", ResetMeasBoard(driver));
}
//! [ResetMeasBoard]

int main(void)
{
    if (strcmp(CeGetVersion(), TORNVAL_VERSION) != 0 || !Open()) {
        return 1;
    }
    g_board = FindBoard();
    return StartAnew(g_board) && Upload(g_board) && Measure(2) && MeasureRaw(2) &&
                   MeasureOn(g_board) && MicroOhms() && MicroOhm() && Burst() &&
                   ShowCalibration() && Calibrate(2, 20000, 100) && CloseLink(FindBoard())
               ? 0
               : 1;
}
