// The bytes of a serial line: what the reader of either end takes for frames, however they come in
// pieces, and what board and module answer to them.
#include "Fuzz.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <vector>

#include "emulator/BoardFirmware.h"
#include "emulator/Crc.h"
#include "emulator/MilliOhmFirmware.h"
#include "links/line/FrameReader.h"

namespace {

using Bytes = std::vector<uint8_t>;

void RequireSealed(const Bytes& i_vFrame)
{
    Require(i_vFrame.size() >= 12 &&
            i_vFrame.size() == 8U + (i_vFrame[4] | static_cast<size_t>(i_vFrame[5]) << 8));
    const uint16_t l_usCrc = emulator::ComputeCrc(std::span(i_vFrame).subspan(2));
    Require(i_vFrame[0] == (l_usCrc & 0xFF) && i_vFrame[1] == l_usCrc >> 8);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize)
{
    if (i_ulSize < 2) {
        return 0;
    }
    // The first byte gives the size of the pieces, its top bit a silence after the first one.
    const size_t l_ulPiece = 1 + (i_pucData[0] & 0x3F);
    const bool l_bSilence = (i_pucData[0] & 0x80) != 0;
    Bytes l_vLine(i_pucData + 1, i_pucData + i_ulSize);
    if ((i_pucData[0] & 0x40) != 0 && l_vLine.size() >= 12) {
        // Seal what stands at the front, so that frames come through.
        const size_t l_ulLength = 8U + (l_vLine[4] | static_cast<size_t>(l_vLine[5]) << 8);
        if (l_ulLength >= 12 && l_ulLength <= l_vLine.size()) {
            emulator::SealFrame(std::span(l_vLine).first(l_ulLength));
        }
    }
    links::CFrameReader l_Whole, l_Pieces;
    std::vector<Bytes> l_vWhole, l_vPieces;
    const auto l_fnFeed = [&](std::span<const uint8_t> i_Bytes) {
        l_Whole.Feed(i_Bytes, [&](Bytes i_vFrame) { l_vWhole.push_back(std::move(i_vFrame)); });
        while (!i_Bytes.empty()) {
            const auto l_Piece = i_Bytes.first(std::min(l_ulPiece, i_Bytes.size()));
            l_Pieces.Feed(l_Piece,
                          [&](Bytes i_vFrame) { l_vPieces.push_back(std::move(i_vFrame)); });
            i_Bytes = i_Bytes.subspan(l_Piece.size());
        }
    };
    const size_t l_ulFirst = l_bSilence ? std::min(l_ulPiece, l_vLine.size()) : l_vLine.size();
    l_fnFeed(std::span(l_vLine).first(l_ulFirst));
    l_Whole.Silence();
    l_Pieces.Silence();
    l_fnFeed(std::span(l_vLine).subspan(l_ulFirst));
    Require(l_vWhole == l_vPieces);
    Require(l_Whole.Counters().ullFrames == l_vWhole.size());
    size_t l_ulGood = 0;
    static emulator::CBoardFirmware s_Board;
    static emulator::CMilliOhmFirmware s_Module;
    for (const Bytes& l_vFrame : l_vWhole) {
        RequireSealed(l_vFrame);
        l_ulGood += l_vFrame.size();
        const emulator::S_REPLY l_aReplies[] = {s_Board.Handle(l_vFrame),
                                                s_Module.Handle(l_vFrame)};
        for (const emulator::S_REPLY& l_Reply : l_aReplies) {
            if (l_Reply.bAnswered) {
                RequireSealed(l_Reply.vFrame);
            }
        }
    }
    Require(l_ulGood + l_Whole.Counters().ullDropped <= l_vLine.size());
    return 0;
}
