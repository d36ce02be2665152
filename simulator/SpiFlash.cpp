#include "SpiFlash.h"

#include <algorithm>

namespace
{

constexpr std::size_t nPageSize = 256;
constexpr std::size_t nSectorSize = std::size_t{4} << 10;
constexpr std::size_t nBlockSize = std::size_t{64} << 10;

enum : unsigned char {
    eProgram = 0x02,
    eRead = 0x03,
    eWriteDisable = 0x04,
    eReadStatus = 0x05,
    eWriteEnable = 0x06,
    eFastRead = 0x0B,
    eEraseSector = 0x20,
    eReadID = 0x9F,
    eEraseChip = 0xC7,
    eEraseBlock = 0xD8
};

unsigned char At(const std::string& strData, std::size_t nPos)
{
    return static_cast<unsigned char>(strData[nPos]);
}

} // namespace

CSpiFlash::CSpiFlash() : m_strMemory(nSize, '\xFF') {}

std::string CSpiFlash::Transfer(const std::string& strWrite)
{
    std::string strRead(strWrite.size(), '\xFF');
    if (strWrite.empty())
        return strRead;
    const std::lock_guard oLock(m_oMutex);
    Update();
    const unsigned char nCommand = At(strWrite, 0);
    if (nCommand == eReadStatus) {
        const char nStatus = static_cast<char>((m_bBusy ? 1 : 0) + (m_bWriteEnabled ? 2 : 0));
        std::fill(strRead.begin() + 1, strRead.end(), nStatus);
        return strRead;
    }
    if (m_bBusy)
        return strRead;

    const std::size_t nLen = strWrite.size();
    std::size_t nAddress = 0;
    if (nLen >= 4)
        nAddress =
            (std::size_t{At(strWrite, 1)} << 16 | std::size_t{At(strWrite, 2)} << 8 | At(strWrite, 3)) %
            nSize;
    using namespace std::chrono_literals;
    switch (nCommand) {
    case eReadID:
        for (std::size_t i = 1; i < nLen; i++)
            strRead[i] = "\xC2\x20\x17"[(i - 1) % 3];
        break;
    case eRead:
    case eFastRead:
        for (std::size_t i = nCommand == eRead ? 4 : 5; i < nLen; i++) {
            strRead[i] = m_strMemory[nAddress];
            nAddress = (nAddress + 1) % nSize;
        }
        break;
    case eWriteEnable:
    case eWriteDisable:
        if (nLen == 1)
            m_bWriteEnabled = nCommand == eWriteEnable;
        break;
    case eProgram:
        if (m_bWriteEnabled && nLen > 4)
            Program(nAddress, strWrite);
        break;
    case eEraseSector:
        if (m_bWriteEnabled && nLen == 4)
            Erase(nAddress, nSectorSize, 20ms);
        break;
    case eEraseBlock:
        if (m_bWriteEnabled && nLen == 4)
            Erase(nAddress, nBlockSize, 100ms);
        break;
    case eEraseChip:
        if (m_bWriteEnabled && nLen == 1)
            Erase(0, nSize, 2000ms);
        break;
    default:
        break;
    }
    return strRead;
}

void CSpiFlash::PowerCycle()
{
    const std::lock_guard oLock(m_oMutex);
    m_bWriteEnabled = false;
    m_bBusy = false;
}

void CSpiFlash::SetBusyFactor(double nFactor)
{
    const std::lock_guard oLock(m_oMutex);
    m_nBusyFactor = nFactor;
}

std::string CSpiFlash::Peek(std::size_t nAddress, std::size_t nLen) const
{
    const std::lock_guard oLock(m_oMutex);
    std::string strData;
    for (std::size_t i = 0; i < nLen; i++)
        strData += m_strMemory[(nAddress + i) % nSize];
    return strData;
}

void CSpiFlash::Poke(std::size_t nAddress, const std::string& strData)
{
    const std::lock_guard oLock(m_oMutex);
    for (std::size_t i = 0; i < strData.size(); i++)
        m_strMemory[(nAddress + i) % nSize] = strData[i];
}

void CSpiFlash::Update()
{
    if (m_bBusy && std::chrono::steady_clock::now() >= m_oBusyUntil) {
        m_bBusy = false;
        m_bWriteEnabled = false;
    }
}

void CSpiFlash::Begin(std::chrono::milliseconds nBusy)
{
    m_bBusy = true;
    m_oBusyUntil = std::chrono::steady_clock::now() +
                   std::chrono::microseconds(static_cast<long long>(
                       m_nBusyFactor * static_cast<double>(std::chrono::microseconds(nBusy).count())));
}

void CSpiFlash::Program(std::size_t nAddress, const std::string& strWrite)
{
    // The chip collects the data in a page buffer in which later bytes replace earlier ones, then clears
    // bits.
    std::string strPage(nPageSize, '\xFF');
    for (std::size_t i = 4; i < strWrite.size(); i++)
        strPage[(nAddress + i - 4) % nPageSize] = strWrite[i];
    const std::size_t nPage = nAddress - nAddress % nPageSize;
    for (std::size_t i = 0; i < nPageSize; i++)
        m_strMemory[nPage + i] = static_cast<char>(m_strMemory[nPage + i] & strPage[i]);
    Begin(std::chrono::milliseconds(1));
}

void CSpiFlash::Erase(std::size_t nAddress, std::size_t nLen, std::chrono::milliseconds nBusy)
{
    m_strMemory.replace(nAddress - nAddress % nLen, nLen, nLen, '\xFF');
    Begin(nBusy);
}
