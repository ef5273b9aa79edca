/* A host in C++: uploads an acquisition of the board, and puts a failure into words. */
#include <TornvalC63.h>
#include <TornvalC63Text.h>

#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

void Check(const S_RESULT& result)
{
    if (result.ulStatus != 0) {
        std::string words(TornvalTextRecord(&result, nullptr, nullptr, 0), '\0');
        TornvalTextRecord(&result, nullptr, words.data(), uint32_t(words.size() + 1));
        throw std::runtime_error(words);
    }
}

/* A send and its fetch; gives the decoded words: a count for each channel, then the samples. */
std::vector<int32_t> Exchange(uint32_t driver, uint8_t command)
{
    S_SEND_STRUCT send{0, command, 0, 0, 10, 4};
    S_RECEIVE_STRUCT receive{};
    Check(SendMeasBoardCmd(driver, &send, &receive, nullptr));
    std::vector<char> raw(receive.ulNbReturnByte + 1);
    std::vector<int32_t> words(3 + 3 * 65544);
    int32_t size = 0;
    Check(GetMeasBoardResult(driver, receive.ulNbReturnByte, raw.data(), &size, words.data(), 0));
    return words;
}

} // namespace

int main()
try {
    Check(LoadMeasDrivers(TORNVAL_LOAD_BOARD));
    S_DRIVER_INFO board{};
    uint32_t count = 0;
    EnumMeasDrivers(&board, 1, &count);
    Exchange(board.ulDriverID, 209); // start
    for (int block = 0; block < 3; ++block) {
        const std::vector<int32_t> words = Exchange(board.ulDriverID, 211); // upload
        std::cout << "block " << block << ": " << words[0] << ' ' << words[1] << ' ' << words[2]
                  << " samples, the first " << words[3] << '\n';
    }
    LoadMeasDrivers(0);
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
