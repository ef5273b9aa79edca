/**
 * @file WireDecode.h
 * @brief What passed between a driver and its link library, field by field.
 */
#pragma once

#include "wire/Capture.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/** A text of somebody else's, fit for a terminal: what is no plain character is a question mark. */
std::string PlainText(std::string_view i_strText);

/** One field of a frame, an answer block or a record. */
struct S_WIRE_FIELD
{
    size_t uOffset; /**< from the begin of the bytes that passed */
    std::string strName;
    std::string strValue;
};

/** One record in words. */
struct S_WIRE_MESSAGE
{
    uint64_t ullTime = 0;      /**< nanoseconds since 1970 */
    std::string strLink;       /**< board, milliohm, bluetooth, usb */
    std::string strTitle;      /**< what it is, in one line */
    bool bOut = false;         /**< towards the instrument */
    std::optional<bool> obCrc; /**< verdict on the frame, where there is one */
    std::vector<S_WIRE_FIELD> vFields;
};

/** Puts records into words. Keeps the calls that have not returned, to know what a return answers. */
class CWireDecoder
{
public:
    /** @param i_uMaxBytes how many bytes of a field without a meaning are shown. */
    explicit CWireDecoder(size_t i_uMaxBytes) : m_uMaxBytes(i_uMaxBytes) {}

    /** Forgets the calls: a new section begins. */
    void Begin() { m_mapOpen.clear(); }

    S_WIRE_MESSAGE Decode(const wire::S_CAPTURE_RECORD& i_Record);

private:
    class CFields;

    void DecodeCall(const wire::S_CAPTURE_RECORD& i_Call, S_WIRE_MESSAGE& io_Message);
    void DecodeReturn(const wire::S_CAPTURE_RECORD& i_Call, const wire::S_CAPTURE_RECORD& i_Return,
                      S_WIRE_MESSAGE& io_Message);
    void DecodeFrame(const wire::S_CAPTURE_RECORD& i_Call, S_WIRE_MESSAGE& io_Message) const;
    void DecodeAnswer(const wire::S_CAPTURE_RECORD& i_Return, bool i_bModule, uint16_t i_usCmde,
                      S_WIRE_MESSAGE& io_Message) const;
    void DecodeProbeSend(const wire::S_CAPTURE_RECORD& i_Call, S_WIRE_MESSAGE& io_Message);
    void DecodeProbeReply(const wire::S_CAPTURE_RECORD& i_Return, uint8_t i_ucCmde,
                          S_WIRE_MESSAGE& io_Message) const;

    size_t m_uMaxBytes;
    std::map<uint32_t, wire::S_CAPTURE_RECORD> m_mapOpen; // calls without their return
    std::map<int, uint8_t> m_mapProbeCmde;                // last command of each probe library
};

} // namespace host
