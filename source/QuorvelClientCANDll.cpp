#include "QuorvelClientCANDll.h"

#include "DataReader.h"
#include "Guarded.h"
#include "Trace.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

namespace
{

constexpr const char* UNIT = "source/QuorvelClientCANDll";
constexpr unsigned char LEVEL = 8;
constexpr unsigned char FLAG_TIMESTAMP = 0x04;
constexpr unsigned short TIMESTAMP_LENGTH = 8;
constexpr std::size_t FRAME_HEADER = 5; // identifier and flags
constexpr unsigned char MAX_FRAME_LENGTH = 64;
constexpr unsigned char MAX_LENGTH = 8;
constexpr std::size_t BLOCK = 16384;

// What CAN frames and unassigned frames have in common.
struct SFrame {
    explicit SFrame(std::string_view strData)
    {
        const CDataReader oData(strData);
        nIdentifier = oData.DWord(0);
        nFlags = oData.Byte(4);
        // In one byte, so that more than 255 bytes count as few: existing applications rely on it.
        nAll = static_cast<unsigned char>(strData.size() - FRAME_HEADER);
        // Data too short for the flags has none set: then no byte is looked at.
        nLen = static_cast<unsigned char>(CQuorvelClientCANDll::GetTime(
            nFlags, strData.data() + std::min(FRAME_HEADER, strData.size()), nAll, oTime));
    }

    int GetSeconds() const { return static_cast<int>(oTime.tv_sec); }
    int GetMicroSeconds() const { return static_cast<int>(oTime.tv_usec); }

    unsigned int nIdentifier;
    unsigned char nFlags;
    unsigned char nAll; // bytes behind the header
    unsigned char nLen; // of them frame data
    timeval oTime{};
};

// A part of a telegram that is readable in full length: zeros follow where the telegram is shorter.
class CReadable
{
  public:
    CReadable(const std::string& strData, std::size_t nOffset, std::size_t nCount)
    {
        if (strData.size() < nOffset + nCount) {
            m_strFilled = strData;
            m_strFilled.resize(nOffset + nCount);
        }
        m_pData = (m_strFilled.empty() ? strData : m_strFilled).data() + nOffset;
    }
    CReadable(const CReadable&) = delete;
    CReadable& operator=(const CReadable&) = delete;

    const char* Get() const { return m_pData; }

  private:
    std::string m_strFilled;
    const char* m_pData;
};

// The low byte is extended by its sign and so may set the whole high byte: existing applications rely on it.
unsigned short ErrorCode(const CDataReader& oData)
{
    return static_cast<unsigned short>(oData.Byte(2) << 8 | static_cast<signed char>(oData.Byte(1)));
}

template<class T>
void Put(T* pTo, T value)
{
    if (pTo != nullptr)
        *pTo = value;
}

// What all readers do; returns how many telegrams are left, or -1.
template<class FDecode>
int ReadFrom(CQuorvelMsgQueue& oQueue, FDecode fnDecode)
{
    std::array<char, 128> acShort; // not cleared
    std::string strLong;
    std::string_view strData;
    const int nLeft = Guarded([&] { return oQueue.Take(acShort, strLong, strData); }, -1);
    if (nLeft >= 0)
        fnDecode(strData);
    return nLeft;
}

} // namespace

// Many telegrams one behind the other, each a length and its data.
struct CQuorvelMsgQueue::SBlock {
    explicit SBlock(std::size_t nSize) : m_nSize(nSize), m_pBytes(new char[nSize]) {}

    const std::size_t m_nSize;
    const std::unique_ptr<char[]> m_pBytes; // not cleared
    std::atomic<SBlock*> m_pNext{nullptr};
    std::size_t m_nEnd = 0; // how much is used; set before m_pNext
};

// Not inline, like all that is rare here: each frame passes through the functions around it.
// Asleep, so that whoever has the lock gets on even when this thread has the higher priority.
[[gnu::noinline]] void CQuorvelMsgQueue::CLock::Wait()
{
    std::this_thread::sleep_for(std::chrono::microseconds(50));
}

CQuorvelMsgQueue::~CQuorvelMsgQueue()
{
    Clear();
}

void CQuorvelMsgQueue::Append(const CQuorvelMsg& oMsg, const std::atomic<bool>& bEnabled)
{
    const std::string& strData = oMsg.GetData();
    const auto nLen = static_cast<unsigned int>(strData.size());
    const std::size_t nNeeded = sizeof nLen + nLen;
    const std::lock_guard oLock(m_oLockIn);
    const unsigned int nAppended = m_nAppended.load(std::memory_order_relaxed);
    if (nAppended - m_nTakenSeen >= m_nMaxSize)
        m_nTakenSeen = m_nTaken;
    if (!bEnabled || nAppended - m_nTakenSeen >= m_nMaxSize)
        return;
    if (m_pLast == nullptr || m_pLast->m_nSize - m_nEnd < nNeeded)
        AppendBlock(std::max(BLOCK, nNeeded));
    char* const pTo = m_pLast->m_pBytes.get() + m_nEnd;
    std::memcpy(pTo, &nLen, sizeof nLen);
    strData.copy(pTo + sizeof nLen, nLen);
    m_nEnd += nNeeded;
    m_nAppended.store(nAppended + 1, std::memory_order_release);
}

[[gnu::noinline]] void CQuorvelMsgQueue::AppendBlock(std::size_t nSize)
{
    auto* const pBlock = new SBlock(nSize);
    if (m_pLast == nullptr) {
        m_pFirst = pBlock;
    } else {
        m_pLast->m_nEnd = m_nEnd;
        m_pLast->m_pNext.store(pBlock, std::memory_order_release);
    }
    m_pLast = pBlock;
    m_nEnd = 0;
}

template<class FCopy>
int CQuorvelMsgQueue::TakeBy(FCopy fnCopy)
{
    const std::lock_guard oLock(m_oLockOut);
    const unsigned int nTaken = m_nTaken.load(std::memory_order_relaxed);
    // Looked at once only: it may have to be fetched from the receive thread's processor.
    const unsigned int nAppended = m_nAppended.load(std::memory_order_acquire);
    if (nTaken == nAppended)
        return -1;
    SBlock* const pNext = m_pFirst->m_pNext.load(std::memory_order_acquire);
    if (pNext != nullptr && m_nPos == m_pFirst->m_nEnd) {
        delete std::exchange(m_pFirst, pNext);
        m_nPos = 0;
    }
    unsigned int nLen = 0;
    const char* const pFrom = m_pFirst->m_pBytes.get() + m_nPos;
    std::memcpy(&nLen, pFrom, sizeof nLen);
    fnCopy(pFrom + sizeof nLen, nLen);
    m_nPos += sizeof nLen + nLen;
    m_nTaken.store(nTaken + 1, std::memory_order_release);
    return static_cast<int>(nAppended - nTaken - 1);
}

int CQuorvelMsgQueue::Take(std::string& strData)
{
    return TakeBy([&](const char* pData, std::size_t nLen) { strData.assign(pData, nLen); });
}

int CQuorvelMsgQueue::Take(std::array<char, 128>& acShort, std::string& strLong, std::string_view& strData)
{
    return TakeBy([&](const char* pData, std::size_t nLen) {
        if (nLen <= acShort.size()) {
            std::memcpy(acShort.data(), pData, nLen);
            strData = {acShort.data(), nLen};
        } else {
            strData = strLong.assign(pData, nLen);
        }
    });
}

void CQuorvelMsgQueue::Clear()
{
    SBlock* pRemoved = nullptr; // deleted when the locks are gone: the receive thread does not wait for that
    {
        const std::lock_guard oLock(m_oLockOut);
        const std::lock_guard oLockIn(m_oLockIn);
        pRemoved = std::exchange(m_pFirst, nullptr);
        m_pLast = nullptr;
        m_nPos = 0;
        m_nTaken = m_nAppended.load();
    }
    while (pRemoved != nullptr)
        delete std::exchange(pRemoved, pRemoved->m_pNext.load(std::memory_order_relaxed));
}

CQuorvelClientCANDll::CQuorvelClientCANDll(int nHandle, int nTimeout)
    : CQuorvelClientCAN(nTimeout), m_nHandle(nHandle)
{
    SetOwnClass(typeid(CQuorvelClientCANDll));
}

CQuorvelClientCANDll::~CQuorvelClientCANDll()
{
    StopReception();
    SetCallback(nullptr);
    CANopenSetCallback(nullptr, nullptr, nullptr, nullptr, nullptr);
}

// The new callback is there before the old one goes, with a change counted in between: so the receive thread
// never takes a switch for "no callback".
void CQuorvelClientCANDll::SetCallback(FFrame pCallback)
{
    const CZelLock oLock(m_oMutexSetters);
    m_pFrame = pCallback;
    ++m_nFrameChanges;
    m_pFrameEx = nullptr;
}

void CQuorvelClientCANDll::SetCallbackEx(FFrameEx pCallback)
{
    const CZelLock oLock(m_oMutexSetters);
    m_pFrameEx = pCallback;
    ++m_nFrameChanges;
    m_pFrame = nullptr;
}

void CQuorvelClientCANDll::CANopenSetCallback(FPDO pPDO, FSYNC pSYNC, FEMCY pEMCY, FGUARD pGUARD,
                                              FUNDEFINED pUNDEFINED)
{
    const CZelLock oLock(m_oMutexSetters);
    m_pPDO = pPDO;
    m_pSYNC = pSYNC;
    m_pEMCY = pEMCY;
    m_pGUARD = pGUARD;
    m_pUNDEFINED = pUNDEFINED;
}

void CQuorvelClientCANDll::SetMaxSizePerQueue(unsigned int nSize)
{
    const CZelLock oLock(m_oMutexSetters);
    CQuorvelMsgQueue* const apQueues[] = {&m_oQueuePDO,   &m_oQueueSYNC,      &m_oQueueEMCY,
                                          &m_oQueueGUARD, &m_oQueueUNDEFINED, &m_oQueueFrame};
    if (nSize != 0) {
        for (CQuorvelMsgQueue* pQueue : apQueues)
            pQueue->SetMaxSize(nSize);
        m_bQueueing = true;
    } else {
        m_bQueueing = false;
        for (CQuorvelMsgQueue* pQueue : apQueues)
            pQueue->Clear();
    }
}

unsigned short CQuorvelClientCANDll::GetTime(unsigned char nFlags, const char* pData, unsigned short nLen,
                                             timeval& oTime)
{
    if ((nFlags & FLAG_TIMESTAMP) == 0) {
        oTime = {};
        Trace(LEVEL, UNIT, "CAN Message has no timestamp.");
        return nLen;
    }
    if (nLen < TIMESTAMP_LENGTH)
        return 0;
    const auto nDataLen = static_cast<unsigned short>(nLen - TIMESTAMP_LENGTH);
    oTime.tv_sec = Decode<unsigned int>(pData + nDataLen);
    oTime.tv_usec = Decode<unsigned int>(pData + nDataLen + 4);
    return nDataLen;
}

bool CQuorvelClientCANDll::DataIndRespond(CQuorvelMsg* pMsg)
{
    switch (pMsg->GetCmdCode()) {
    case 0x0203:
        FrameInd(*pMsg);
        break;
    case 0x0264:
        SYNCInd(*pMsg);
        break;
    case 0x0266:
        EMCYInd(*pMsg);
        break;
    case 0x0267:
        PDOInd(*pMsg);
        break;
    case 0x026C:
        GUARDInd(*pMsg);
        break;
    case 0x026D:
        UNDEFINEDInd(*pMsg);
        break;
    default:
        break;
    }
    return false; // queues hold copies
}

void CQuorvelClientCANDll::FrameInd(const CQuorvelMsg& oMsg)
{
    const SFrame oFrame(oMsg.GetData());
    if (oFrame.nLen > MAX_FRAME_LENGTH) {
        Trace(LEVEL, UNIT, "Invalid CAN-Telegram received.");
        return;
    }
    FFrame pFrame = nullptr;
    FFrameEx pFrameEx = nullptr;
    unsigned int nChanges = 0;
    do {
        nChanges = m_nFrameChanges;
        pFrame = m_pFrame;
        pFrameEx = m_pFrameEx;
    } while (pFrame == nullptr && pFrameEx == nullptr && nChanges != m_nFrameChanges);

    const char* const pData = oMsg.GetData().data() + FRAME_HEADER; // as long as nLen: see SFrame
    if (pFrame != nullptr)
        pFrame(oFrame.nIdentifier, pData, oFrame.nLen, oFrame.nFlags, m_nHandle);
    else if (pFrameEx != nullptr)
        pFrameEx(oFrame.nIdentifier, pData, oFrame.nLen, oFrame.nFlags, m_nHandle, oFrame.GetSeconds(),
                 oFrame.GetMicroSeconds());
    else
        m_oQueueFrame.Append(oMsg, m_bQueueing);
}

void CQuorvelClientCANDll::SYNCInd(const CQuorvelMsg& oMsg)
{
    Trace(LEVEL, UNIT, "SYNC Indication.");
    const CDataReader oData(oMsg.GetData());
    if (const FSYNC pCallback = m_pSYNC)
        pCallback(oData.Byte(0), m_nHandle, 0, 0);
    else
        m_oQueueSYNC.Append(oMsg, m_bQueueing);
}

void CQuorvelClientCANDll::EMCYInd(const CQuorvelMsg& oMsg)
{
    Trace(LEVEL, UNIT, "EMCY Indication.");
    const CDataReader oData(oMsg.GetData());
    if (const FEMCY pCallback = m_pEMCY) {
        unsigned char anData[5];
        oData.Copy(4, anData, sizeof anData);
        pCallback(oData.Byte(0), ErrorCode(oData), oData.Byte(3), anData, m_nHandle, 0, 0);
    } else {
        m_oQueueEMCY.Append(oMsg, m_bQueueing);
    }
}

void CQuorvelClientCANDll::PDOInd(const CQuorvelMsg& oMsg)
{
    Trace(LEVEL, UNIT, "PDO Indication.");
    const CDataReader oData(oMsg.GetData());
    if (const FPDO pCallback = m_pPDO) {
        const unsigned char nLen = oData.Byte(2); // not limited: existing applications rely on it
        const CReadable oReadable(oMsg.GetData(), 3, nLen);
        pCallback(oData.Byte(0), oData.Byte(1), nLen, oReadable.Get(), m_nHandle, 0, 0);
    } else {
        m_oQueuePDO.Append(oMsg, m_bQueueing);
    }
}

void CQuorvelClientCANDll::GUARDInd(const CQuorvelMsg& oMsg)
{
    Trace(LEVEL, UNIT, "GUARD Indication.");
    const CDataReader oData(oMsg.GetData());
    if (const FGUARD pCallback = m_pGUARD)
        pCallback(oData.Byte(0), oData.Byte(1), m_nHandle, 0, 0);
    else
        m_oQueueGUARD.Append(oMsg, m_bQueueing);
}

void CQuorvelClientCANDll::UNDEFINEDInd(const CQuorvelMsg& oMsg)
{
    Trace(LEVEL, UNIT, "UNDEFINED Indication.");
    const CDataReader oData(oMsg.GetData());
    if (const FUNDEFINED pCallback = m_pUNDEFINED) {
        const SFrame oFrame(oMsg.GetData());
        const CReadable oReadable(oMsg.GetData(), FRAME_HEADER, oFrame.nAll);
        pCallback(static_cast<int>(oFrame.nIdentifier), oData.Byte(0), oData.Byte(1), oFrame.nLen,
                  oReadable.Get(), m_nHandle, oFrame.GetSeconds(), oFrame.GetMicroSeconds());
    } else {
        m_oQueueUNDEFINED.Append(oMsg, m_bQueueing);
    }
}

int CQuorvelClientCANDll::CANGetMessage(int* pIdentifier, char* pData, unsigned char* pLen, int* pFlags,
                                        int* pSeconds, int* pMicroSeconds)
{
    return ReadFrom(m_oQueueFrame, [=](std::string_view strData) {
        const SFrame oFrame(strData);
        Put(pIdentifier, static_cast<int>(oFrame.nIdentifier));
        // Signed here, unlike in the callbacks: existing applications rely on it.
        Put(pFlags, static_cast<int>(static_cast<signed char>(oFrame.nFlags)));
        Put(pLen, std::min(oFrame.nLen, MAX_FRAME_LENGTH));
        // The time stamp's bytes too: existing applications rely on it.
        CDataReader(strData).Copy(FRAME_HEADER, pData, oFrame.nAll);
        Put(pSeconds, oFrame.GetSeconds());
        Put(pMicroSeconds, oFrame.GetMicroSeconds());
    });
}

int CQuorvelClientCANDll::CANopenGetPDO(unsigned char* pNodeID, unsigned char* pPDOType, unsigned char* pLen,
                                        char* pData)
{
    return ReadFrom(m_oQueuePDO, [=](std::string_view strData) {
        const CDataReader oData(strData);
        const unsigned char nLen = std::min(oData.Byte(2), MAX_LENGTH);
        Put(pNodeID, oData.Byte(0));
        Put(pPDOType, oData.Byte(1));
        Put(pLen, nLen);
        oData.Copy(3, pData, nLen);
    });
}

int CQuorvelClientCANDll::CANopenGetSYNC(unsigned char* pValue)
{
    return ReadFrom(m_oQueueSYNC,
                    [=](std::string_view strData) { Put(pValue, CDataReader(strData).Byte(0)); });
}

int CQuorvelClientCANDll::CANopenGetEMCY(unsigned char* pNodeID, unsigned short* pErrorCode,
                                         unsigned char* pErrorRegister, unsigned char* pData)
{
    return ReadFrom(m_oQueueEMCY, [=](std::string_view strData) {
        const CDataReader oData(strData);
        Put(pNodeID, oData.Byte(0));
        Put(pErrorCode, ErrorCode(oData));
        Put(pErrorRegister, oData.Byte(3));
        oData.Copy(4, pData, 5);
    });
}

int CQuorvelClientCANDll::CANopenGetGUARD(unsigned char* pNodeID, unsigned char* pState)
{
    return ReadFrom(m_oQueueGUARD, [=](std::string_view strData) {
        const CDataReader oData(strData);
        Put(pNodeID, oData.Byte(0));
        Put(pState, oData.Byte(1));
    });
}

int CQuorvelClientCANDll::CANopenGetUndefined(int* pIdentifier, unsigned char* pByte0, unsigned char* pByte1,
                                              unsigned char* pLen, char* pData, int* pSeconds,
                                              int* pMicroSeconds)
{
    return ReadFrom(m_oQueueUNDEFINED, [=](std::string_view strData) {
        const CDataReader oData(strData);
        const SFrame oFrame(strData);
        Put(pIdentifier, static_cast<int>(oFrame.nIdentifier));
        Put(pByte0, oData.Byte(0));
        Put(pByte1, oData.Byte(1));
        Put(pLen, std::min(oFrame.nLen, MAX_LENGTH));
        // All bytes behind the header, however long: existing applications rely on it.
        oData.Copy(FRAME_HEADER, pData, oFrame.nAll);
        Put(pSeconds, oFrame.GetSeconds());
        Put(pMicroSeconds, oFrame.GetMicroSeconds());
    });
}
