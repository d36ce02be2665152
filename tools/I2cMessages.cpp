#include "I2cMessages.h"

#include "Text.h"

#include <fmt/format.h>

namespace
{

// What fits a telegram of 65535 bytes.
constexpr std::size_t MAX_STEPS = 65526;
constexpr std::size_t MAX_READ = 65525;

// The text up to where a number cannot go on, as strtoul reads it.
std::string_view TakeNumber(std::string_view& strText)
{
    const bool bHex = strText.size() > 2 && strText[0] == '0' && (strText[1] == 'x' || strText[1] == 'X');
    const auto nEnd = strText.find_first_not_of(bHex ? "0123456789abcdefABCDEF" : "0123456789", bHex ? 2 : 0);
    const std::string_view strNumber = strText.substr(0, nEnd);
    strText.remove_prefix(strNumber.size());
    return strNumber;
}

// Why a flag in front of the direction cannot be had.
const char* GetFlagFault(char cFlag)
{
    switch (cFlag) {
    case 'i':
        return "flag i (ignore NACK): the gateway ends a sequence at the first byte that is not acknowledged";
    case 'n':
        return "flag n (no acknowledge): the gateway acknowledges what it reads by itself";
    case 's':
        return "flag s (no start): every step of the gateway begins with a start condition";
    case 't':
        return "flag t (toggle read and write): the gateway sets the read bit by the direction";
    default:
        return nullptr;
    }
}

std::string ParseDescription(std::string_view strText, bool bAllAddresses, bool& bHasAddress,
                             SI2cMessage& oMessage)
{
    for (; !strText.empty() && strText[0] != 'r' && strText[0] != 'w'; strText.remove_prefix(1)) {
        if (const char* const pFault = GetFlagFault(strText[0]); pFault != nullptr)
            return pFault;
        if (strText[0] != 'p')
            return "invalid direction: a description is r or w, length and @address, such as r2@0x48";
        oMessage.bStop = true;
    }
    if (strText.empty())
        return "invalid direction: neither r nor w";
    oMessage.bRead = strText[0] == 'r';
    strText.remove_prefix(1);
    if (strText.starts_with('?')) {
        if (!oMessage.bRead)
            return "variable length not allowed with write";
        oMessage.bVariable = true;
        oMessage.nLength = 1 + SI2cMessage::MAX_BLOCK;
        strText.remove_prefix(1);
    } else {
        const auto nLength = ParseNumber(TakeNumber(strText), 0xFFFF);
        if (!nLength)
            return "invalid length: 0 to 65535, or ? for r";
        oMessage.nLength = *nLength;
    }
    if (strText.empty())
        return bHasAddress ? "" : "no address given";
    if (strText[0] != '@')
        return "unknown separator after length: @ is";
    const auto nAddress = ParseNumber(strText.substr(1), 0x7F);
    if (!nAddress || (!bAllAddresses && (*nAddress < 0x08 || *nAddress > 0x77)))
        return bAllAddresses ? "invalid address: 0x00 to 0x7f"
                             : "invalid address: 0x08 to 0x77, or with -a 0x00 to 0x7f";
    oMessage.nAddress = static_cast<unsigned>(*nAddress);
    bHasAddress = true;
    return "";
}

// Appends a byte, or with a suffix as many as the message lacks.
std::string ParseData(std::string_view strText, SI2cMessage& oMessage)
{
    const auto nValue = ParseNumber(TakeNumber(strText), 0xFF);
    if (!nValue)
        return "invalid data byte: 0 to 255";
    auto nByte = static_cast<unsigned>(*nValue);
    oMessage.strBytes += static_cast<char>(nByte);
    if (strText.empty())
        return "";
    if (strText.size() > 1 || std::string_view("=+-p").find(strText[0]) == std::string_view::npos)
        return "invalid data byte suffix: =, +, - or p";
    while (oMessage.strBytes.size() < oMessage.nLength) {
        if (strText[0] == '+') {
            ++nByte;
        } else if (strText[0] == '-') {
            --nByte;
        } else if (strText[0] == 'p') {
            nByte = ((nByte ^ 27U) + 13U) & 0xFFU;
            nByte = nByte << 1 | nByte >> 7;
        }
        nByte &= 0xFFU;
        oMessage.strBytes += static_cast<char>(nByte);
    }
    return "";
}

// What goes out together, up to a stop condition, has to fit a telegram, and so has the answer.
std::string CheckSizes(const std::vector<SI2cMessage>& aoMessages)
{
    std::size_t nSteps = 0;
    std::size_t nRead = 0;
    for (const SI2cMessage& oMessage : aoMessages) {
        nSteps += 4 + (oMessage.bRead ? 0 : oMessage.nLength);
        nRead += oMessage.bRead ? oMessage.nLength : 0;
        if (nSteps > MAX_STEPS || nRead > MAX_READ)
            return fmt::format(
                "the messages are too long for a telegram: at most {} bytes to write, with 4 more "
                "for each message, and {} to read",
                MAX_STEPS, MAX_READ);
        if (oMessage.bStop)
            nSteps = nRead = 0;
    }
    return "";
}

} // namespace

std::string ParseI2cMessages(const std::vector<std::string>& astrWords, bool bAllAddresses,
                             std::vector<SI2cMessage>& aoMessages)
{
    aoMessages.clear();
    bool bHasAddress = false;
    bool bData = false; // bytes are missing
    for (const std::string& strWord : astrWords) {
        std::string strFault;
        if (bData) {
            strFault = ParseData(strWord, aoMessages.back());
        } else {
            SI2cMessage oMessage;
            oMessage.nAddress = aoMessages.empty() ? 0 : aoMessages.back().nAddress;
            strFault = ParseDescription(strWord, bAllAddresses, bHasAddress, oMessage);
            aoMessages.push_back(oMessage);
        }
        if (!strFault.empty())
            return Quote(strWord) + ": " + strFault;
        const SI2cMessage& oLast = aoMessages.back();
        bData = !oLast.bRead && oLast.strBytes.size() < oLast.nLength;
    }
    if (bData)
        return fmt::format("incomplete message: {} of {} data bytes", aoMessages.back().strBytes.size(),
                           aoMessages.back().nLength);
    return CheckSizes(aoMessages);
}

std::string DescribeI2cMessage(std::size_t nIndex, const SI2cMessage& oMessage, bool bDone)
{
    std::string strText = fmt::format("msg {}: addr 0x{:02x}, {}, len ", nIndex, oMessage.nAddress,
                                      oMessage.bRead ? "read" : "write");
    if (oMessage.bVariable)
        strText += bDone ? fmt::format("{}", oMessage.strBytes.size()) : "TBD";
    else
        strText += fmt::format("{}", oMessage.nLength);
    if (!oMessage.strBytes.empty() && (bDone || !oMessage.bRead))
        strText += ", buf " + ToI2cBytes(oMessage.strBytes);
    return strText;
}

std::string ToI2cBytes(const std::string& strBytes)
{
    return strBytes.empty() ? "" : "0x" + ToHex(strBytes, " 0x");
}

unsigned char GetPacketErrorCode(const std::string& strBytes)
{
    unsigned nCode = 0;
    for (const char cByte : strBytes) {
        nCode ^= static_cast<unsigned char>(cByte);
        for (int i = 0; i < 8; ++i)
            nCode = (nCode << 1 ^ ((nCode & 0x80U) != 0 ? 0x107U : 0U)) & 0xFFU;
    }
    return static_cast<unsigned char>(nCode);
}
